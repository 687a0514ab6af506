#pragma once

#include <cstdint>
#include <string>

#include "peer/PeerLimits.h"
#include "stream/FrameReader.h"

// The read state of one socket while it is with the peer messenger: the frame under way, or
// the four bare bytes of a file request number.
struct SocketBufferInfo
{
    explicit SocketBufferInfo(FrameReader::Budget* ip_budget)
        : m_reader(PeerLimits::s_maxFirstFrameLength, ip_budget, PeerLimits::s_keptBufferLength)
    {
    }

    FrameReader m_reader;
    bool m_fileRequestExpected = false;
    // The socket left this object during the last frame; the record goes after it.
    bool m_handedOver = false;
    // A frame of this socket is being handled: disposal and erasure wait until it is done.
    bool m_handling = false;
    // Disposal was asked while the socket's frame was being handled; it happens after.
    bool m_disposeWanted = false;
    // A compressed body of this socket is being inflated: its later frames wait.
    bool m_bodyPending = false;
    // The user of an "F" connection whose request number is awaited.
    std::string m_user;
    // When a byte last went either way, for choosing which connection to close at the limit.
    std::int64_t m_lastActivityMs = 0;
    // Bytes handed to the socket for sending, and the count at which the last share list
    // sent on it ends: while the socket has not sent that far, the list still waits.
    std::int64_t m_bytesWritten = 0;
    std::int64_t m_listEndsAt = 0;
    // A share list for this socket is being composed, and the peer asked again meanwhile.
    bool m_listPending = false;
    bool m_listAskedAgain = false;
    // The peer has sent a message on this messaging connection: it uses it, and has not
    // dropped it as the loser of two ways of connecting.
    bool m_messageReceived = false;
    // Order of acceptance, for closing the oldest socket that never identified itself.
    std::int64_t m_acceptOrder = 0;
};
