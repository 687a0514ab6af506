#pragma once

#include <QThread>

#include "transfers/TransferWait.h"

class QFile;
class QTcpSocket;
class UploadSpeedLimit;

// Sends one file over a file connection: the transfer request number first, then the file from
// the offset the peer answers with, paced by the limit in force. Owns neither socket nor file
// nor limit; before it ends it gives the socket back to the application's main thread.
class UploadThread : public QThread
{
    Q_OBJECT
public:
    // i_limit must outlive the thread. i_timeoutMs bounds each wait for the socket, and the wait
    // for the offset as a whole.
    UploadThread(QTcpSocket* ip_socket, QFile* ip_file, int i_req, UploadSpeedLimit const& i_limit,
                 int i_timeoutMs = TransferWait::s_defaultTimeoutMs);

    // Any thread may call it; the thread stops at its next block or wait slice.
    void SignalExit();
    // Why the upload failed, for the log; read once the thread has ended with an error.
    QString FailureReason() const { return m_failure; }

signals:
    void UploadProgress(qint64 i_offset, int l_bytesPerSecond);
    void UploadComplete();
    void UploadError();

protected:
    void run() override;

private:
    bool PerformUpload();
    bool SendRequestAndReadOffset(long long& o_offset);
    bool WriteBlock(char const* ip_block, long long i_length);
    bool Fail(QString i_why);

    QTcpSocket* mp_socket;
    QFile* mp_file;
    int const m_req;
    UploadSpeedLimit const& m_limit;
    TransferWait m_wait;
    QString m_failure;
};
