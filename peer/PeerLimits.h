#pragma once

#include <cstdint>

// What a peer can make this client hold. Every number here bounds memory or descriptors that
// another client could otherwise claim on its word alone; each hit is logged in "Peer Messenger"
// with the peer's name, and the connection concerned goes.
namespace PeerLimits
{
// A first frame carries a flag, a user name, a type and a token: a few dozen bytes.
inline constexpr std::uint32_t s_maxFirstFrameLength = 4 * 1024;
// The largest message is a share list; 1,000,000 files compress to well below this.
inline constexpr std::uint32_t s_maxFrameLength = 64 * 1024 * 1024;
// Bodies up to this size get their whole buffer at once; a larger one grows as bytes arrive,
// so that a length field alone allocates nothing.
inline constexpr std::uint32_t s_wholeBufferLength = 64 * 1024;
// All frames under assembly together: many peers announcing large frames cannot add up to
// more than this. The socket whose bytes would pass it is disposed of.
inline constexpr std::uint64_t s_maxAssemblingBytes = 256ull * 1024 * 1024;
// A frame buffer that grew above this is given back after its frame, since large frames are
// rare and a standing connection should cost little.
inline constexpr int s_keptBufferLength = 1024 * 1024;
inline constexpr int s_freshBufferLength = 256;
// What Qt may buffer unread on one peer socket.
inline constexpr int s_socketReadBufferSize = 1024 * 1024;
// Unsent bytes on one connection: a peer that asks and never reads gets dropped here.
inline constexpr std::int64_t s_maxUnsentBytes = 128ll * 1024 * 1024;
// Inflated output of one compressed message; a list of 1,000,000 files fits.
inline constexpr std::uint64_t s_maxInflatedBytes = 256ull * 1024 * 1024;
// Files in one received share list, all folders together.
inline constexpr std::uint64_t s_maxShareListFiles = 2'000'000;
// Result items kept for one search; later records are passed over.
inline constexpr std::uint64_t s_maxResultsPerSearch = 10'000;
// Accepted sockets that have not yet sent their first frame; a new one closes the oldest.
inline constexpr std::size_t s_maxUninitializedSockets = 256;
// Dial-backs under way at once; a further request is refused at once through the server.
inline constexpr std::size_t s_maxDialBackSockets = 64;
// Direct attempts under way at once; beyond, an attempt runs by the indirect way alone.
inline constexpr std::size_t s_maxDirectAttempts = 128;
// Open messaging connections; a new one closes the one idle longest.
inline constexpr std::size_t s_maxMessagingConnections = 512;
// Bytes of messages waiting for a connection, all users together; the oldest go first.
inline constexpr std::uint64_t s_maxQueuedBytes = 64ull * 1024 * 1024;
} // namespace PeerLimits
