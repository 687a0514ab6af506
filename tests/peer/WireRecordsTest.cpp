#include "WireBytes.h"
#include "peer/ShareList.h"
#include "peer/SharedFolderInfo.h"

#include <gtest/gtest.h>

#include <zlib.h>

using namespace std::string_literals;

namespace
{
constexpr std::uint64_t g_fiveGiB = 5ull << 30;

std::string Written(auto const& i_write)
{
    MemStream l_stream;
    i_write(l_stream);
    return Contents(l_stream);
}
} // namespace

TEST(PeerWireFileInfo, MarkerNameSizeAndAttributes)
{
    // Marker 0: a record with no fields, the next bytes are left alone, even on a used record.
    FileInfo l_file("old", 9, AttributeMap("mp3"));
    MemStream l_empty = WireBytes().U8(0).U32(7).Stream();
    ASSERT_TRUE(l_file.Read(l_empty));
    EXPECT_EQ(l_file.GetName(), "");
    EXPECT_EQ(l_file.GetSize(), 0);
    EXPECT_EQ(l_file.GetAttributes(), AttributeMap());
    EXPECT_EQ(l_empty.GetPendingReadLength(), 4);

    // The name ends at its first zero byte, but all of its bytes are taken; a size past 2 GiB
    // and attributes of any code come through in order.
    WireBytes const l_bytes = WireBytes().File("a\\b.mp3\0junk"s, g_fiveGiB, "mp3", {{2, 1}, {9, 4}, {0, 320}}).U8(0xee);
    MemStream l_stream = l_bytes.Stream();
    ASSERT_TRUE(l_file.Read(l_stream));
    EXPECT_EQ(l_file.GetName(), "a\\b.mp3");
    EXPECT_EQ(l_file.GetSize(), static_cast<qint64>(g_fiveGiB));
    EXPECT_EQ(l_file.GetAttributes().GetFormat(), "mp3");
    using Pairs = std::vector<AttributeMap::Attribute>;
    EXPECT_EQ(l_file.GetAttributes().GetAttributes(), (Pairs{{2, 1}, {9, 4}, {0, 320}}));
    EXPECT_EQ(l_stream.GetPendingReadLength(), 1);

    AttributeMap l_mp3("mp3");
    l_mp3.AddAttribute(0, 320);
    l_mp3.AddAttribute(2, 0);
    EXPECT_EQ(Written([&](MemStream& o_stream) { FileInfo("b.mp3", g_fiveGiB, l_mp3).Write(o_stream); }),
              WireBytes().File("b.mp3", g_fiveGiB, "mp3", {{0, 320}, {2, 0}}).Get());
}

TEST(PeerWireFileInfo, LengthsCountsAndCutsFail)
{
    FileInfo l_file;
    MemStream l_longName = WireBytes().U8(1).Str(std::string(131073, 'n')).U64(1).Str("").U32(0).Stream();
    EXPECT_FALSE(l_file.Read(l_longName));
    MemStream l_manyAttributes = WireBytes().U8(1).Str("a").U64(1).Str("").U32(131073).Stream();
    EXPECT_FALSE(l_file.Read(l_manyAttributes));
    std::string const l_whole = WireBytes().File("a", 1, "mp3", {{0, 1}}).Get();
    MemStream l_cut = WireBytes().Raw(l_whole.substr(0, l_whole.size() - 1)).Stream();
    EXPECT_FALSE(l_file.Read(l_cut));

    SharedFolderInfo l_folder;
    MemStream l_manyFiles = WireBytes().U32(131073).Stream();
    EXPECT_FALSE(l_folder.Read(l_manyFiles));
    MemStream l_noFurtherCount = WireBytes().U32(1).File("a", 1).Stream();
    EXPECT_FALSE(l_folder.Read(l_noFurtherCount));
}

TEST(PeerWireSharedFolder, SameNameAndSizeKeepOneAndTheFurtherCountIsIgnored)
{
    SharedFolderInfo l_folder;
    MemStream l_stream =
        WireBytes().U32(4).File("b", 2).File("a", 7, "mp3", {{0, 128}}).File("a", 7).File("a", 8).U32(5).Stream();
    ASSERT_TRUE(l_folder.Read(l_stream));
    EXPECT_EQ(l_stream.GetPendingReadLength(), 0);
    EXPECT_EQ(Written([&](MemStream& o_stream) { l_folder.Write(o_stream); }),
              WireBytes().U32(3).File("a", 7, "mp3", {{0, 128}}).File("a", 8).File("b", 2).U32(0).Get());
}

