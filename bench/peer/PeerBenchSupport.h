#pragma once

// What the peer benchmarks share: the client's graph with a listening peer messenger, the event
// loop driven by hand, the other ends of connections played with plain sockets, checks that
// nothing is left behind, and the table of figures printed at the end.

#include <QByteArray>
#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QTcpServer>
#include <QTcpSocket>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "bench/BenchStats.h"

class ItemPtr;

namespace PeerBench
{
// 127.0.0.1 as the u32 the graph stores for a user's address.
inline constexpr unsigned int s_loopback = 0x7f000001u;
inline constexpr char const* s_clientName = "benchclient";

// A DataSaver, the settings and server types, a Server that never connects (attempts still get
// their tokens; its messages are dropped), and a PeerMessenger listening on a free port, as the
// program builds them. Log lines go to a counter.
void SetUpClient();
quint16 ClientPort();
std::uint64_t LogLines();

// Runs the event loop until the condition holds; false when the time ran out first.
template <class Condition>
bool PumpUntil(Condition const& i_done, int i_timeoutMs = 10000)
{
    QDeadlineTimer const l_deadline(i_timeoutMs);
    while (!i_done())
    {
        if (l_deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    return true;
}
// Deletes the objects whose deletion was posted.
void FlushDeletes();
// Lets the loop run for a while, for events that may or may not come.
void Settle(int i_ms);

int OpenDescriptors();
// The item types and records of connection making that must be empty between set-ups, as
// "type=count" pairs; empty when nothing is left.
std::string Leftovers();

ItemPtr User(std::string const& i_name);
// A user with an address and port, as the server's answer would leave it.
void GiveAddress(std::string const& i_name, quint16 i_port);
std::size_t MessagingConnectionsOf(std::string const& i_name);

// Wire bytes, built by hand: u32 little-endian numbers, strings as u32 length and bytes.
void AppendU32(QByteArray& io_bytes, quint32 i_value);
void AppendString(QByteArray& io_bytes, QByteArray const& i_text);
QByteArray Framed(QByteArray const& i_body);
QByteArray Greeting(QByteArray const& i_name, QByteArray const& i_type = "P");
QByteArray IndirectAnswer(quint32 i_token);

// The other end of one connection. It counts the bytes that arrive and, when asked, cuts them
// into frames and hands each body to a callback.
class PlainPeer
{
public:
    using FrameCallback = std::function<void(QByteArray const& i_body)>;

    explicit PlainPeer(QTcpSocket* ip_socket);
    ~PlainPeer();
    PlainPeer(PlainPeer const&) = delete;
    PlainPeer& operator=(PlainPeer const&) = delete;

    // Dials the client's listener; the connection comes up as the loop runs.
    static std::unique_ptr<PlainPeer> Dial(quint16 i_port);

    void OnFrame(FrameCallback i_callback) { m_onFrame = std::move(i_callback); }
    void Write(QByteArray const& i_bytes) { mp_socket->write(i_bytes); }
    // Writes the bytes as soon as the connection is up, as a dialling client sends its first frame.
    void WriteOnConnect(QByteArray const& i_bytes);
    std::uint64_t BytesReceived() const { return m_received; }
    std::uint64_t FramesReceived() const { return m_frames; }
    bool IsOpen() const { return mp_socket->state() != QAbstractSocket::UnconnectedState; }
    QTcpSocket& Socket() { return *mp_socket; }

private:
    void Read();

    std::unique_ptr<QTcpSocket> mp_socket;
    FrameCallback m_onFrame;
    QByteArray m_pending;
    std::uint64_t m_received = 0;
    std::uint64_t m_frames = 0;
};

// A loopback listener standing in for another client.
class PlainListener
{
public:
    PlainListener();
    quint16 Port() const { return m_server.serverPort(); }
    // The next accepted connection; null when none came in time.
    std::unique_ptr<PlainPeer> Accept(int i_timeoutMs = 10000);
    bool HasPending() { return m_server.hasPendingConnections(); }

private:
    QTcpServer m_server;
};

// A connected pair of plain sockets, for the baselines.
struct PlainPair
{
    PlainPair();
    std::unique_ptr<PlainPeer> mp_sender;
    std::unique_ptr<PlainPeer> mp_receiver;
};

using BenchStats::Clock;
using BenchStats::Median;
using BenchStats::Percentile;
using BenchStats::Seconds;

// One figure against its target, printed in the summary after the run. A target of 0 is met by
// 0 alone: a count of things left behind.
void Record(std::string i_name, double i_value, std::string i_unit, double i_target, bool i_higherIsBetter,
            std::string i_note = std::string());
// Prints the table; returns the number of figures that missed their targets.
int PrintSummary();
} // namespace PeerBench
