#pragma once

#include "peer/FileInfo.h"
#include "peer/PeerLimits.h"
#include "stream/InputStream.h"
#include "stream/MemStream.h"
#include "stream/OutputStream.h"

#include <cstdint>
#include <map>
#include <set>
#include <string>

// What a user shares: folder path to the files in it, folders in key order, files in name and
// size order.
using FileInfoMap = std::map<std::string, std::set<FileInfo>>;
// Attribute names by code, sent behind a share list; this client writes it empty.
using AttributeTranslationTable = std::map<int, std::string>;

// Count of folders, then per folder its key, a count and the records.
void WriteFileInfoMap(OutputStream& o_stream, FileInfoMap const& i_map);

enum class ShareListRead
{
    Ok,
    Bad,
    TooManyFiles
};

// Folder and file counts are bounded one by one like any count; in all, a list that announces
// more than i_maxFiles records stops at that announcement. The map grows only with records
// that were really read.
ShareListRead ReadFileInfoMap(InputStream& i_stream, FileInfoMap& o_map,
                              std::uint64_t i_maxFiles = PeerLimits::s_maxShareListFiles);

void WriteTranslationTable(OutputStream& o_stream, AttributeTranslationTable const& i_table);
// On false the table holds what was read so far; the caller clears it.
bool ReadTranslationTable(InputStream& i_stream, AttributeTranslationTable& o_table);

// The whole answer to a request for the share list: the code, then the map and an empty table
// compressed. Sharing nothing is ShareListMessage({}).
MemStream ShareListMessage(FileInfoMap const& i_map);
// The same in two steps, so that the compression, which takes most of the time, can run
// away from the graph: the body as it is before compression, and the message made of it.
std::string ShareListBody(FileInfoMap const& i_map);
MemStream ShareListMessageOfBody(std::string const& i_body);
