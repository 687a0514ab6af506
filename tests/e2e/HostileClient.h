#pragma once

#include <QByteArray>
#include <QTemporaryDir>

#include <functional>
#include <memory>

#include "CentralServerProcess.h"
#include "ClientProcess.h"
#include "support/ScriptedPeer.h"

// A real client process "target", logged in to the real central server, for attacks by peers
// played by hand. Each attack is checked the same way afterwards: the client still runs and
// answers an honest peer's share-list request, its event loop was never held over 100 ms of
// computing, its resident memory rose less than the bound of the attack allows, and its log
// says what it did about the attack.
class HostileClient
{
public:
    // Attacks whose own bound is larger are still held to this rise of resident memory.
    static constexpr qint64 s_maxRiseKiB = 64 * 1024;
    // Above each bound: the 16 MiB of freed memory the sanitizer's quarantine is limited to,
    // its shadow of what is allocated, and the socket objects and buffers of an attack.
    static constexpr qint64 s_marginKiB = 32 * 1024;

    HostileClient();
    ~HostileClient();

    // Starts the server, runs i_beforeLogin (for peers that must be known to the server before
    // the client), then starts the client and waits for its login; false on any failure.
    bool Start(std::function<void()> const& i_beforeLogin = {});
    quint16 Port() const { return m_port; }
    ClientProcess& Client() { return m_client; }
    CentralServerProcess& Server() { return *mp_server; }

    // A new peer greets the client and asks for its share list; true when the list comes back.
    bool AnswersAPeer();
    // A link from the attacker's side, greeted as i_greetAs when given; never null.
    std::unique_ptr<PeerLink> Dial(QByteArray const& i_greetAs = {}, QByteArray const& i_type = "P");

    // Runs i_body from a high-water mark reset to what is resident now, then checks the client
    // as above; i_logged is a text the log must hold from this attack on, waited for a while.
    void Attack(char const* i_name, qint64 i_boundKiB, QByteArray const& i_logged, std::function<void()> const& i_body);
    // The client's log from the given offset of its output on, collected so far.
    QByteArray LogSince(qsizetype i_offset) { return m_client.Output().mid(i_offset); }
    // Waits until the log from i_offset on holds the text.
    bool WaitForLog(qsizetype i_offset, QByteArray const& i_text, int i_timeoutMs = 10000);
    // The largest busy part of the stalls the log reports from i_offset on; 0 without any.
    qint64 LongestBusyStall(qsizetype i_offset);

    // Terminates the client; true if it ended well.
    bool Stop();

private:
    QTemporaryDir m_dir;
    std::unique_ptr<CentralServerProcess> mp_server;
    ClientProcess m_client;
    ScriptedPeer m_attacker;
    quint16 m_port = 0;
};

// Raises this process's soft limit of open descriptors to its hard one, for attacks of many
// connections; the limit reached.
qint64 RaiseDescriptorLimit();
