#pragma once

#include <QColor>
#include <QString>

#include <string>

// The texts and colours a transfer row shows, computed alike for files and their groups.
namespace TransferFigures
{
// Bytes done of a size as a percentage; a size of 0 counts as done.
double Percent(double i_done, double i_size);
// A sum of sizes brought back into the range that is shown.
long long Shown(__int128 i_bytes);
// "1,234 (12.5%)".
QString ProgressText(long long i_done, double i_percent);
// Bytes per second as KiB per second with one decimal.
QString KbsText(long long i_bytesPerSecond);
// The time left at the given speed, "   1h:2m:3s"; "   0s" when nothing moves.
QString EtaText(long long i_bytesLeft, long long i_bytesPerSecond);
QColor StatusColor(std::string const& i_status);
// Whether a status is one in which bytes move.
bool IsRunningStatus(std::string const& i_status);
} // namespace TransferFigures
