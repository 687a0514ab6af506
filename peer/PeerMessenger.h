#pragma once

#include <QObject>
#include <QString>
#include <QTcpServer>
#include <QTcpSocket>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>

#include "peer/ShareList.h"
#include "peer/SocketBufferInfo.h"
#include "store/DataHandler.h"
#include "store/DataLoadedEventHandler.h"
#include "store/ItemPtr.h"
#include "stream/FrameReader.h"
#include "stream/MemStream.h"

class PeerMessageHandler;
class Type;

// Connections between clients and the messages on them. A connection to a user is tried both
// ways at once: by dialling the user's address, and by asking the central server to have the
// user dial back; the first way up wins. "P" connections stay here and carry messages; "F" and
// "D" sockets are handed to their owners by signal. Every socket and attempt is an item while
// it lives, and a message to a user without a connection waits in a queue for one.
class PeerMessenger : public QObject, public DataHandler, public DataLoadedEventHandler
{
    Q_OBJECT
public:
    // The answer to a request for the own share list, composed by the shares subsystem. A large
    // list takes a while to compress, so the answer is handed to the reply when it is ready,
    // at once or from a later turn of the event loop.
    using ShareListReply = std::function<void(MemStream const& i_message)>;
    using ShareListResponder = std::function<void(std::string const& i_user, ShareListReply i_reply)>;

    static constexpr int s_defaultListeningPort = 2235;
    // After an accept failed, as when the process is out of descriptors: long enough for
    // connections to end, short enough that peers hardly notice.
    static constexpr int s_acceptPauseMs = 1000;

    explicit PeerMessenger(QObject* ip_parent = nullptr);
    ~PeerMessenger() override;

    void DataLoaded() override;

    void ConnectToUser(std::string const& i_user, char const* i_type);
    void RequestFileConnectionToUser(std::string const& i_user) { ConnectToUser(i_user, "F"); }
    void RequestDNetConnection(std::string const& i_user) { ConnectToUser(i_user, "D"); }

    bool SendMessage(QTcpSocket* ip_socket, MemStream& i_message);
    // i_message starts with its code; it is not written to afterwards by the caller.
    void SendMessage(std::string const& i_user, MemStream& i_message);
    void SendUnsentMessages(std::string const& i_user);

    static QString MessageCodeToString(int i_code);

    void GetUserSharedFiles(std::string const& i_user);
    void QueueDownload(std::string const& i_user, std::string const& i_file);
    unsigned int RequestUpload(std::string const& i_user, std::string const& i_file, qint64 i_size);
    void AcceptTransferRequest(std::string const& i_user, unsigned int i_req, bool i_withSize, qint64 i_size);
    void DenyTransferRequest(std::string const& i_user, unsigned int i_req, std::string const& i_reason);
    void DenyUpload(std::string const& i_user, std::string const& i_file, std::string const& i_reason);

    void SetShareListResponder(ShareListResponder i_responder) { m_shareListResponder = std::move(i_responder); }

    // Why the listener is not listening; empty while it listens.
    QString ListenError() const { return m_listenError; }
    quint16 ListeningPort() const { return m_listener.serverPort(); }
    std::size_t SocketRecordCount() const { return m_buffers.size(); }
    std::uint64_t QueuedBytes() const { return m_queuedBytes; }

    bool HandleMessage(QTcpSocket* ip_socket, MemStream& i_message);
    // A body that held up its connection has been read: the connection goes on, or goes.
    void BodyRead(QTcpSocket* ip_socket, bool i_keep);

signals:
    void FileConnectionAccepted(std::string const& i_user, QTcpSocket* ip_socket);
    void FileConnectionRequested(std::string const& i_user, QTcpSocket* ip_socket, unsigned int i_requestID);
    void DNetConnectionAccepted(std::string const& i_user, QTcpSocket* ip_socket);
    void DNetConnectionRequested(std::string const& i_user, QTcpSocket* ip_socket);

    void SearchResults(ItemPtr i_searchResults);
    void UserShare(std::string const& i_userName, FileInfoMap& i_share, AttributeTranslationTable& i_translationTable);
    void SharedFilesInFolderRequested(std::string const& i_user, quint32 i_req, std::string const& i_folder);
    void FileTransferRequested(std::string const& i_user, int i_direction, unsigned int i_req, std::string const& i_file,
                               qint64 i_fileSize);
    void FileTransferResponse(std::string const& i_user, unsigned int i_req, bool i_accepted, bool i_receivedFileSize,
                              qint64 i_fileSize, std::string const& i_denialReason);
    void QueueUploadRequested(std::string const& i_user, std::string const& i_file);
    void DownloadPlaceInLine(std::string const& i_user, std::string const& i_file, int i_place);
    void UploadFailed(std::string const& i_user, std::string const& i_file);
    void UploadDenied(std::string const& i_user, std::string const& i_file, std::string const& i_reason);

