#pragma once

// A broken precondition of the item store is a programming error: the program stops with
// a message naming the call, in release builds too, because going on would corrupt the graph.
[[noreturn]] void RequireFailed(char const* i_what, char const* i_detail);

#define TW_REQUIRE(condition, what, detail)                  \
    do                                                       \
    {                                                        \
        if (!(condition)) [[unlikely]]                       \
            RequireFailed((what), (detail));                 \
    } while (false)
