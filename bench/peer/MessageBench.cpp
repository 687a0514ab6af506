// Messages on "P" connections: small ones received and signalled, small ones sent to a user by
// name, a queue of messages flushed when the connection comes, and a large share list from the
// socket to its signal. Where a plain socket moving the same bytes makes sense, its rate in the
// same run is the baseline.
#include <benchmark/benchmark.h>

#include <cstdio>

#include "PeerBenchSupport.h"
#include "peer/Compression.h"
#include "peer/PeerMessenger.h"
#include "peer/ShareList.h"
#include "store/Data.h"

using namespace PeerBench;

namespace
{
constexpr int s_batch = 10000;
constexpr quint32 s_queueUpload = 43;
constexpr quint32 s_placeInLine = 44;

// A peer that dialled the client and greeted as i_user; null if no messaging connection came.
std::unique_ptr<PlainPeer> StandingConnection(std::string const& i_user)
{
    std::unique_ptr<PlainPeer> l_link = PlainPeer::Dial(ClientPort());
    l_link->WriteOnConnect(Greeting(QByteArray::fromStdString(i_user), "P"));
    if (!PumpUntil([&i_user] { return MessagingConnectionsOf(i_user) == 1; }))
        return nullptr;
    return l_link;
}

void HangUp(std::unique_ptr<PlainPeer>& io_link, std::string const& i_user)
{
    io_link.reset();
    PumpUntil([&i_user] { return MessagingConnectionsOf(i_user) == 0 && peerMessenger->SocketRecordCount() == 0; });
    FlushDeletes();
}

QByteArray FileName(int i_n)
{
    return QByteArray("Music\\Artist ") + QByteArray::number(i_n % 97) + "\\Track " + QByteArray::number(i_n) + ".mp3";
}

// The rate at which a plain socket pair moves i_rounds times the bytes, one write of i_pieces
// per round, the receiver reading everything, or cutting it into frames when i_framed; in rounds
// per second.
double PlainRoundsPerSecond(std::vector<QByteArray> const& i_pieces, int i_rounds, bool i_framed = false)
{
    PlainPair l_pair;
    std::uint64_t l_frames = 0;
    if (i_framed)
        l_pair.mp_receiver->OnFrame([&l_frames](QByteArray const&) { ++l_frames; });
    std::uint64_t l_roundBytes = 0;
    for (QByteArray const& l_piece : i_pieces)
        l_roundBytes += static_cast<std::uint64_t>(l_piece.size());
    Clock::time_point const l_start = Clock::now();
    for (int l_round = 0; l_round < i_rounds; ++l_round)
    {
        std::uint64_t const l_target = l_pair.mp_receiver->BytesReceived() + l_roundBytes;
        for (QByteArray const& l_piece : i_pieces)
            l_pair.mp_sender->Write(l_piece);
        if (!PumpUntil([&] { return l_pair.mp_receiver->BytesReceived() >= l_target; }))
            return 0;
    }
    return i_rounds / Seconds(Clock::now() - l_start);
}

void BM_ReceivePlaceInLine(benchmark::State& io_state)
{
    std::string const l_user = "placing peer";
    std::unique_ptr<PlainPeer> l_link = StandingConnection(l_user);
    if (!l_link)
    {
        io_state.SkipWithError("no standing connection");
        return;
    }
    QByteArray l_batch;
    std::vector<std::string> l_files;
    for (int l_n = 0; l_n < s_batch; ++l_n)
    {
        l_files.push_back(FileName(l_n).toStdString());
        QByteArray l_body;
        AppendU32(l_body, s_placeInLine);
        AppendString(l_body, FileName(l_n));
        AppendU32(l_body, static_cast<quint32>(l_n));
        l_batch.append(Framed(l_body));
    }

    std::uint64_t l_signalled = 0;
    bool l_inOrder = true;
    QMetaObject::Connection const l_counter = QObject::connect(
        peerMessenger, &PeerMessenger::DownloadPlaceInLine, peerMessenger,
        [&](std::string const& i_from, std::string const& i_file, int i_place) {
            int const l_expected = static_cast<int>(l_signalled % s_batch);
            l_inOrder = l_inOrder && i_place == l_expected && i_from == l_user &&
                        i_file == l_files[static_cast<std::size_t>(l_expected)];
            ++l_signalled;
        });

    Clock::time_point const l_start = Clock::now();
    for (auto _ : io_state)
    {
        std::uint64_t const l_target = l_signalled + s_batch;
        l_link->Write(l_batch);
        if (!PumpUntil([&] { return l_signalled >= l_target; }))
        {
            io_state.SkipWithError("not every message was signalled");
            break;
        }
    }
    double const l_seconds = Seconds(Clock::now() - l_start);
    QObject::disconnect(l_counter);
    if (!l_inOrder)
        io_state.SkipWithError("a signal carried the wrong user, file or place");
    if (MessagingConnectionsOf(l_user) != 1)
        io_state.SkipWithError("the connection did not stay open");
    HangUp(l_link, l_user);

    double const l_rate = static_cast<double>(l_signalled) / l_seconds;
    double const l_plainRate = PlainRoundsPerSecond({l_batch}, 20) * s_batch;
    double const l_framedRate = PlainRoundsPerSecond({l_batch}, 20, true) * s_batch;
    io_state.SetItemsProcessed(static_cast<std::int64_t>(l_signalled));
    io_state.counters["plain_socket_items_per_s"] = l_plainRate;
    io_state.counters["plain_frames_per_s"] = l_framedRate;
    io_state.counters["vs_plain"] = l_rate / l_plainRate;
    io_state.counters["vs_plain_frames"] = l_rate / l_framedRate;
    Record("receive code 44, signalled", l_rate, "msg/s", 200000, true,
           "(plain socket, same bytes: " + std::to_string(static_cast<long>(l_plainRate)) + "/s, ratio " +
               std::to_string(l_rate / l_plainRate) + "; cut into frames: " +
               std::to_string(static_cast<long>(l_framedRate)) + "/s, ratio " + std::to_string(l_rate / l_framedRate) +
               ")");
}
BENCHMARK(BM_ReceivePlaceInLine)->UseRealTime()->MinTime(1.0)->Unit(benchmark::kMillisecond);

MemStream QueueUploadMessage(QByteArray const& i_file)
{
    MemStream l_message;
    l_message.Write(s_queueUpload);
    l_message.Write(i_file.toStdString());
    return l_message;
}

// SendMessage(user, ...) on a standing connection, each message built as a caller builds it;
// a round ends when the peer has read every byte of it.
void BM_SendToUser(benchmark::State& io_state)
{
    std::string const l_user = "reading peer";
    std::unique_ptr<PlainPeer> l_link = StandingConnection(l_user);
    if (!l_link)
    {
        io_state.SkipWithError("no standing connection");
        return;
    }
    std::vector<QByteArray> l_files;
    std::vector<QByteArray> l_frames;
    std::uint64_t l_roundBytes = 0;
    for (int l_n = 0; l_n < s_batch; ++l_n)
    {
        l_files.push_back(FileName(l_n));
        QByteArray l_body;
        AppendU32(l_body, s_queueUpload);
        AppendString(l_body, l_files.back());
        l_frames.push_back(Framed(l_body));
        l_roundBytes += static_cast<std::uint64_t>(l_frames.back().size());
    }

    Clock::duration l_inCalls{};
    std::uint64_t const l_before = l_link->BytesReceived();
    Clock::time_point const l_start = Clock::now();
    for (auto _ : io_state)
    {
        std::uint64_t const l_target = l_link->BytesReceived() + l_roundBytes;
        Clock::time_point const l_callsStart = Clock::now();
        for (QByteArray const& l_file : l_files)
        {
            MemStream l_message = QueueUploadMessage(l_file);
            peerMessenger->SendMessage(l_user, l_message);
        }
        l_inCalls += Clock::now() - l_callsStart;
        if (!PumpUntil([&] { return l_link->BytesReceived() >= l_target; }))
        {
            io_state.SkipWithError("the peer did not receive every message");
            break;
        }
    }
    double const l_seconds = Seconds(Clock::now() - l_start);
    std::uint64_t const l_sent = static_cast<std::uint64_t>(io_state.iterations()) * s_batch;
    if (l_link->BytesReceived() - l_before != l_sent / s_batch * l_roundBytes)
        io_state.SkipWithError("the peer received other bytes than were sent");
    if (d.GetType("unsent_message")->ItemCount() != 0)
        io_state.SkipWithError("messages were queued although a connection stood");
    HangUp(l_link, l_user);

    double const l_rate = static_cast<double>(l_sent) / l_seconds;
    double const l_plainRate = PlainRoundsPerSecond(l_frames, 20) * s_batch;
    io_state.SetItemsProcessed(static_cast<std::int64_t>(l_sent));
    io_state.counters["calls_only_per_s"] = static_cast<double>(l_sent) / Seconds(l_inCalls);
    io_state.counters["plain_socket_items_per_s"] = l_plainRate;
    io_state.counters["vs_plain"] = l_rate / l_plainRate;
    Record("send to user, read by peer", l_rate, "msg/s", 300000, true,
           "(calls alone " + std::to_string(static_cast<long>(l_sent / Seconds(l_inCalls))) +
               "/s; plain socket, one write per frame: " + std::to_string(static_cast<long>(l_plainRate)) +
               "/s, ratio " + std::to_string(l_rate / l_plainRate) + ")");
}
BENCHMARK(BM_SendToUser)->UseRealTime()->MinTime(1.0)->Unit(benchmark::kMillisecond);

// 10,000 messages to a user without a connection, while the attempt waits for the user's
// address; then the user dials back with the attempt's token, and the queue goes out on that
// connection. Timed from the dial to the last message read by the peer, in order.
void BM_QueueFlush(benchmark::State& io_state)
{
    std::string const l_user = "late peer";
    std::vector<QByteArray> l_files;
    for (int l_n = 0; l_n < s_batch; ++l_n)
        l_files.push_back(FileName(l_n));
    std::vector<double> l_flushMs;
    Clock::duration l_queueing{};

    for (auto _ : io_state)
    {
        Clock::time_point const l_queueStart = Clock::now();
        for (QByteArray const& l_file : l_files)
        {
            MemStream l_message = QueueUploadMessage(l_file);
            peerMessenger->SendMessage(l_user, l_message);
        }
        l_queueing += Clock::now() - l_queueStart;
        ItemSet const l_attempts = User(l_user).GetItems("connect_to_peer_request");
        ItemPtr const l_indirect =
            l_attempts.size() == 1 ? ItemPtr(*l_attempts.begin()).HasItem("indirect_connect_to_peer_request") : ItemPtr();
        if (!l_indirect || d.GetType("unsent_message")->ItemCount() != s_batch)
        {
            io_state.SkipWithError("the messages did not wait behind one attempt");
            break;
        }
        quint32 const l_token = l_indirect.AsUInt();

        int l_next = 0;
        bool l_inOrder = true;
        Clock::time_point const l_start = Clock::now();
        std::unique_ptr<PlainPeer> l_link = PlainPeer::Dial(ClientPort());
        l_link->OnFrame([&](QByteArray const& i_body) {
            QByteArray l_expected;
            AppendU32(l_expected, s_queueUpload);
            AppendString(l_expected, l_files[static_cast<std::size_t>(l_next % s_batch)]);
            l_inOrder = l_inOrder && i_body == l_expected;
            ++l_next;
        });
        l_link->WriteOnConnect(IndirectAnswer(l_token));
        bool const l_all = PumpUntil([&] { return l_next >= s_batch; });
        Clock::duration const l_span = Clock::now() - l_start;
        io_state.SetIterationTime(Seconds(l_span));
        l_flushMs.push_back(Seconds(l_span) * 1e3);
        if (!l_all || !l_inOrder || l_next != s_batch)
        {
            io_state.SkipWithError("the queue did not arrive whole and in order");
            break;
        }
        if (d.GetType("unsent_message")->ItemCount() != 0 || d.GetType("connect_to_peer_request")->ItemCount() != 0)
        {
            io_state.SkipWithError("the queue or the attempt outlived the flush");
            break;
        }
        HangUp(l_link, l_user);
    }
    double const l_median = Median(l_flushMs);
    double const l_queuePerS = static_cast<double>(io_state.iterations()) * s_batch / Seconds(l_queueing);
    io_state.counters["median_flush_ms"] = l_median;
    io_state.counters["max_flush_ms"] = Percentile(l_flushMs, 1.0);
    io_state.counters["queued_per_s"] = l_queuePerS;
    io_state.SetItemsProcessed(io_state.iterations() * s_batch);
    Record("flush of 10,000 queued messages", l_median, "ms", 100, false,
           "(median of " + std::to_string(l_flushMs.size()) + ", max " +
               std::to_string(Percentile(l_flushMs, 1.0)) + " ms; queueing " +
               std::to_string(static_cast<long>(l_queuePerS)) + " msg/s)");
}
BENCHMARK(BM_QueueFlush)->Iterations(20)->UseManualTime()->Unit(benchmark::kMillisecond);

// Folders of 100 files each, named and sized as a music collection, with bit rate, length and
// the variable rate flag.
FileInfoMap Share(int i_files)
{
    FileInfoMap l_share;
    for (int l_n = 0; l_n < i_files; ++l_n)
    {
        int const l_folder = l_n / 100;
        std::string const l_path = "Music\\Artist " + std::to_string(l_folder / 10) + "\\Album " + std::to_string(l_folder);
        AttributeMap l_attributes("mp3");
        l_attributes.AddAttribute(0, 128 + 32 * static_cast<std::uint32_t>(l_n % 7));
        l_attributes.AddAttribute(1, 120 + static_cast<std::uint32_t>(l_n % 300));
        l_attributes.AddAttribute(2, static_cast<std::uint32_t>(l_n % 2));
        l_share[l_path].emplace("Track " + std::to_string(l_n % 100) + " - Title " + std::to_string(l_n) + ".mp3",
                                3000000 + (l_n * 7919LL) % 9000000, l_attributes);
    }
    return l_share;
}

std::size_t FileCount(FileInfoMap const& i_share)
{
    std::size_t l_count = 0;
    for (auto const& l_folder : i_share)
        l_count += l_folder.second.size();
    return l_count;
}

// Message 5 with 100,000 files, from the write on the peer's socket to UserShare.
void BM_ShareList100k(benchmark::State& io_state)
{
    constexpr int l_files = 100000;
    FileInfoMap const l_share = Share(l_files);
    MemStream const l_message = ShareListMessage(l_share);
    QByteArray const l_frame = Framed(QByteArray(l_message.GetReadBuffer(), l_message.GetPendingReadLength()));

    std::string const l_user = "sharing peer";
    std::unique_ptr<PlainPeer> l_link = StandingConnection(l_user);
    if (!l_link)
    {
        io_state.SkipWithError("no standing connection");
        return;
    }
    std::size_t l_received = 0;
    int l_shares = 0;
    bool l_same = true;
    QMetaObject::Connection const l_counter = QObject::connect(
        peerMessenger, &PeerMessenger::UserShare, peerMessenger,
        [&](std::string const& i_from, FileInfoMap& i_share, AttributeTranslationTable&) {
            l_received = FileCount(i_share);
            l_same = l_same && i_from == l_user && i_share.size() == l_share.size() &&
                     i_share.begin()->first == l_share.begin()->first &&
                     i_share.rbegin()->second.rbegin()->GetName() == l_share.rbegin()->second.rbegin()->GetName();
            ++l_shares;
        });

    std::vector<double> l_seconds;
    for (auto _ : io_state)
    {
        int const l_target = l_shares + 1;
        Clock::time_point const l_start = Clock::now();
        l_link->Write(l_frame);
        bool const l_got = PumpUntil([&] { return l_shares >= l_target; }, 30000);
        Clock::duration const l_span = Clock::now() - l_start;
        io_state.SetIterationTime(Seconds(l_span));
        l_seconds.push_back(Seconds(l_span));
        if (!l_got || l_received != l_files || !l_same)
        {
            io_state.SkipWithError("the share did not arrive whole");
            break;
        }
    }
    QObject::disconnect(l_counter);
    HangUp(l_link, l_user);

    // Where the time goes: inflating, and reading the records, without a socket.
    Clock::time_point l_start = Clock::now();
    MemStream l_body;
    Inflate(l_message.GetReadBuffer() + 4, static_cast<std::size_t>(l_message.GetPendingReadLength() - 4), l_body);
    double const l_inflate = Seconds(Clock::now() - l_start);
    l_start = Clock::now();
    FileInfoMap l_read;
    ReadFileInfoMap(l_body, l_read);
    double const l_parse = Seconds(Clock::now() - l_start);
    double const l_plain = 1 / PlainRoundsPerSecond({l_frame}, 10);

    double const l_median = Median(l_seconds);
    io_state.counters["median_s"] = l_median;
    io_state.counters["frame_bytes"] = static_cast<double>(l_frame.size());
    io_state.counters["inflate_s"] = l_inflate;
    io_state.counters["read_records_s"] = l_parse;
    io_state.counters["plain_socket_s"] = l_plain;
    io_state.counters["files_per_s"] = l_files / l_median;
    Record("share list of 100,000 files to UserShare", l_median, "s", 0.5, false,
           "(frame " + std::to_string(l_frame.size()) + " bytes; inflate " + std::to_string(l_inflate) +
               " s, read records " + std::to_string(l_parse) + " s, plain socket " + std::to_string(l_plain) +
               " s)");
}
BENCHMARK(BM_ShareList100k)->Iterations(10)->UseManualTime()->Unit(benchmark::kMillisecond);
} // namespace
