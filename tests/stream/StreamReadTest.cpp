#include "StreamBytes.h"
#include "stream/Persistent.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <list>
#include <map>
#include <set>
#include <string>

using namespace std::string_literals;

namespace
{
// Stands in for the records that travel in sets and maps.
struct Entry : Persistent
{
    std::string m_name;
    std::uint64_t m_size = 0;

    bool Read(InputStream& i_stream) override { return i_stream.Read(m_name) && i_stream.Read(m_size); }
    bool Write(OutputStream& o_stream) const override { return o_stream.Write(m_name) && o_stream.Write(m_size); }
    bool operator<(Entry const& i_other) const { return m_name < i_other.m_name; }
};
}

TEST(StreamRead, PrimitivesAndZeroBytesInStrings)
{
    MemStream l_stream = StreamOf(0x01020304u, std::int64_t{-2}, "ab\0cd"s, true, std::uint8_t{5});
    EXPECT_EQ(std::string(l_stream.GetReadBuffer(), 4), "\x04\x03\x02\x01");
    std::uint32_t l_u32 = 0;
    std::int64_t l_i64 = 0;
    std::string l_text;
    bool l_true = false, l_five = false;
    ASSERT_TRUE(l_stream.Read(l_u32) && l_stream.Read(l_i64) && l_stream.Read(l_text) && l_stream.Read(l_true) &&
                l_stream.Read(l_five));
    EXPECT_EQ(l_u32, 0x01020304u);
    EXPECT_EQ(l_i64, -2);
    EXPECT_EQ(l_text, "ab");
    EXPECT_TRUE(l_true && l_five);
}

TEST(StreamRead, StringLengthLimit)
{
    std::string l_text;
    ASSERT_TRUE(StreamOf(std::string(131072, 'a')).Read(l_text));
    EXPECT_EQ(l_text.size(), 131072u);

    MemStream l_tooLong = StreamOf(std::string(131073, 'a'));
    EXPECT_FALSE(l_tooLong.Read(l_text));
    EXPECT_EQ(l_tooLong.GetReadIndex(), 4);
    EXPECT_EQ(l_text.size(), 131072u);

    MemStream l_short = StreamOf(10u);
    l_short.WriteBuffer("short", 5);
    EXPECT_FALSE(l_short.Read(l_text));
}

TEST(StreamRead, ListCounts)
{
    MemStream l_stream = StreamOf(0u, 131073u);
    std::list<int> l_list{1, 2};
    ASSERT_TRUE(l_stream.Read(l_list));
    EXPECT_TRUE(l_list.empty());
    l_list = {1, 2};
    EXPECT_FALSE(l_stream.Read(l_list));
    EXPECT_TRUE(l_list.empty());

    MemStream l_full = StreamOf(131072u);
    for (int l_index = 0; l_index < 131072; ++l_index)
        l_full.Write(l_index);
    ASSERT_TRUE(l_full.Read(l_list));
    EXPECT_EQ(l_list.size(), 131072u);
}

TEST(StreamRead, ListFailingOnThirdElementKeepsTwo)
{
    MemStream l_stream = StreamOf(5u, "one"s, "two"s, 3u);
    l_stream.WriteBuffer("th", 2);
    std::list<std::string> l_list;
    EXPECT_FALSE(l_stream.Read(l_list));
    EXPECT_EQ(l_list, (std::list<std::string>{"one", "two"}));
    EXPECT_EQ(l_stream.GetPendingReadLength(), 2);
}

TEST(StreamRead, SetPairAndMap)
{
    MemStream l_stream = StreamOf(2u, "a"s, "b"s, 7u, -7, 2u, 1, "x"s, -1, "y"s);
    std::set<std::string> l_set{"old"};
    std::pair<unsigned int, int> l_pair;
    std::map<int, std::string> l_map{{5, "old"}};
    ASSERT_TRUE(l_stream.Read(l_set) && l_stream.Read(l_pair) && l_stream.Read(l_map));
    EXPECT_EQ(l_set, (std::set<std::string>{"a", "b"}));
    EXPECT_EQ(l_pair, (std::pair<unsigned int, int>{7, -7}));
    EXPECT_EQ(l_map, (std::map<int, std::string>{{-1, "y"}, {1, "x"}}));
}

// Folders mapped to sets of records: the shape of a received share list.
TEST(StreamRead, MapOfRecordSets)
{
    Entry l_song;
    l_song.m_name = "song";
    l_song.m_size = 1ull << 40;
    std::map<std::string, std::set<Entry>> l_folders;
    ASSERT_TRUE(StreamOf(1u, "music"s, 1u, l_song).Read(l_folders));
    ASSERT_EQ(l_folders["music"].size(), 1u);
    EXPECT_EQ(l_folders["music"].begin()->m_name, "song");
    EXPECT_EQ(l_folders["music"].begin()->m_size, 1ull << 40);

    // A key whose value is cut off is not entered.
    EXPECT_FALSE(StreamOf(1u, "music"s, 1u).Read(l_folders));
    EXPECT_TRUE(l_folders.empty());
}
