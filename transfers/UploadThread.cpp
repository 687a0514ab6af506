#include "transfers/UploadThread.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTcpSocket>
#include <QtEndian>

#include <algorithm>

#include "transfers/UploadPacer.h"
#include "transfers/UploadSpeedLimit.h"

namespace
{
long long constexpr g_blockSize = 8192;
}

UploadThread::UploadThread(QTcpSocket* ip_socket, QFile* ip_file, int i_req, UploadSpeedLimit const& i_limit,
                           int i_timeoutMs)
    : mp_socket(ip_socket)
    , mp_file(ip_file)
    , m_req(i_req)
    , m_limit(i_limit)
    , m_wait(i_timeoutMs)
{
}

void UploadThread::SignalExit()
{
    m_wait.SignalExit();
}

void UploadThread::run()
{
    bool const l_done = PerformUpload();
    mp_socket->moveToThread(QCoreApplication::instance()->thread());
    if (l_done)
        emit UploadComplete();
    else
        emit UploadError();
}

bool UploadThread::PerformUpload()
{
    long long l_offset = 0;
    if (!SendRequestAndReadOffset(l_offset))
        return false;
    // The offset is the peer's word: checked before the file is touched.
    long long const l_size = mp_file->size();
    if (l_offset < 0 || l_offset >= l_size)
        return Fail(QStringLiteral("the peer asked for offset %1 of a file of %2 bytes").arg(static_cast<quint64>(l_offset)).arg(l_size));
    if (!mp_file->seek(l_offset))
        return Fail(QStringLiteral("seeking in the file failed: %1").arg(mp_file->errorString()));

    QElapsedTimer l_clock;
    l_clock.start();
    UploadPacer l_pacer(m_limit.Get(), l_clock.elapsed());
    char l_block[g_blockSize];
    for (;;)
    {
        if (m_wait.IsExitSignalled())
            return Fail(m_wait.Describe(TransferWait::Outcome::ExitSignalled));
        long long const l_sleep = l_pacer.BeforeBlock(m_limit.Get(), l_clock.elapsed());
        if (l_sleep > 0)
            if (TransferWait::Outcome const l_outcome = m_wait.Sleep(l_sleep); l_outcome != TransferWait::Outcome::Ready)
                return Fail(m_wait.Describe(l_outcome));
        long long const l_length = std::min(g_blockSize, l_size - l_offset);
        if (mp_file->read(l_block, l_length) != l_length)
            return Fail(QStringLiteral("reading the file failed: %1").arg(mp_file->errorString()));
        if (!WriteBlock(l_block, l_length))
            return false;
        l_offset += l_length;
        l_pacer.Sent(l_length);
        emit UploadProgress(l_offset, l_pacer.BytesPerSecond(l_clock.elapsed()));
        if (l_offset == l_size)
        {
            // The peer closes once it has the last byte; one that never does still got the file.
            m_wait.ForDisconnected(*mp_socket);
            return true;
        }
    }
}

bool UploadThread::SendRequestAndReadOffset(long long& o_offset)
{
    uchar l_req[4];
    qToLittleEndian<qint32>(m_req, l_req);
    if (mp_socket->write(reinterpret_cast<char const*>(l_req), sizeof l_req) != sizeof l_req)
        return Fail(QStringLiteral("sending the request number failed: %1").arg(mp_socket->errorString()));
    mp_socket->flush();

    // One deadline for the whole offset, however it is cut up: a peer that trickles or never
    // sends it cannot hold the upload slot.
    QDeadlineTimer const l_deadline = m_wait.Deadline();
    uchar l_bytes[8];
    long long l_gathered = 0;
    while (l_gathered < 8)
    {
        if (mp_socket->bytesAvailable() == 0)
            if (TransferWait::Outcome const l_outcome = m_wait.ForReadyRead(*mp_socket, l_deadline);
                l_outcome != TransferWait::Outcome::Ready)
                return Fail(QStringLiteral("waiting for the offset: %1").arg(m_wait.Describe(l_outcome)));
        long long const l_read = mp_socket->read(reinterpret_cast<char*>(l_bytes) + l_gathered, 8 - l_gathered);
        if (l_read < 0)
            return Fail(QStringLiteral("reading the offset failed: %1").arg(mp_socket->errorString()));
        l_gathered += l_read;
    }
    o_offset = qFromLittleEndian<qint64>(l_bytes);
    return true;
}

bool UploadThread::WriteBlock(char const* ip_block, long long i_length)
{
    for (long long l_sent = 0; l_sent < i_length;)
    {
        long long const l_written = mp_socket->write(ip_block + l_sent, i_length - l_sent);
        if (l_written < 0)
            return Fail(QStringLiteral("sending failed: %1").arg(mp_socket->errorString()));
        l_sent += l_written;
        while (mp_socket->bytesToWrite() > 0)
        {
            if (TransferWait::Outcome const l_outcome = m_wait.ForBytesWritten(*mp_socket); l_outcome != TransferWait::Outcome::Ready)
                return Fail(QStringLiteral("sending: %1").arg(m_wait.Describe(l_outcome)));
        }
    }
    return true;
}

bool UploadThread::Fail(QString i_why)
{
    m_failure = std::move(i_why);
    return false;
}
