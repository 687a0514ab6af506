#include "transfers/DownloadThread.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTcpSocket>

#include <algorithm>

#include "transfers/TransferRate.h"

namespace
{
long long constexpr g_blockSize = 8192;
}

DownloadThread::DownloadThread(QTcpSocket* ip_socket, QFile* ip_file, long long i_startOffset, long long i_fileSize,
                               int i_timeoutMs)
    : mp_socket(ip_socket)
    , mp_file(ip_file)
    , m_fileSize(i_fileSize)
    , m_position(i_startOffset)
    , m_wait(i_timeoutMs)
{
}

void DownloadThread::SignalExit()
{
    m_wait.SignalExit();
}

void DownloadThread::run()
{
    bool const l_done = PerformDownload();
    mp_socket->moveToThread(QCoreApplication::instance()->thread());
    mp_file->close();
    if (l_done)
        emit DownloadComplete();
    else
        emit DownloadError();
}

bool DownloadThread::PerformDownload()
{
    QElapsedTimer l_clock;
    l_clock.start();
    long long l_count = 0;
    char l_block[g_blockSize];
    for (;;)
    {
        if (m_wait.IsExitSignalled())
            return Fail(m_wait.Describe(TransferWait::Outcome::ExitSignalled));
        // A partial file already longer than the expected size cannot be completed.
        long long const l_length = std::min(g_blockSize, m_fileSize - m_position);
        if (l_length < 0)
            return Fail(QStringLiteral("the partial file of %1 bytes is longer than the expected %2").arg(m_position).arg(m_fileSize));
        if (!FillBlock(l_block, l_length))
            return false;
        m_position += l_length;
        l_count += l_length;
        if (mp_file->write(l_block, l_length) != l_length)
            return Fail(QStringLiteral("writing the file failed: %1").arg(mp_file->errorString()));
        emit DownloadProgress(m_position, TransferRate::BytesPerSecond(l_count, l_clock.elapsed()));
        if (m_position == m_fileSize)
        {
            // The file buffers small writes: a full disk may only show when they go out.
            if (!mp_file->flush())
                return Fail(QStringLiteral("writing the file failed: %1").arg(mp_file->errorString()));
            mp_socket->close();
            return true;
        }
    }
}

bool DownloadThread::FillBlock(char* op_block, long long i_length)
{
    for (long long l_filled = 0; l_filled < i_length;)
    {
        if (mp_socket->bytesAvailable() == 0)
            if (TransferWait::Outcome const l_outcome = m_wait.ForReadyRead(*mp_socket, m_wait.Deadline());
                l_outcome != TransferWait::Outcome::Ready)
                return Fail(QStringLiteral("waiting for bytes at %1: %2").arg(m_position + l_filled).arg(m_wait.Describe(l_outcome)));
        long long const l_read = mp_socket->read(op_block + l_filled, i_length - l_filled);
        if (l_read < 0)
            return Fail(QStringLiteral("reading the connection failed: %1").arg(mp_socket->errorString()));
        l_filled += l_read;
    }
    return true;
}

bool DownloadThread::Fail(QString i_why)
{
    m_failure = std::move(i_why);
    return false;
}