    // The listener started or stopped listening; ListenError() tells why not.
    void ListeningChanged();

public slots:
    void OnNewConnection();
    void OnAcceptError(QAbstractSocket::SocketError i_error);
    void OnConnectedToServer();
    void OnIndirectResponseSocketConnected();
    void OnConnectToPeerSocketConnected();
    void OnConnectToPeerSocketError(QAbstractSocket::SocketError i_error);
    void OnIndirectPeerConnectionFailure(unsigned int i_req);
    void OnSocketClosed();
    void OnSocketError(QAbstractSocket::SocketError i_error);
    void OnSocketReadyToRead();
    void EveryHalfMinute();

private:
    friend class PeerMessageHandler;

    struct Types
    {
        Type* mp_user;
        Type* mp_uninitialized;
        Type* mp_peerSocket;
        Type* mp_openTime;
        Type* mp_request;
        Type* mp_requestId;
        Type* mp_connectionType;
        Type* mp_requestSocket;
        Type* mp_address;
        Type* mp_port;
        Type* mp_creationTime;
        Type* mp_attempt;
        Type* mp_attemptStatus;
        Type* mp_attemptSocket;
        Type* mp_indirect;
        Type* mp_sendTime;
        Type* mp_unsent;
        Type* mp_sendOrder;
    };

    void OnPeerConnectionRequest(Item* ip_request);
    void OnUserAddress(Item* ip_user);
    void OnUsernameChanged(Item* ip_key);

    bool Listen();
    // Whether the reserve of descriptors is free; with less, accepting pauses and retries.
    bool DescriptorsToSpare() const;
    void PauseAccepting();
    void ResumeAccepting();
    void StartDirectAttempt(ItemPtr i_attempt, ItemPtr i_user, char const* i_type);
    // A socket dialling the user's stored address, with its item of the given type connected
    // to i_owner (the attempt or the dial-back request).
    void Dial(ItemPtr i_owner, ItemPtr i_user, Type* ip_itemType, void (PeerMessenger::*i_onConnected)(),
              void (PeerMessenger::*i_onError)(QAbstractSocket::SocketError), bool i_watchClose);
    // The socket whose connected() is being delivered, with its item; null, and the socket
    // closed, when the item is gone.
    QTcpSocket* ConnectedSender(Type* ip_type, ItemPtr& o_item);
    void InspectPeerConnectionRequest(ItemPtr i_attempt);
    void DisposeOfPeerConnectionRequest(ItemPtr i_attempt);
    void DisposeOfSocket(QTcpSocket* ip_socket);
    void DisposeOfSocketInner(QTcpSocket* ip_socket);
    void AssertNoSocketOverlap(QTcpSocket* ip_socket);
    // The first frame on an accepted socket, and the dial-back answer.
    bool InitializeSocket(QTcpSocket* ip_socket, MemStream& i_message);
    bool AcceptIndirectAnswer(QTcpSocket* ip_socket, MemStream& i_message);
    void OpenMessagingConnection(QTcpSocket* ip_socket, ItemPtr i_user);
    // The handover of a socket to its new owner; closes it when no owner is listening.
    void HandOver(QTcpSocket* ip_socket, std::string const& i_user, char i_type, bool i_accepted,
                  unsigned int i_requestId = 0);
    void CloseAndDelete(QTcpSocket* ip_socket);
    void QueueMessage(ItemPtr i_user, MemStream& i_message);
    void RemoveUnsent(Item* ip_message);
    void MakeRoomInQueue(std::uint64_t i_incoming);
    void MakeRoomForUninitialized();
    void MakeRoomForMessaging();
    void MakeRoomForUser(ItemPtr i_user);
    // The socket among the items whose record holds the least of a field; one without a record
    // counts as the least.
    template <class Items>
    QTcpSocket* SocketWithLeast(Items const& i_items, std::int64_t SocketBufferInfo::*i_field) const
    {
        QTcpSocket* lp_least = nullptr;
        std::int64_t l_least = 0;
        for (Item* lp_item : i_items)
        {
            auto* lp_socket = lp_item->template AsPointer<QTcpSocket>();
            auto const l_found = m_buffers.find(lp_socket);
            std::int64_t const l_value = l_found == m_buffers.end() ? 0 : l_found->second.*i_field;
            if (!lp_least || l_value < l_least)
            {
                lp_least = lp_socket;
                l_least = l_value;
            }
        }
        return lp_least;
    }

    ItemPtr SocketItem(Type* ip_type, QTcpSocket* ip_socket) const;
    ItemPtr User(std::string const& i_user) const;
    SocketBufferInfo& Buffer(QTcpSocket* ip_socket);
    // Whether the peer has sent a message on this messaging connection.
    bool UsedByPeer(Item* ip_socket) const;
    // A byte went either way; i_written of them handed to the socket for sending.
    void Touch(QTcpSocket* ip_socket, std::int64_t i_written = 0);
    QString PeerName(QTcpSocket* ip_socket) const;

    Types m_types;
    QTcpServer m_listener;
    std::unordered_map<QTcpSocket*, SocketBufferInfo> m_buffers;
    FrameReader::Budget m_budget;
    std::uint32_t m_sendOrder = 0;
    std::int64_t m_acceptCounter = 0;
    std::uint64_t m_queuedBytes = 0;
    QString m_listenError;
    bool m_watchingName = false;
    ShareListResponder m_shareListResponder;
    std::unique_ptr<PeerMessageHandler> mp_handler;
};

extern PeerMessenger* peerMessenger;
extern bool g_peerMessengerDeleted;
