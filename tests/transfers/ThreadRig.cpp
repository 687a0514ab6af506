#include "ThreadRig.h"

#include <QFile>
#include <QRandomGenerator>
#include <QTcpServer>
#include <QtEndian>

#include <gtest/gtest.h>

#include "support/WaitFor.h"

SocketPair ConnectedPair()
{
    QTcpServer l_server;
    EXPECT_TRUE(l_server.listen(QHostAddress::LocalHost));
    SocketPair l_pair{std::make_unique<QTcpSocket>(), nullptr};
    l_pair.mp_near->connectToHost(QHostAddress::LocalHost, l_server.serverPort());
    EXPECT_TRUE(WaitFor([&] { return l_server.hasPendingConnections()
                                     && l_pair.mp_near->state() == QAbstractSocket::ConnectedState; }));
    l_pair.mp_far.reset(l_server.nextPendingConnection());
    l_pair.mp_far->setParent(nullptr);
    return l_pair;
}

void HandOver(QTcpSocket& io_socket, QThread& io_thread)
{
    io_socket.disconnect();
    io_socket.setParent(nullptr);
    io_socket.moveToThread(&io_thread);
}

QByteArray RandomBytes(qint64 i_size)
{
    QByteArray l_bytes(i_size, Qt::Uninitialized);
    for (char& l_byte : l_bytes)
        l_byte = static_cast<char>(QRandomGenerator::global()->bounded(256));
    return l_bytes;
}

void WriteFile(QString const& i_path, QByteArray const& i_bytes)
{
    QFile l_file(i_path);
    ASSERT_TRUE(l_file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    ASSERT_EQ(l_file.write(i_bytes), i_bytes.size());
}

QByteArray ReadFile(QString const& i_path)
{
    QFile l_file(i_path);
    return l_file.open(QIODevice::ReadOnly) ? l_file.readAll() : QByteArray();
}

QByteArray LittleEndian64(qint64 i_value)
{
    QByteArray l_bytes(8, Qt::Uninitialized);
    qToLittleEndian<qint64>(i_value, l_bytes.data());
    return l_bytes;
}

QByteArray ReadExactly(QTcpSocket& io_socket, qint64 i_size, int i_timeoutMs)
{
    QByteArray l_bytes;
    WaitFor([&] {
        l_bytes += io_socket.read(i_size - l_bytes.size());
        return l_bytes.size() >= i_size;
    }, i_timeoutMs);
    return l_bytes;
}
