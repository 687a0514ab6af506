#pragma once

#include <QMutex>
#include <QObject>
#include <QString>

#include <memory>
#include <string>

#include "shares/MP3Tally.h"

// Finds out, one file at a time on a thread of its own, an MP3 file's MPEG version, channel
// mode, sampling frequency, bit rate and whether the rate varies. It touches no items: paths
// come in and results go out through queued signals. A path travels as a QString holding the
// bytes of the file system's name one to a character, so that any name survives the crossing.
class MP3Scanner : public QObject
{
    Q_OBJECT
public:
    static constexpr std::size_t s_chunkSize = 65536;

    explicit MP3Scanner(QObject* ip_parent = nullptr);
    ~MP3Scanner() override;

    // From any thread: later scans, and the one under way at its next chunk, end without a
    // result.
    void Quit();

    // i_file holds the bytes of the name. True when the outputs are valid. Only a regular file
    // is opened, so that a FIFO or a device named like an MP3 cannot hold the thread.
    bool ScanMP3(std::string const& i_file, int& o_mpegVersion, std::string& o_channelMode, int& o_frequency,
                 bool& o_isVBR, int& o_bitrate);

signals:
    void MP3Scanned(QString i_file, int i_mpegVersion, QString i_channelMode, int i_frequency, bool i_isVBR,
                    int i_bitrate);

public slots:
    void OnMP3ScanRequired(QString i_file);

private:
    bool IsQuitting();
    // Votes with the whole file in chunks of s_chunkSize; false when it cannot be read, or on
    // quitting.
    bool TallyFile(int i_descriptor);

    QMutex m_quitMutex;
    bool m_quit = false;
    std::unique_ptr<unsigned char[]> mp_chunk; // reused by every scan
    MP3Tally m_tally;
};
