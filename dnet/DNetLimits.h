#pragma once

#include <cstddef>
#include <cstdint>

// What a parent, a candidate or a child in the search tree can make this client hold or do.
// Each hit is logged in "Distributed Network". The peer connections' bounds are in
// peer/PeerLimits.h.
namespace DNetLimits
{
// From a parent or candidate: a level, a leader's name, a search with its text, or another
// distributed message passed on as it came. A search is far smaller; a longer frame is refused
// before anything of it is buffered.
inline constexpr std::uint32_t s_maxParentFrameLength = 1024 * 1024;
// A child sends only its depth and a few short reports.
inline constexpr std::uint32_t s_maxChildFrameLength = 4 * 1024;
// A child that leaves this much unread is not keeping up and is dropped.
inline constexpr std::int64_t s_maxChildBacklog = 4 * 1024 * 1024;
// New parent attempts one list may start; the rest wait, unmarked, for a later list.
inline constexpr int s_maxAttemptsPerList = 20;
// Every search is sent on to every child, and each child holds a socket with its buffers: a
// stranger that opens more than this asks for upload and memory no parent owes it.
inline constexpr std::size_t s_maxChildren = 64;
// The whole network searches a few hundred times a second at its busiest; a parent that passes
// on more is flooding, and the rest of that second's searches are dropped, neither answered
// nor passed on.
inline constexpr int s_maxSearchesPerSecond = 1000;
// Frames of one tree connection handled in one turn of the event loop, as for messaging
// connections: a burst of searches waits its turn behind the other connections and the window.
inline constexpr int s_maxFramesPerTurn = 64;
} // namespace DNetLimits
