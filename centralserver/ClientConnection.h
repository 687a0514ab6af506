#pragma once

#include "ChatAllowance.h"

#include <QByteArray>
#include <QObject>
#include <QSet>
#include <QTimer>

#include <functional>

class QTcpSocket;
class WireReader;

// One client's TCP connection: its frame reader and what the server knows of its session.
class ClientConnection : public QObject
{
    Q_OBJECT

public:
    // The tree state a client reports about itself.
    struct TreeState
    {
        // Until the client has said that it has no parent, it is offered no parents.
        bool m_parentReported = false;
        bool m_hasParent = false;
        bool m_canParent = false;
        bool m_hasChildren = false;
        qint32 m_level = -1;
        QByteArray m_groupLeader;
        // Ranks of the parents named to this session. A client tries each name once, so a
        // name named again would only be skipped.
        QSet<quint64> m_named;
        // Names still missing from a full list since the client last said it has no parent.
        qsizetype m_wanted = 0;
    };

    // Handles one complete frame; false means it was malformed and closes the connection.
    using FrameHandler = std::function<bool(ClientConnection&, quint32 i_code, WireReader&)>;

    // A frame begun and not completed within i_partialFrameTimeoutMs closes the connection.
    ClientConnection(QTcpSocket* ip_socket, FrameHandler i_handler, int i_partialFrameTimeoutMs,
        QObject* ip_parent);
    ~ClientConnection() override;

    // Bytes of frames under assembly and of output not yet taken by the kernel, all
    // connections of the process together.
    static qint64 AssemblingBytes();
    static qint64 PendingOutputBytes();

    void Send(QByteArray const& i_frame);
    // Sends what is queued, then closes.
    void CloseAfterWrite();
    // Closes at once, dropping what is queued.
    void Abort(QString const& i_reason);
    bool IsClosing() const { return m_closing; }

    QString PeerText() const;
    quint32 PeerIPv4() const;

    bool IsLoggedIn() const { return !m_name.isEmpty(); }
    QByteArray const& Name() const { return m_name; }
    void SetLoggedIn(QByteArray const& i_name, quint64 i_rank);
    // The name's place in the order of first logins of this run of the server.
    quint64 Rank() const { return m_rank; }
    void SetLoggedOut() { m_name.clear(); }

    quint32 ListenPort() const { return m_listenPort; }
    void SetListenPort(quint32 i_port) { m_listenPort = i_port; }

    QSet<QByteArray>& Tracked() { return m_tracked; }
    TreeState& Tree() { return m_tree; }
    TreeState const& Tree() const { return m_tree; }
    // Room chat and private messages this client sends.
    ChatAllowance& Chat() { return m_chat; }

signals:
    // The socket is gone; the receiver cleans up and deletes the object later.
    void Closed(ClientConnection* ip_connection);

private slots:
    void OnReadyRead();
    void OnDisconnected();
    void OnLoginTimeout();
    void OnPartialFrameTimeout();
    void OnBytesWritten();

private:
    bool ReadFrames();
    // Takes i_part into the frame under assembly; false when the bytes of all frames under
    // assembly would pass their bound.
    bool Assemble(QByteArray const& i_part);
    void ReleaseFrame();
    // Brings the count of this connection's unsent bytes in the total up to date.
    void CountPendingOutput();

    QTcpSocket* mp_socket;
    FrameHandler m_handler;
    QTimer m_loginTimer;
    // Runs while a frame is partly received, from its first bytes on.
    QTimer m_partialFrameTimer;
    bool m_closing = false;
    bool m_closedSignalled = false;

    bool m_lengthKnown = false;
    quint32 m_frameLength = 0;
    QByteArray m_frame;
    qint64 m_countedOutput = 0;

    QByteArray m_name;
    quint64 m_rank = 0;
    quint32 m_listenPort = 0;
    QSet<QByteArray> m_tracked;
    TreeState m_tree;
    ChatAllowance m_chat;
};
