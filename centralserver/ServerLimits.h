#pragma once

#include <QtGlobal>

// What a client can make the server hold. Anyone may connect and an account costs nothing, so
// every number here bounds memory or descriptors that a stranger could otherwise claim on its
// word alone. Each hit is logged; past a bound on a connection that connection goes, past one on
// rooms or kept messages the request is refused.
namespace ServerLimits
{
// Connections in all, logged in or not; one more is refused at once. Far above any private
// network; the server asks the system for all the descriptors it allows at start.
inline constexpr qsizetype c_maxConnections = 4096;
// Connections that have not logged in yet; a new one closes the oldest of them. A thousand
// clients coming back at once after a restart take their turns, each login in flight for a
// few milliseconds, while strangers who connect and say nothing cannot fill the server.
inline constexpr qsizetype c_maxConnectionsBeforeLogin = 512;
// A connection that does not log in within this goes.
inline constexpr int c_loginTimeoutMs = 60 * 1000;

// Strings longer than this are refused, like every other reader on the network.
inline constexpr quint32 c_maxStringLength = 0x20000;
// Names of users and rooms: what a person types as a name, with room to spare.
inline constexpr qsizetype c_maxNameLength = 255;

// Before login only the login itself is expected: two short strings and a few numbers.
inline constexpr quint32 c_maxLoginFrameLength = 64 * 1024;
// Messages whose body is numbers and flags only: a dozen bytes.
inline constexpr quint32 c_maxNumbersFrameLength = 256;
// Messages carrying a few names and numbers: each name is bounded above, so a frame beyond
// this carries something no name can be.
inline constexpr quint32 c_maxNamesFrameLength = 4 * 1024;
// A name and a text: room chat, private messages and searches.
inline constexpr quint32 c_maxTextFrameLength = 2 * c_maxStringLength + 1024;
// Codes this server does not serve are read and ignored; no message of the network comes
// near this.
inline constexpr quint32 c_maxFrameLength = 1024 * 1024;

// The longest frame a logged-in client may send with i_code; a longer one closes the
// connection as soon as its code has arrived, before its body is taken in.
constexpr quint32 MaxFrameLength(quint32 i_code)
{
    switch (i_code)
    {
    case 2:
    case 23:
    case 64:
    case 71:
    case 100:
    case 121:
    case 126:
    case 129:
        return c_maxNumbersFrameLength;
    case 3:
    case 5:
    case 6:
    case 7:
    case 14:
    case 15:
    case 18:
    case 36:
    case 127:
    case 1001:
        return c_maxNamesFrameLength;
    case 1:
        return c_maxLoginFrameLength;
    case 13:
    case 22:
    case 26:
    case 103:
        return c_maxTextFrameLength;
    default:
        return c_maxFrameLength;
    }
}

// Bytes of frames begun and not yet complete, all connections together. Honest frames are
// small and complete within a round trip; strangers announcing large frames and sending them
// slowly cannot add up to more than this. The connection whose bytes would pass it goes.
inline constexpr qint64 c_maxAssemblingBytes = 64 * 1024 * 1024;
// What Qt itself buffers from one socket; the rest waits in the kernel.
inline constexpr qint64 c_socketReadBuffer = 256 * 1024;

// Output is handed to the kernel whenever this piles up on a connection, so a reader that
// keeps up holds at most that much here, however busy its rooms are.
inline constexpr qint64 c_flushThreshold = 64 * 1024;
// A client whose unsent bytes pass this does not read what it is sent.
inline constexpr qint64 c_maxPendingOutput = 16 * 1024 * 1024;
// Unsent bytes of all clients together. Past it, every client holding more than
// c_pendingOutputUnderPressure is closed at its next message: many slow readers in a busy
// room cannot together take what a single one may. A reader that keeps up holds far less than
// that here, since the kernel takes several MiB of its output first.
inline constexpr qint64 c_maxPendingOutputTotal = 256 * 1024 * 1024;
inline constexpr qint64 c_pendingOutputUnderPressure = 4 * 1024 * 1024;

// Names one client watches for status changes: a long list of friends, well above any person's.
inline constexpr qsizetype c_maxTrackedPerClient = 10000;
// Rooms in all; a name that would open another is refused.
inline constexpr qsizetype c_maxRooms = 10000;
// Private messages kept for one recipient until acknowledged, in number and in bytes, and for
// all recipients together. All that waits for a user goes out at once when it logs in, and
// must stay well below what marks a client as one that does not read.
inline constexpr qsizetype c_maxPendingMessagesPerUser = 1000;
inline constexpr qsizetype c_maxKeptMessageBytesPerUser = c_maxPendingOutput / 4;
inline constexpr qsizetype c_maxKeptMessageBytes = 64 * 1024 * 1024;
// A session is named at most this many parents in all. A client that keeps saying it has no
// parent then cannot make the server keep more for it, nor skip more names it had.
inline constexpr qsizetype c_maxNamedPerSession = 1000;
} // namespace ServerLimits
