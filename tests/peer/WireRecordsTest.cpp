#include "WireBytes.h"
#include "peer/ShareList.h"
#include "peer/SharedFolderInfo.h"

#include <gtest/gtest.h>

#include <zlib.h>

using namespace std::string_literals;

namespace
{
constexpr std::uint64_t g_fiveGiB = 5ull << 30;
// Enough bytes for 131,073 empty records, so that only a bound stops a count that high.
std::string const g_zeros(131073 * 8, '\0');

bool ReadRecord(InputStream& i_stream, StreamReadable& o_record) { return o_record.Read(i_stream); }
bool ReadRecord(InputStream& i_stream, AttributeTranslationTable& o_table) { return ReadTranslationTable(i_stream, o_table); }
// At most four files in a whole list.
ShareListRead ReadRecord(InputStream& i_stream, FileInfoMap& o_map) { return ReadFileInfoMap(i_stream, o_map, 4); }

// Reads the record and checks how many bytes it left.
template <class T>
auto ReadFrom(WireBytes const& i_bytes, T& o_record, std::size_t i_leftOver = 0)
{
    MemStream l_stream = i_bytes.Stream();
    auto const l_read = ReadRecord(l_stream, o_record);
    EXPECT_EQ(l_stream.GetPendingReadLength(), static_cast<int>(i_leftOver));
    return l_read;
}
} // namespace

TEST(PeerWireRecords, FilesAndFolders)
{
    // Marker 0 is a whole record: defaults, even on a used record, and nothing more is taken.
    FileInfo l_file("old", 9, AttributeMap("mp3"));
    ASSERT_TRUE(ReadFrom(WireBytes().U8(0).U32(7), l_file, 4));
    EXPECT_TRUE(l_file.GetName().empty() && l_file.GetSize() == 0 && l_file.GetAttributes() == AttributeMap());
    // Over the bounds, or cut short.
    EXPECT_FALSE(ReadFrom(WireBytes().U8(1).Str(std::string(131073, 'n')), l_file, 131073));
    EXPECT_FALSE(ReadFrom(WireBytes().U8(1).Str("a").U64(1).Str("").U32(131073).Raw(g_zeros), l_file, g_zeros.size()));
    EXPECT_FALSE(ReadFrom(WireBytes().U8(1).Str("a").U64(1).Str("").U32(1).U32(0), l_file));
    SharedFolderInfo l_folder;
    EXPECT_FALSE(ReadFrom(WireBytes().U32(131073).Raw(g_zeros), l_folder, g_zeros.size()));

    // A name ends at its first zero byte though all its bytes are taken; a size past 2 GiB and
    // attributes of any code come through in order. A folder keeps one record per name and
    // size in byte order, and takes the count behind them that it writes as 0.
    ASSERT_TRUE(ReadFrom(WireBytes().U32(4).File("b\0junk"s, g_fiveGiB, "mp3", {{2, 1}, {9, 4}, {0, 32}}).File("a", 8)
                             .File("a", 7).File("a", 7).U32(5), l_folder));
    MemStream l_written;
    l_folder.Write(l_written);
    EXPECT_EQ(Contents(l_written),
              WireBytes().U32(3).File("a", 7).File("a", 8).File("b", g_fiveGiB, "mp3", {{2, 1}, {9, 4}, {0, 32}}).U32(0).m_bytes);
}

TEST(PeerWireRecords, ShareListsTablesAndTheListOfNothing)
{
    // A list of four files, at the bound, replaces the map and leaves the table behind it; a
    // repeated record goes, a folder without files stays, and names sort by unsigned bytes.
    FileInfoMap l_map{{"stale", {}}};
    WireBytes const l_list = WireBytes().U32(2).Str("m").U32(4).File("\xc3\xa9", 2).File("z", 1).File("z", 1).File("a", 1);
    ASSERT_EQ(ReadFrom(WireBytes(l_list).Str("empty").U32(0).U32(0), l_map, 4), ShareListRead::Ok);
    MemStream l_written;
    WriteFileInfoMap(l_written, l_map);
    EXPECT_EQ(Contents(l_written),
              WireBytes().U32(2).Str("empty").U32(0).Str("m").U32(3).File("a", 1).File("z", 1).File("\xc3\xa9", 2).m_bytes);

    EXPECT_EQ(ReadFrom(WireBytes().U32(131073).Raw(g_zeros), l_map, g_zeros.size()), ShareListRead::Bad);
    EXPECT_EQ(ReadFrom(WireBytes().U32(1).Str("f").U32(131073).Raw(g_zeros), l_map, g_zeros.size()), ShareListRead::Bad);
    EXPECT_EQ(ReadFrom(WireBytes().U32(1).Str("f").U32(2).File("a", 1), l_map), ShareListRead::Bad);
    // The bound counts files over all folders: a folder that announces one too many stops the
    // read before its records.
    EXPECT_EQ(ReadFrom(WireBytes().U32(2).Str("f").U32(2).File("a", 1).File("b", 1).Str("g").U32(3).File("c", 1), l_map,
                       WireBytes().File("c", 1).m_bytes.size()),
              ShareListRead::TooManyFiles);

    AttributeTranslationTable l_table;
    ASSERT_TRUE(ReadFrom(WireBytes().U32(2).U32(7).Str("bitrate").U32(0xffffffff).Str("x"), l_table));
    EXPECT_EQ(l_table, (AttributeTranslationTable{{-1, "x"}, {7, "bitrate"}}));
    EXPECT_FALSE(ReadFrom(WireBytes().U32(2).U32(7).Str("bitrate").U32(8), l_table));
    EXPECT_FALSE(ReadFrom(WireBytes().U32(131073).Raw(g_zeros), l_table, g_zeros.size()));

    // Sharing nothing: code 5, then an empty map and table that plain zlib inflates.
    std::string const l_message = Contents(ShareListMessage({}));
    EXPECT_EQ(l_message.substr(0, 4), WireBytes().U32(5).m_bytes);
    std::string l_out(64, '\0');
    uLongf l_length = l_out.size();
    ASSERT_EQ(uncompress(reinterpret_cast<Bytef*>(l_out.data()), &l_length,
                         reinterpret_cast<Bytef const*>(l_message.data() + 4), l_message.size() - 4), Z_OK);
    EXPECT_EQ(l_out.substr(0, l_length), WireBytes().U32(0).U32(0).m_bytes);
}
