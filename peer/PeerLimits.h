#pragma once

#include <cstddef>
#include <cstdint>

#include "peer/PeerMessageCode.h"

// What a peer can make this client hold. Every number here bounds memory or descriptors that
// another client could otherwise claim on its word alone; each hit is logged in "Peer Messenger"
// with the peer's name, and the connection concerned goes. The search tree's bounds are in
// dnet/DNetLimits.h.
namespace PeerLimits
{
// A first frame carries a flag, a user name, a type and a token: a few dozen bytes.
inline constexpr std::uint32_t s_maxFirstFrameLength = 4 * 1024;
// The largest message is a share list; 1,000,000 files compress to well below this.
inline constexpr std::uint32_t s_maxFrameLength = 64 * 1024 * 1024;
// A request that is its code alone, or a code and a number: a peer that adds more is not
// asking anything this client knows.
inline constexpr std::uint32_t s_maxBareRequestLength = 1024;
// User info carries a description and a picture, which users keep to a few hundred KiB.
inline constexpr std::uint32_t s_maxUserInfoLength = 4 * 1024 * 1024;
// Every other message holds a few numbers and names, paths or a search text, which file
// systems and the search field keep to a few KiB each.
inline constexpr std::uint32_t s_maxSmallMessageLength = 64 * 1024;

// The largest body a message of this code may have on a messaging connection. Only the bulk
// messages, whose bodies are compressed lists, get the general bound; a small message that
// claims more is refused after its code, before its body is buffered.
constexpr std::uint32_t MaxMessageLength(std::uint32_t i_code)
{
    switch (i_code)
    {
    case PeerCode::SharedFileList:
    case PeerCode::FileSearchResult:
    case PeerCode::SharedFilesInFolder:
        return s_maxFrameLength;
    case PeerCode::UserInfoReply:
        return s_maxUserInfoLength;
    case PeerCode::GetSharedFileList:
    case PeerCode::UserInfoRequest:
    case PeerCode::SendConnectToken:
    case PeerCode::Nothing:
        return s_maxBareRequestLength;
    default:
        return s_maxSmallMessageLength;
    }
}

// Frames of one connection handled in one turn of the event loop. A peer that sends thousands
// of small requests at once then waits its turn behind the other connections and the window,
// instead of holding them while its burst is worked off.
inline constexpr int s_maxFramesPerTurn = 64;
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
// Unsent bytes on one connection: a peer that asks and never reads gets dropped here. It is
// above the largest own share list a peer may ask for; per user it is this times the
// connections a user may hold.
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
// Messaging connections of one user. Both ways of connecting may succeed at once, and a peer
// may connect again before its old connection is seen to be gone; more only take descriptors
// from other users. A new one closes that user's connection idle longest.
inline constexpr std::size_t s_maxConnectionsPerUser = 4;
// All peer sockets the messenger holds at most, before file connections and the search tree.
inline constexpr std::size_t s_maxPeerSockets =
    s_maxUninitializedSockets + s_maxMessagingConnections + s_maxDialBackSockets + s_maxDirectAttempts;
// Descriptors the client asks the system for at start: those sockets, the transfers with their
// files and sockets, the search tree, and the data file and its saves. When the system grants
// fewer, accepting pauses while few are left, logged, and resumes once there are more.
inline constexpr std::uint64_t s_wantedDescriptors = 4096;
static_assert(s_maxPeerSockets < s_wantedDescriptors / 2);
// Descriptors kept free for files, transfers and outgoing connections: with fewer left, peer
// connections are not accepted. Past the last one, every accept would fail and be retried at
// once, holding the event loop.
inline constexpr int s_reservedDescriptors = 32;
// Bytes of messages waiting for a connection, all users together; the oldest go first.
inline constexpr std::uint64_t s_maxQueuedBytes = 64ull * 1024 * 1024;
} // namespace PeerLimits
