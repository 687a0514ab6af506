#include "StreamBytes.h"
#include "stream/Persistent.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <list>
#include <map>
#include <new>
#include <set>
#include <string>
#include <vector>

using namespace std::string_literals;

// Watches the largest single allocation of the program: a reader must not allocate on the word
// of a length or count that the data does not back.
namespace
{
std::atomic<bool> g_watching{false};
std::atomic<std::size_t> g_largestAllocation{0};

void* Allocate(std::size_t i_size)
{
    if (g_watching && i_size > g_largestAllocation)
        g_largestAllocation = i_size;
    if (void* lp_memory = std::malloc(i_size ? i_size : 1))
        return lp_memory;
    throw std::bad_alloc();
}

// Stands in for the records that travel in sets and maps.
struct Entry : Persistent
{
    std::string m_name;
    std::uint64_t m_size = 0;

    bool Read(InputStream& i_stream) override { return i_stream.Read(m_name) && i_stream.Read(m_size); }
    bool Write(OutputStream& o_stream) const override { return o_stream.Write(m_name) && o_stream.Write(m_size); }
    bool operator<(Entry const& i_other) const { return m_name < i_other.m_name; }
};

// The next value off a stream that must hold one; containers start as i_before, to show they are
// cleared. The copy of the stream shares its read index.
template <class T>
T Next(MemStream i_stream, T const& i_before = T())
{
    T l_value = i_before;
    EXPECT_TRUE(i_stream.Read(l_value));
    return l_value;
}
}

TEST(StreamRead, PrimitivesContainersAndZeroBytesInStrings)
{
    using Map = std::map<int, std::string>;
    MemStream l_stream = StreamOf(0x01020304u, std::int64_t{-2}, "ab\0cd"s, true, std::uint8_t{5}, 2u, "a"s, "b"s, 7u, -7,
                                  3u, 1, "x"s, -1, "y"s, 1, "z"s, 1u, "music"s, 1u, "song"s, 1ull << 40);
    EXPECT_EQ(std::string(l_stream.GetReadBuffer(), 4), "\x04\x03\x02\x01");
    EXPECT_EQ(Next<std::uint32_t>(l_stream), 0x01020304u);
    EXPECT_EQ(Next<std::int64_t>(l_stream), -2);
    EXPECT_EQ(Next<std::string>(l_stream), "ab");
    EXPECT_TRUE(Next<bool>(l_stream) && Next<bool>(l_stream));
    EXPECT_EQ(Next(l_stream, std::set<std::string>{"old"}), (std::set<std::string>{"a", "b"}));
    EXPECT_EQ((Next<std::pair<unsigned int, int>>(l_stream)), (std::pair<unsigned int, int>{7, -7}));
    EXPECT_EQ(Next(l_stream, Map{{5, "old"}}), (Map{{-1, "y"}, {1, "z"}})); // the later of two equal keys wins
    // Folders mapped to sets of records: the shape of a received share list.
    auto l_folders = Next<std::map<std::string, std::set<Entry>>>(l_stream);
    ASSERT_EQ(l_folders["music"].size(), 1u);
    EXPECT_EQ(l_folders["music"].begin()->m_name, "song");
    EXPECT_EQ(l_folders["music"].begin()->m_size, 1ull << 40);
    EXPECT_EQ(l_stream.GetPendingReadLength(), 0);
}

TEST(StreamRead, LengthAndCountLimits)
{
    EXPECT_EQ(Next<std::string>(StreamOf(std::string(131072, 'a'))).size(), 131072u);
    MemStream l_tooLong = StreamOf(std::string(131073, 'a'));
    std::string l_text = "kept";
    EXPECT_FALSE(l_tooLong.Read(l_text));
    EXPECT_EQ(l_tooLong.GetReadIndex(), 4);
    EXPECT_EQ(l_text, "kept");

    MemStream l_stream = StreamOf(0u, 131073u);
    EXPECT_TRUE(Next(l_stream, std::list<int>{1, 2}).empty());
    std::list<int> l_list{1, 2};
    EXPECT_FALSE(l_stream.Read(l_list));
    EXPECT_TRUE(l_list.empty());
    MemStream l_full = StreamOf(131072u);
    for (int l_index = 0; l_index < 131072; ++l_index)
        l_full.Write(l_index);
    EXPECT_EQ(Next<std::list<int>>(l_full).size(), 131072u);

    // A key whose value is cut off is not entered.
    std::map<std::string, std::set<Entry>> l_folders{{"old", {}}};
    EXPECT_FALSE(StreamOf(1u, "music"s, 1u).Read(l_folders));
    EXPECT_TRUE(l_folders.empty());
}

void* operator new(std::size_t i_size) { return Allocate(i_size); }
void* operator new[](std::size_t i_size) { return Allocate(i_size); }
void operator delete(void* ip_memory) noexcept { std::free(ip_memory); }
void operator delete[](void* ip_memory) noexcept { std::free(ip_memory); }
void operator delete(void* ip_memory, std::size_t) noexcept { std::free(ip_memory); }
void operator delete[](void* ip_memory, std::size_t) noexcept { std::free(ip_memory); }

TEST(ReadAllocation, AnnouncedLengthsAndCountsAreNotAllocatedUpFront)
{
    MemStream l_string = StreamOf(100000u);
    l_string.WriteBuffer("0123456789", 10);
    MemStream l_list = StreamOf(131072u, std::string("only"));
    std::string l_text;
    std::vector<std::string> l_texts;

    g_watching = true;
    bool const l_anyRead = l_string.Read(l_text) || l_list.Read(l_texts);
    g_watching = false;
    EXPECT_FALSE(l_anyRead);
    EXPECT_EQ(l_texts, std::vector<std::string>{"only"}); // what was really there is kept
    EXPECT_LT(g_largestAllocation, 10000u);
}
