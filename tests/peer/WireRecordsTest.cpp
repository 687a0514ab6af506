#include "WireBytes.h"
#include "peer/ShareList.h"
#include "peer/SharedFolderInfo.h"

#include <gtest/gtest.h>

#include <zlib.h>

using namespace std::string_literals;

namespace
{
constexpr std::uint64_t g_fiveGiB = 5ull << 30;

bool ReadRecord(InputStream& i_stream, StreamReadable& o_record) { return o_record.Read(i_stream); }
bool ReadRecord(InputStream& i_stream, AttributeTranslationTable& o_table) { return ReadTranslationTable(i_stream, o_table); }

// Reads the record and checks how many bytes it left.
template <class T>
bool ReadFrom(WireBytes const& i_bytes, T& o_record, int i_leftOver = 0)
{
    MemStream l_stream = i_bytes.Stream();
    bool const l_read = ReadRecord(l_stream, o_record);
    EXPECT_EQ(l_stream.GetPendingReadLength(), i_leftOver);
    return l_read;
}
} // namespace

TEST(PeerWireRecords, FileInfoMarkerNameSizeAndAttributes)
{
    // Marker 0 is a whole record: defaults, even on a used record, and nothing more is taken.
    FileInfo l_file("old", 9, AttributeMap("mp3"));
    ASSERT_TRUE(ReadFrom(WireBytes().U8(0).U32(7), l_file, 4));
    EXPECT_EQ(l_file.GetName(), "");
    EXPECT_EQ(l_file.GetSize(), 0);
    EXPECT_EQ(l_file.GetAttributes(), AttributeMap());

    // The name ends at its first zero byte though all its bytes are taken; a size past 2 GiB
    // and attributes of any code come through in order.
    ASSERT_TRUE(ReadFrom(WireBytes().File("a\\b.mp3\0junk"s, g_fiveGiB, "mp3", {{2, 1}, {9, 4}, {0, 320}}), l_file));
    EXPECT_EQ(l_file.GetName(), "a\\b.mp3");
    EXPECT_EQ(l_file.GetSize(), static_cast<qint64>(g_fiveGiB));
    EXPECT_EQ(l_file.GetAttributes().GetFormat(), "mp3");
    EXPECT_EQ(l_file.GetAttributes().GetAttributes(), (std::vector<AttributeMap::Attribute>{{2, 1}, {9, 4}, {0, 320}}));
    MemStream l_written;
    l_file.Write(l_written);
    EXPECT_EQ(Contents(l_written), WireBytes().File("a\\b.mp3", g_fiveGiB, "mp3", {{2, 1}, {9, 4}, {0, 320}}).m_bytes);

    // Over the bounds, or cut short.
    EXPECT_FALSE(ReadFrom(WireBytes().U8(1).Str(std::string(131073, 'n')), l_file, 131073));
    EXPECT_FALSE(ReadFrom(WireBytes().U8(1).Str("a").U64(1).Str("").U32(131073), l_file));
    EXPECT_FALSE(ReadFrom(WireBytes().U8(1).Str("a").U64(1).Str("").U32(1).U32(0), l_file));
    SharedFolderInfo l_folder;
    EXPECT_FALSE(ReadFrom(WireBytes().U32(131073), l_folder));
}

TEST(PeerWireRecords, FoldersKeepOneRecordPerNameAndSizeInByteOrder)
{
    SharedFolderInfo l_folder;
    ASSERT_TRUE(ReadFrom(WireBytes().U32(3).File("b", 2).File("a", 7).File("a", 7).U32(5), l_folder));
    MemStream l_written;
    l_folder.Write(l_written);
    EXPECT_EQ(Contents(l_written), WireBytes().U32(2).File("a", 7).File("b", 2).U32(0).m_bytes);

    // A received list: a repeated record goes, a folder without files stays, names sort by
    // unsigned bytes, and the list is written back just so.
    FileInfoMap l_map{{"stale", {}}};
    MemStream l_stream = WireBytes().U32(2).Str("m").U32(4).File("\xc3\xa9", 2).File("z", g_fiveGiB).File("z", g_fiveGiB)
                             .File("a", 1).Str("empty").U32(0).U32(0).Stream();
    ASSERT_EQ(ReadFileInfoMap(l_stream, l_map), ShareListRead::Ok);
    AttributeTranslationTable l_table{{1, "stale"}};
    EXPECT_TRUE(ReadTranslationTable(l_stream, l_table));
    EXPECT_TRUE(l_table.empty());
    MemStream l_mapWritten;
    WriteFileInfoMap(l_mapWritten, l_map);
    EXPECT_EQ(Contents(l_mapWritten),
              WireBytes().U32(2).Str("empty").U32(0).Str("m").U32(3).File("a", 1).File("z", g_fiveGiB).File("\xc3\xa9", 2).m_bytes);
}

TEST(PeerWireRecords, ShareListBoundsAndADamagedTable)
{
    FileInfoMap l_map;
    for (WireBytes const& l_bad : {WireBytes().U32(131073), WireBytes().U32(1).Str("f").U32(131073),
                                   WireBytes().U32(1).Str("f").U32(2).File("a", 1)})
    {
        MemStream l_stream = l_bad.Stream();
        EXPECT_EQ(ReadFileInfoMap(l_stream, l_map), ShareListRead::Bad);
    }
    // Three files in all are allowed: a second folder that announces one too many stops the
    // read before its records.
    WireBytes const l_first = WireBytes().U32(2).Str("f").U32(2).File("a", 1).File("b", 1).Str("g");
    MemStream l_atLimit = WireBytes(l_first).U32(1).File("c", 1).Stream();
    EXPECT_EQ(ReadFileInfoMap(l_atLimit, l_map, 3), ShareListRead::Ok);
    MemStream l_overLimit = WireBytes(l_first).U32(2).File("c", 1).Stream();
    EXPECT_EQ(ReadFileInfoMap(l_overLimit, l_map, 3), ShareListRead::TooManyFiles);
    EXPECT_EQ(Contents(l_overLimit), WireBytes().File("c", 1).m_bytes);

    AttributeTranslationTable l_table;
    ASSERT_TRUE(ReadFrom(WireBytes().U32(2).U32(7).Str("bitrate").U32(0xffffffff).Str("x"), l_table));
    EXPECT_EQ(l_table, (AttributeTranslationTable{{-1, "x"}, {7, "bitrate"}}));
    EXPECT_FALSE(ReadFrom(WireBytes().U32(2).U32(7).Str("bitrate").U32(8), l_table));
    EXPECT_FALSE(ReadFrom(WireBytes().U32(131073), l_table));
}

TEST(PeerWireRecords, SharingNothingInflatesWithPlainZlibToAnEmptyMapAndTable)
{
    std::string const l_message = Contents(ShareListMessage({}));
    EXPECT_EQ(l_message.substr(0, 4), WireBytes().U32(5).m_bytes);
    std::string l_out(64, '\0');
    uLongf l_length = l_out.size();
    ASSERT_EQ(uncompress(reinterpret_cast<Bytef*>(l_out.data()), &l_length,
                         reinterpret_cast<Bytef const*>(l_message.data() + 4), l_message.size() - 4),
              Z_OK);
    EXPECT_EQ(l_out.substr(0, l_length), WireBytes().U32(0).U32(0).m_bytes);
}
