#pragma once

#include <QByteArray>
#include <QElapsedTimer>
#include <QObject>
#include <QString>
#include <QTcpSocket>
#include <QThread>

#include <memory>
#include <vector>

// Two ends of a loopback TCP connection, owned here until one is handed to a thread.
struct SocketPair
{
    std::unique_ptr<QTcpSocket> mp_near;
    std::unique_ptr<QTcpSocket> mp_far;
};
SocketPair ConnectedPair();

// Hands the socket to the thread the way the manager does.
void HandOver(QTcpSocket& io_socket, QThread& io_thread);

// What a transfer thread reported, gathered on the main thread.
struct Reports : QObject
{
    std::vector<qint64> m_offsets;
    int m_lastSpeed = -1;
    bool m_complete = false;
    bool m_error = false;
    qint64 m_endMs = -1;
    QElapsedTimer m_clock;

    Reports() { m_clock.start(); }
    bool IsOver() const { return m_complete || m_error; }
    template <class Thread, class Progress, class Complete, class Error>
    void Watch(Thread& io_thread, Progress i_progress, Complete i_complete, Error i_error)
    {
        connect(&io_thread, i_progress, this, [this](qint64 i_offset, int i_speed) {
            m_offsets.push_back(i_offset);
            m_lastSpeed = i_speed;
        });
        connect(&io_thread, i_complete, this, [this] { m_complete = true; m_endMs = m_clock.elapsed(); });
        connect(&io_thread, i_error, this, [this] { m_error = true; m_endMs = m_clock.elapsed(); });
    }
};

QByteArray RandomBytes(qint64 i_size);
void WriteFile(QString const& i_path, QByteArray const& i_bytes);
QByteArray ReadFile(QString const& i_path);
QByteArray LittleEndian64(qint64 i_value);
// Reads from a socket on the main thread until i_size bytes came or the time is up.
QByteArray ReadExactly(QTcpSocket& io_socket, qint64 i_size, int i_timeoutMs = 5000);
