#pragma once

#include <QPointer>
#include <QTcpSocket>

#include <cstdint>
#include <functional>
#include <string>

#include "peer/Compression.h"
#include "peer/SearchResultReader.h"
#include "stream/MemStream.h"

class PeerMessenger;

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
    // Reads an inflated body; false closes the connection.
    using BodyReader = std::function<bool(MemStream& i_body)>;
    // Inflates the compressed body behind the code away from the event loop, then has the reader
    // read it; the connection's later frames wait until then.
    void InflateThen(QTcpSocket* ip_socket, std::string const& i_user, int i_code, MemStream& i_message,
                     BodyReader i_reader);
    void Inflated(QPointer<QTcpSocket> const& ip_socket, std::string const& i_user, int i_code, InflateResult i_result,
                  MemStream& i_body, BodyReader const& i_reader);
    bool ReadShareList(std::string const& i_user, MemStream& i_body);
    bool ReadSearchResult(std::string const& i_user, MemStream& i_body);
    bool OnTransferRequest(std::string const& i_user, MemStream& i_message);
    bool OnTransferResponse(std::string const& i_user, MemStream& i_message);

    PeerMessenger& mr_messenger;
    SearchResultReader m_searchResults;
};