TEST(PeerWireFileInfoMap, FoldersFilesAndTheirOrder)
{
    WireBytes const l_bytes = WireBytes()
                                  .U32(3)
                                  .Str("z\\music")
                                  .U32(3)
                                  .File("b.mp3", g_fiveGiB)
                                  .File("a.mp3", 1)
                                  .File("b.mp3", g_fiveGiB)
                                  .Str("empty")
                                  .U32(0)
                                  .Str("b")
                                  .U32(2)
                                  .File("\xc3\xa9", 2)
                                  .File("z", 2)
                                  .U32(0);
    FileInfoMap l_map{{"stale", {}}};
    MemStream l_stream = l_bytes.Stream();
    ASSERT_EQ(ReadFileInfoMap(l_stream, l_map), ShareListRead::Ok);
    ASSERT_EQ(l_map.size(), 3u);
    EXPECT_TRUE(l_map["empty"].empty());
    ASSERT_EQ(l_map["z\\music"].size(), 2u);
    EXPECT_EQ(l_map["z\\music"].rbegin()->GetSize(), static_cast<qint64>(g_fiveGiB));
    AttributeTranslationTable l_table{{1, "stale"}};
    EXPECT_TRUE(ReadTranslationTable(l_stream, l_table));
    EXPECT_TRUE(l_table.empty());

    // Written back: names in byte order, so a byte above 0x7f after "z"; the repeated record
    // once; the empty folder with count 0.
    EXPECT_EQ(Written([&](MemStream& o_stream) { WriteFileInfoMap(o_stream, l_map); }),
              WireBytes()
                  .U32(3)
                  .Str("b")
                  .U32(2)
                  .File("z", 2)
                  .File("\xc3\xa9", 2)
                  .Str("empty")
                  .U32(0)
                  .Str("z\\music")
                  .U32(2)
                  .File("a.mp3", 1)
                  .File("b.mp3", g_fiveGiB)
                  .Get());
}

TEST(PeerWireFileInfoMap, BoundsOnFoldersAndFiles)
{
    FileInfoMap l_map;
    MemStream l_manyFolders = WireBytes().U32(131073).Stream();
    EXPECT_EQ(ReadFileInfoMap(l_manyFolders, l_map), ShareListRead::Bad);
    MemStream l_manyFiles = WireBytes().U32(1).Str("f").U32(131073).Stream();
    EXPECT_EQ(ReadFileInfoMap(l_manyFiles, l_map), ShareListRead::Bad);
    MemStream l_cut = WireBytes().U32(1).Str("f").U32(2).File("a", 1).Stream();
    EXPECT_EQ(ReadFileInfoMap(l_cut, l_map), ShareListRead::Bad);

    // Three files in all are allowed: two folders of two announce one too many, and the
    // second folder's records are not read.
    WireBytes const l_first = WireBytes().U32(2).Str("f").U32(2).File("a", 1).File("b", 1);
    MemStream l_atLimit = WireBytes(l_first).Str("g").U32(1).File("c", 1).Stream();
    EXPECT_EQ(ReadFileInfoMap(l_atLimit, l_map, 3), ShareListRead::Ok);
    EXPECT_EQ(l_map.size(), 2u);
    std::string const l_secondFolder = WireBytes().File("c", 1).File("d", 1).Get();
    MemStream l_overLimit = WireBytes(l_first).Str("g").U32(2).Raw(l_secondFolder).Stream();
    EXPECT_EQ(ReadFileInfoMap(l_overLimit, l_map, 3), ShareListRead::TooManyFiles);
    EXPECT_EQ(Contents(l_overLimit), l_secondFolder);
}

TEST(PeerWireTranslationTable, EntriesAndDamage)
{
    AttributeTranslationTable l_table;
    MemStream l_good = WireBytes().U32(2).U32(7).Str("bitrate").U32(0xffffffff).Str("x").Stream();
    ASSERT_TRUE(ReadTranslationTable(l_good, l_table));
    EXPECT_EQ(l_table, (AttributeTranslationTable{{-1, "x"}, {7, "bitrate"}}));
    EXPECT_EQ(Written([&](MemStream& o_stream) { WriteTranslationTable(o_stream, l_table); }),
              WireBytes().U32(2).U32(0xffffffff).Str("x").U32(7).Str("bitrate").Get());

    MemStream l_short = WireBytes().U32(2).U32(7).Str("bitrate").U32(8).Stream();
    EXPECT_FALSE(ReadTranslationTable(l_short, l_table));
    MemStream l_tooMany = WireBytes().U32(131073).Stream();
    EXPECT_FALSE(ReadTranslationTable(l_tooMany, l_table));
}

TEST(PeerWireShareListMessage, CodeThenTheCompressedMapAndEmptyTable)
{
    auto const l_inflated = [](MemStream const& i_message)
    {
        std::string const l_bytes = Contents(i_message);
        EXPECT_EQ(l_bytes.substr(0, 4), WireBytes().U32(5).Get());
        std::string l_body(1 << 16, '\0');
        uLongf l_length = l_body.size();
        EXPECT_EQ(uncompress(reinterpret_cast<Bytef*>(l_body.data()), &l_length,
                             reinterpret_cast<Bytef const*>(l_bytes.data() + 4), l_bytes.size() - 4),
                  Z_OK);
        l_body.resize(l_length);
        return l_body;
    };
    // Sharing nothing still answers: an empty map and an empty table.
    EXPECT_EQ(l_inflated(ShareListMessage({})), WireBytes().U32(0).U32(0).Get());
    EXPECT_EQ(l_inflated(ShareListMessage({{"m\\a", {FileInfo("x.ogg", g_fiveGiB)}}})),
              WireBytes().U32(1).Str("m\\a").U32(1).File("x.ogg", g_fiveGiB).U32(0).Get());
}
