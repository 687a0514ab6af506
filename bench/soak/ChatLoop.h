#pragma once

#include <QObject>
#include <QRandomGenerator>

#include <cstdint>
#include <ctime>
#include <string>

#include "SerialTally.h"

// Private messages to the peer and lines in a room both are in, each typed into the chat form
// the window shows and sent with Return. Every line carries its kind and a serial number; what
// arrives is tallied by sender and kind, the own room lines included, as the server sends them
// back to everyone in the room.
class ChatLoop : public QObject
{
    Q_OBJECT
public:
    ChatLoop(std::string i_self, std::string i_peer, std::string i_room, QObject* ip_parent = nullptr);

    // True when the room's form is there to type in.
    bool InRoom() const;
    // One line, private and room in turn; false when the form to type in is missing.
    bool SendNext();

    std::uint32_t SentPrivate() const { return m_sentPrivate; }
    std::uint32_t SentRoom() const { return m_sentRoom; }
    std::uint64_t Received() const { return m_received; }
    // Whether as many lines arrived as the peer and this side sent.
    bool AllArrived(std::uint32_t i_peerPrivate, std::uint32_t i_peerRoom) const;
    // Each sender's and kind's faults, one per line; empty when every line arrived exactly once.
    std::string Faults(std::uint32_t i_peerPrivate, std::uint32_t i_peerRoom) const;

private slots:
    void OnPrivateChat(std::string const& i_user, std::string const& i_chat, time_t i_time, bool i_spontaneous);
    void OnRoomChat(std::string const& i_room, std::string const& i_user, std::string const& i_chat);

private:
    std::string NextLine(char const* i_kind, std::uint32_t i_serial);
    // The serial of a line of the kind; 0 for a line that is not one.
    static std::uint32_t SerialOf(std::string const& i_chat, std::string const& i_kind);

    std::string m_self;
    std::string m_peer;
    std::string m_room;
    std::uint32_t m_sentPrivate = 0;
    std::uint32_t m_sentRoom = 0;
    std::uint64_t m_received = 0;
    std::uint32_t m_strays = 0; // lines from elsewhere or of no known shape
    SerialTally m_peerPrivate;
    SerialTally m_peerRoom;
    SerialTally m_ownRoom;
    QRandomGenerator m_random;
};
