#include "PeerBenchSupport.h"

#include <QTimer>
#include <QtEndian>

#include <algorithm>
#include <cstdio>
#include <filesystem>

#include "bench/BenchClient.h"
#include "peer/PeerMessenger.h"
#include "server/Server.h"
#include "store/Data.h"
#include "store/DataSaver.h"
#include "store/Log.h"
#include "store/Settings.h"

namespace PeerBench
{
namespace
{
std::uint64_t g_logLines = 0;

struct Figure
{
    std::string m_name;
    double m_value;
    std::string m_unit;
    double m_target;
    bool m_higherIsBetter;
    std::string m_note;
};

std::vector<Figure>& Figures()
{
    static std::vector<Figure> s_figures;
    return s_figures;
}

} // namespace

void SetUpClient()
{
    SetUpBenchClient(s_clientName);
    SetLogSink([](QString const&, int, QString const&, ItemPtr) { ++g_logLines; });
    dataSaver->EmitDataLoaded();
    if (!peerMessenger->ListenError().isEmpty())
    {
        std::fprintf(stderr, "The peer messenger does not listen: %s\n", qPrintable(peerMessenger->ListenError()));
        std::exit(2);
    }
    // Wakes a loop waiting for events now and then, so that a deadline is noticed even when
    // nothing happens.
    auto* lp_wake = new QTimer();
    lp_wake->start(20);
}

quint16 ClientPort()
{
    return peerMessenger->ListeningPort();
}

std::uint64_t LogLines()
{
    return g_logLines;
}

void FlushDeletes()
{
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

void Settle(int i_ms)
{
    QDeadlineTimer const l_deadline(i_ms);
    while (!l_deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    FlushDeletes();
}

int OpenDescriptors()
{
    int l_count = 0;
    for ([[maybe_unused]] auto const& l_entry : std::filesystem::directory_iterator("/proc/self/fd"))
        ++l_count;
    return l_count;
}

std::string Leftovers()
{
    std::string l_left;
    for (char const* lp_type : {"peer_socket", "uninitialized_socket", "connect_to_peer_request",
                                "connect_to_peer_request_socket", "indirect_connect_to_peer_request",
                                "peer_connection_request", "peer_connection_request_socket", "unsent_message"})
        if (std::size_t const l_count = d.GetType(lp_type)->ItemCount())
            l_left += std::string(lp_type) + "=" + std::to_string(l_count) + " ";
    if (std::size_t const l_records = peerMessenger->SocketRecordCount())
        l_left += "SocketBufferInfo=" + std::to_string(l_records) + " ";
    return l_left;
}

ItemPtr User(std::string const& i_name)
{
    return d.GetType("user")->GetItem(Value(i_name));
}

void GiveAddress(std::string const& i_name, quint16 i_port)
{
    ItemPtr const l_user = User(i_name);
    l_user.Disconnect("user_address");
    l_user.Disconnect("user_port");
    l_user += d.GetType("user_address")->GetItem(Value(s_loopback));
    l_user += d.GetType("user_port")->GetItem(Value(static_cast<unsigned int>(i_port)));
}

std::size_t MessagingConnectionsOf(std::string const& i_name)
{
    ItemPtr const l_user = d.GetType("user")->HasItem(Value(i_name));
    return l_user ? l_user->ConnectedOfType(d.GetType("peer_socket")).size() : 0;
}

void AppendU32(QByteArray& io_bytes, quint32 i_value)
{
    char l_bytes[4];
    qToLittleEndian(i_value, l_bytes);
    io_bytes.append(l_bytes, 4);
}

void AppendString(QByteArray& io_bytes, QByteArray const& i_text)
{
    AppendU32(io_bytes, static_cast<quint32>(i_text.size()));
    io_bytes.append(i_text);
}

QByteArray Framed(QByteArray const& i_body)
{
    QByteArray l_frame;
    l_frame.reserve(4 + i_body.size());
    AppendU32(l_frame, static_cast<quint32>(i_body.size()));
    l_frame.append(i_body);
    return l_frame;
}

QByteArray Greeting(QByteArray const& i_name, QByteArray const& i_type)
{
    QByteArray l_body(1, '\1');
    AppendString(l_body, i_name);
    AppendString(l_body, i_type);
    AppendU32(l_body, 0);
    return Framed(l_body);
}

QByteArray IndirectAnswer(quint32 i_token)
{
    QByteArray l_body(1, '\0');
    AppendU32(l_body, i_token);
    return Framed(l_body);
}

PlainPeer::PlainPeer(QTcpSocket* ip_socket) : mp_socket(ip_socket)
{
    mp_socket->setParent(nullptr);
    QObject::connect(mp_socket.get(), &QTcpSocket::readyRead, mp_socket.get(), [this] { Read(); });
}

PlainPeer::~PlainPeer()
{
    mp_socket->disconnect();
    mp_socket->abort();
}

std::unique_ptr<PlainPeer> PlainPeer::Dial(quint16 i_port)
{
    auto* lp_socket = new QTcpSocket();
    lp_socket->connectToHost(QHostAddress::LocalHost, i_port);
    return std::make_unique<PlainPeer>(lp_socket);
}

void PlainPeer::WriteOnConnect(QByteArray const& i_bytes)
{
    if (mp_socket->state() == QAbstractSocket::ConnectedState)
    {
        mp_socket->write(i_bytes);
        return;
    }
    QObject::connect(mp_socket.get(), &QTcpSocket::connected, mp_socket.get(),
                     [this, i_bytes] { mp_socket->write(i_bytes); }, Qt::SingleShotConnection);
}

void PlainPeer::Read()
{
    if (!m_onFrame)
    {
        // Draining only: what a peer that reads everything costs.
        char l_chunk[64 * 1024];
        for (qint64 l_got; (l_got = mp_socket->read(l_chunk, sizeof l_chunk)) > 0;)
            m_received += static_cast<std::uint64_t>(l_got);
        return;
    }
    QByteArray const l_bytes = mp_socket->readAll();
    m_received += static_cast<std::uint64_t>(l_bytes.size());
    m_pending.append(l_bytes);
    qsizetype l_at = 0;
    while (m_pending.size() - l_at >= 4)
    {
        quint32 const l_length = qFromLittleEndian<quint32>(m_pending.constData() + l_at);
        if (m_pending.size() - l_at - 4 < qsizetype(l_length))
            break;
        ++m_frames;
        m_onFrame(m_pending.mid(l_at + 4, l_length));
        l_at += 4 + l_length;
    }
    m_pending.remove(0, l_at);
}

PlainListener::PlainListener()
{
    m_server.listen(QHostAddress::LocalHost, 0);
}

std::unique_ptr<PlainPeer> PlainListener::Accept(int i_timeoutMs)
{
    if (!PumpUntil([this] { return m_server.hasPendingConnections(); }, i_timeoutMs))
        return nullptr;
    return std::make_unique<PlainPeer>(m_server.nextPendingConnection());
}

PlainPair::PlainPair()
{
    PlainListener l_listener;
    mp_sender = PlainPeer::Dial(l_listener.Port());
    mp_receiver = l_listener.Accept();
    PumpUntil([this] { return mp_sender->Socket().state() == QAbstractSocket::ConnectedState; });
}

void Record(std::string i_name, double i_value, std::string i_unit, double i_target, bool i_higherIsBetter,
            std::string i_note)
{
    // A benchmark runs more than once while its iteration count is found; the last run counts.
    Figure l_figure{std::move(i_name), i_value, std::move(i_unit), i_target, i_higherIsBetter, std::move(i_note)};
    for (Figure& l_known : Figures())
        if (l_known.m_name == l_figure.m_name)
        {
            l_known = std::move(l_figure);
            return;
        }
    Figures().push_back(std::move(l_figure));
}

int PrintSummary()
{
    int l_missed = 0;
    std::printf("\n%-44s %14s %14s  %s\n", "figure", "measured", "target", "result");
    for (Figure const& l_figure : Figures())
    {
        bool const l_mustBeZero = l_figure.m_target == 0;
        bool const l_met = l_mustBeZero               ? l_figure.m_value == 0
                           : l_figure.m_higherIsBetter ? l_figure.m_value >= l_figure.m_target
                                                       : l_figure.m_value < l_figure.m_target;
        l_missed += l_met ? 0 : 1;
        // How far from the target, as a factor; none for a count that must be zero.
        std::string l_margin;
        if (!l_mustBeZero && l_figure.m_value > 0)
        {
            char l_text[32];
            std::snprintf(l_text, sizeof l_text, " by x%.2f",
                          l_figure.m_higherIsBetter ? l_figure.m_value / l_figure.m_target
                                                    : l_figure.m_target / l_figure.m_value);
            l_margin = l_text;
        }
        std::printf("%-44s %14.4g %14.4g  %s %s%s %s\n", l_figure.m_name.c_str(), l_figure.m_value,
                    l_figure.m_target, l_figure.m_unit.c_str(), l_met ? "met" : "MISSED", l_margin.c_str(),
                    l_figure.m_note.c_str());
    }
    std::printf("log lines counted: %llu\n", static_cast<unsigned long long>(LogLines()));
    return l_missed;
}
} // namespace PeerBench
