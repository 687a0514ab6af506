#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>

#include <functional>

class QTcpSocket;
class WireReader;

// One raw link to the central server: sends the frames it is given and hands every frame it
// receives to a handler.
class LoadClient : public QObject
{
    Q_OBJECT

public:
    // The server is ours, yet a length beyond any of its messages means the stream is lost.
    static constexpr quint32 c_maxFrameLength = 4 * 1024 * 1024;

    using FrameHandler = std::function<void(LoadClient&, quint32 i_code, WireReader&)>;
    // Called once when the link fails or closes.
    using FailureHandler = std::function<void(LoadClient&)>;

    LoadClient(int i_index, FrameHandler i_onFrame, FailureHandler i_onFailure, QObject* ip_parent);

    int Index() const { return m_index; }
    // Connects and sends i_frames once connected.
    void Start(quint16 i_port, QByteArray i_frames);
    void Send(QByteArray const& i_frame);
    QString const& Failure() const { return m_failure; }

private slots:
    void OnConnected();
    void OnReadyRead();
    void OnGone();

private:
    void Fail(QString const& i_reason);

    int m_index;
    QTcpSocket* mp_socket;
    FrameHandler m_onFrame;
    FailureHandler m_onFailure;
    QByteArray m_firstFrames;
    QByteArray m_pending;
    QString m_failure;
};
