#include "peer/ShareList.h"

#include "peer/Compression.h"

namespace
{
constexpr std::uint32_t g_sharedFileListCode = 5;
}

void WriteFileInfoMap(OutputStream& o_stream, FileInfoMap const& i_map)
{
    o_stream.Write(static_cast<std::uint32_t>(i_map.size()));
    for (auto const& [l_folder, l_files] : i_map)
    {
        o_stream.Write(l_folder);
        o_stream.Write(static_cast<std::uint32_t>(l_files.size()));
        for (FileInfo const& l_file : l_files)
            l_file.Write(o_stream);
    }
}

ShareListRead ReadFileInfoMap(InputStream& i_stream, FileInfoMap& o_map, std::uint64_t i_maxFiles)
{
    o_map.clear();
    std::uint32_t l_folderCount = 0;
    if (!i_stream.Read(l_folderCount) || l_folderCount > g_maxReadLength)
        return ShareListRead::Bad;
    std::uint64_t l_announced = 0;
    for (std::uint32_t l_folderIndex = 0; l_folderIndex < l_folderCount; ++l_folderIndex)
    {
        std::string l_folder;
        std::uint32_t l_fileCount = 0;
        if (!i_stream.Read(l_folder) || !i_stream.Read(l_fileCount) || l_fileCount > g_maxReadLength)
            return ShareListRead::Bad;
        l_announced += l_fileCount;
        if (l_announced > i_maxFiles)
            return ShareListRead::TooManyFiles;
        // A folder named twice keeps its later contents, as for any map read.
        std::set<FileInfo>& l_files = o_map[std::move(l_folder)];
        l_files.clear();
        for (std::uint32_t l_fileIndex = 0; l_fileIndex < l_fileCount; ++l_fileIndex)
        {
            FileInfo l_file;
            if (!l_file.Read(i_stream))
                return ShareListRead::Bad;
            // Senders write in set order, so the end is nearly always the place.
            l_files.emplace_hint(l_files.end(), std::move(l_file));
        }
    }
    return ShareListRead::Ok;
}

void WriteTranslationTable(OutputStream& o_stream, AttributeTranslationTable const& i_table)
{
    o_stream.Write(static_cast<std::uint32_t>(i_table.size()));
    for (auto const& [l_key, l_name] : i_table)
    {
        o_stream.Write(static_cast<std::uint32_t>(l_key));
        o_stream.Write(l_name);
    }
}

bool ReadTranslationTable(InputStream& i_stream, AttributeTranslationTable& o_table)
{
    return i_stream.Read(o_table);
}

MemStream ShareListMessage(FileInfoMap const& i_map)
{
    return ShareListMessageOfBody(ShareListBody(i_map));
}

std::string ShareListBody(FileInfoMap const& i_map)
{
    MemStream l_body;
    WriteFileInfoMap(l_body, i_map);
    WriteTranslationTable(l_body, AttributeTranslationTable());
    return std::string(l_body.GetReadBuffer(), static_cast<std::size_t>(l_body.GetPendingReadLength()));
}

MemStream ShareListMessageOfBody(std::string const& i_body)
{
    MemStream l_message;
    l_message.Write(g_sharedFileListCode);
    AppendCompressed(l_message, i_body.data(), i_body.size());
    return l_message;
}
