#pragma once

#include <QThread>

#include "transfers/TransferWait.h"

class QFile;
class QTcpSocket;

// Receives one file over a file connection whose start offset has already gone to the peer,
// appending to the file until it holds i_fileSize bytes. Owns neither socket nor file; while
// it runs it alone touches them, and before it ends it gives the socket back to the
// application's main thread and closes the file.
class DownloadThread : public QThread
{
    Q_OBJECT
public:
    // i_timeoutMs bounds each wait for the peer's bytes.
    DownloadThread(QTcpSocket* ip_socket, QFile* ip_file, long long i_startOffset, long long i_fileSize,
                   int i_timeoutMs = TransferWait::s_defaultTimeoutMs);

    // Any thread may call it; the thread stops at its next block or wait slice.
    void SignalExit();
    // Why the download failed, for the log; read once the thread has ended with an error.
    QString FailureReason() const { return m_failure; }

signals:
    void DownloadProgress(qint64 i_offset, int l_bytesPerSecond);
    void DownloadComplete();
    void DownloadError();

protected:
    void run() override;

private:
    bool PerformDownload();
    bool FillBlock(char* op_block, long long i_length);
    bool Fail(QString i_why);

    QTcpSocket* mp_socket;
    QFile* mp_file;
    long long const m_fileSize;
    long long m_position;
    TransferWait m_wait;
    QString m_failure;
};
