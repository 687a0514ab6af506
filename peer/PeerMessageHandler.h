#pragma once

#include <cstdint>
#include <string>

#include "peer/SearchResultReader.h"
#include "stream/MemStream.h"

class PeerMessenger;
class QTcpSocket;

// Reads the messages that arrive on a messaging connection and turns them into answers and
// signals of the peer messenger. False from Handle closes the connection.
class PeerMessageHandler
{
public:
    explicit PeerMessageHandler(PeerMessenger& ir_messenger) : mr_messenger(ir_messenger) {}

    bool Handle(QTcpSocket* ip_socket, std::string const& i_user, MemStream& i_message);

private:
    // The body after the code; false when it cannot be read or the connection is to go.
    bool HandleCode(QTcpSocket* ip_socket, std::string const& i_user, std::uint32_t i_code, MemStream& i_message);
    void AnswerShareListRequest(QTcpSocket* ip_socket, std::string const& i_user);
    void SendShareList(QTcpSocket* ip_socket, std::string const& i_user, MemStream const& i_list);
    // Inflates the compressed body behind the code. False: the message is to be dropped
    // without closing (memory ran out); o_close says whether the connection goes.
    bool InflateBody(std::string const& i_user, int i_code, MemStream& i_message, MemStream& o_body, bool& o_close);
    bool OnShareList(std::string const& i_user, MemStream& i_message);
    bool OnSearchResult(std::string const& i_user, MemStream& i_message);
    bool OnTransferRequest(std::string const& i_user, MemStream& i_message);
    bool OnTransferResponse(std::string const& i_user, MemStream& i_message);

    PeerMessenger& mr_messenger;
    SearchResultReader m_searchResults;
};
