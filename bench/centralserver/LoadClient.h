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

    // A login frame as a client of the network sends it.
    static QByteArray LoginFrame(QByteArray const& i_name, QByteArray const& i_password = "load");

    int Index() const { return m_index; }
    // Connects and sends i_frames once connected.
    void Start(quint16 i_port, QByteArray i_frames);
    // Sends bytes as they are, whether frames or not.
    void Send(QByteArray const& i_frame);
    // From now on leaves what arrives unread, so that it fills the buffers of both ends.
    void StopReading();
    bool IsConnected() const;
    // Closed by either side or failed.
    bool IsGone() const { return !m_failure.isEmpty(); }
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
