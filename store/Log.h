#pragma once

#include <functional>

#include <QString>

#include "store/ItemPtr.h"

// One line of the diagnostics log: an area (one tab per area), a level (1 an event of interest,
// 2 what belongs under it, 3 detail), the text and the item it concerns, if any.
void Log(QString const& i_area, int i_level, QString const& i_text, ItemPtr i_item = ItemPtr());

using LogSink = std::function<void(QString const&, int, QString const&, ItemPtr)>;

// The shell installs the sink that shows the lines; until then, and without one, they go to
// standard error, so that the store and its tests need no widgets.
void SetLogSink(LogSink i_sink);

// The line as it goes to standard error: the area, then the text indented by level.
QString PlainLogLine(QString const& i_area, int i_level, QString const& i_text);
