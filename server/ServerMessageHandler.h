#pragma once

#include <string>

#include "store/ItemPtr.h"

class MemStream;
class Server;

// Acts on the server's messages other than the login response: most change the item graph,
// the rest emit a signal of Server. A message that ends early is used as far as it goes: what
// depends on a field that could not be read is left out, and the rest still happens.
class ServerMessageHandler
{
public:
    explicit ServerMessageHandler(Server& io_server) : mr_server(io_server) {}

    // A code that is not known here is ignored with its body.
    void Handle(int i_code, MemStream& i_message);

private:
    void OnUserAddress(MemStream& i_message);
    void OnAddUserResponse(MemStream& i_message);
    void OnUserStatus(MemStream& i_message);
    void OnRoomChat(MemStream& i_message);
    void OnEnteredRoom(MemStream& i_message);
    void OnLeftRoom(MemStream& i_message);
    void OnUserJoinedRoom(MemStream& i_message);
    void OnUserLeftRoom(MemStream& i_message);
    void OnConnectToPeer(MemStream& i_message);
    void OnPrivateChat(MemStream& i_message);
    void OnUserStats(MemStream& i_message);
    void OnRoomList(MemStream& i_message);
    void OnPrivilegedUsers(MemStream& i_message);
    void OnPossibleParents(MemStream& i_message);

    // Null for an empty name: an empty key is never a real user or room.
    static ItemPtr User(std::string const& i_name);
    static ItemPtr Room(std::string const& i_name);

    Server& mr_server;
};
