#include "StreamBytes.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <string>
#include <vector>

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
    bool const l_stringRead = l_string.Read(l_text);
    bool const l_listRead = l_list.Read(l_texts);
    g_watching = false;

    EXPECT_FALSE(l_stringRead);
    EXPECT_FALSE(l_listRead);
    EXPECT_EQ(l_texts.size(), 1u);
    EXPECT_LT(g_largestAllocation, 10000u);
}
