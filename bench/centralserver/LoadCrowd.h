#pragma once

#include "LoadClient.h"

#include <QElapsedTimer>
#include <QString>

#include <memory>
#include <vector>

// Clients of the network that log in, report a listening port, enter one room together and
// then only read; any of them closed or refused is a failure of the server.
class LoadCrowd
{
public:
    static inline QByteArray const s_room = "crowd";

    LoadCrowd(quint16 i_port, int i_clients);

    // Logs every client in, i_atOnce logins under way at once; false when not all are in within
    // i_timeoutMs.
    bool LogIn(int i_atOnce, int i_timeoutMs);
    int Ready() const { return m_ready; }
    qint64 LoginNs() const { return m_loginNs; }
    // Per client, from its connection to the answer of its last report.
    std::vector<double> LoginMs() const;
    LoadClient& Client(int i_index) { return *m_links[static_cast<size_t>(i_index)]; }
    // The first client that failed, with its reason; empty while all stand.
    QString const& Failure() const { return m_failure; }

private:
    void StartNext();
    void OnFrame(LoadClient& i_link, quint32 i_code);

    quint16 m_port;
    QElapsedTimer m_clock;
    std::vector<std::unique_ptr<LoadClient>> m_links;
    std::vector<qint64> m_startNs;
    std::vector<qint64> m_readyNs;
    std::vector<int> m_roomLists;
    int m_started = 0;
    int m_ready = 0;
    qint64 m_loginNs = 0;
    QString m_failure;
};
