// Setting up "P" connections, both ways: dialling a listening peer, and accepting a peer that
// dials in and greets. Each set-up is timed on its own and torn down before the next, and after
// 10,000 of them nothing of connection making may be left: no item, no socket record, no
// descriptor.
#include <benchmark/benchmark.h>

#include "PeerBenchSupport.h"
#include "peer/PeerMessenger.h"

using namespace PeerBench;

namespace
{
constexpr int s_setUps = 10000;
constexpr double s_targetMedianUs = 1000;

// Waits until the client has let go of every socket of the last set-up.
bool TornDown(std::string const& i_user)
{
    bool const l_done = PumpUntil([&i_user] {
        return MessagingConnectionsOf(i_user) == 0 && peerMessenger->SocketRecordCount() == 0 && Leftovers().empty();
    });
    FlushDeletes();
    return l_done;
}

// After the set-ups: the leftovers become figures with a target of none, and a run that left
// anything fails.
void CheckNothingLeft(benchmark::State& io_state, std::string const& i_what, int i_descriptorsBefore)
{
    Settle(100);
    std::string const l_left = Leftovers();
    int const l_descriptors = OpenDescriptors() - i_descriptorsBefore;
    Record(i_what + ": kinds of items or records left", l_left.empty() ? 0 : 1, "kinds", 0, false, l_left);
    Record(i_what + ": descriptors left", l_descriptors, "fds", 0, false);
    io_state.counters["fds_left"] = l_descriptors;
    if (!l_left.empty())
        io_state.SkipWithError(("left behind after the set-ups: " + l_left).c_str());
    else if (l_descriptors != 0)
        io_state.SkipWithError(("descriptors left behind after the set-ups: " + std::to_string(l_descriptors)).c_str());
}

void ReportTimes(benchmark::State& io_state, std::string const& i_what, std::vector<double> const& i_us)
{
    double const l_median = Median(i_us);
    io_state.counters["median_us"] = l_median;
    io_state.counters["p90_us"] = Percentile(i_us, 0.9);
    io_state.counters["p99_us"] = Percentile(i_us, 0.99);
    Record(i_what + ": median set-up", l_median, "us", s_targetMedianUs, false,
           "(p99 " + std::to_string(static_cast<int>(Percentile(i_us, 0.99))) + " us, " +
               std::to_string(i_us.size()) + " set-ups)");
}

// ConnectToUser for a user whose address is known, to the peer_socket item: the direct
// attempt connects, greets, and the attempt is disposed of. The peer then reads the greeting
// and hangs up.
void BM_DialSetUp(benchmark::State& io_state)
{
    PlainListener l_peer;
    std::string const l_user = "dialled peer";
    GiveAddress(l_user, l_peer.Port());
    QByteArray const l_expected = Greeting(s_clientName, "P");
    FlushDeletes();
    int const l_descriptorsBefore = OpenDescriptors();
    std::vector<double> l_us;
    l_us.reserve(s_setUps);

    for (auto _ : io_state)
    {
        Clock::time_point const l_start = Clock::now();
        peerMessenger->ConnectToUser(l_user, "P");
        bool const l_up = PumpUntil([&l_user] { return MessagingConnectionsOf(l_user) > 0; });
        Clock::duration const l_span = Clock::now() - l_start;
        io_state.SetIterationTime(Seconds(l_span));
        l_us.push_back(Seconds(l_span) * 1e6);
        if (!l_up)
        {
            io_state.SkipWithError("the direct attempt did not become a messaging connection");
            break;
        }

        std::unique_ptr<PlainPeer> l_link = l_peer.Accept();
        if (!l_link)
        {
            io_state.SkipWithError("the peer saw no connection");
            break;
        }
        QByteArray l_greeting;
        l_link->OnFrame([&l_greeting](QByteArray const& i_body) { l_greeting = i_body; });
        if (!PumpUntil([&l_link] { return l_link->FramesReceived() > 0; }) || Framed(l_greeting) != l_expected)
        {
            io_state.SkipWithError("the peer did not get the direct greeting");
            break;
        }
        l_link.reset();
        if (!TornDown(l_user))
        {
            io_state.SkipWithError(("the closed connection was not disposed of: " + Leftovers()).c_str());
            break;
        }
    }
    ReportTimes(io_state, "dial", l_us);
    CheckNothingLeft(io_state, "dial", l_descriptorsBefore);
}
BENCHMARK(BM_DialSetUp)->Iterations(s_setUps)->UseManualTime()->Unit(benchmark::kMicrosecond);

// A peer dials the listener and greets; timed from its connectToHost to the peer_socket item.
void BM_AcceptSetUp(benchmark::State& io_state)
{
    std::string const l_user = "calling peer";
    QByteArray const l_greeting = Greeting(QByteArray::fromStdString(l_user), "P");
    FlushDeletes();
    int const l_descriptorsBefore = OpenDescriptors();
    std::vector<double> l_us;
    l_us.reserve(s_setUps);

    for (auto _ : io_state)
    {
        Clock::time_point const l_start = Clock::now();
        std::unique_ptr<PlainPeer> l_link = PlainPeer::Dial(ClientPort());
        l_link->WriteOnConnect(l_greeting);
        bool const l_up = PumpUntil([&l_user] { return MessagingConnectionsOf(l_user) > 0; });
        Clock::duration const l_span = Clock::now() - l_start;
        io_state.SetIterationTime(Seconds(l_span));
        l_us.push_back(Seconds(l_span) * 1e6);
        if (!l_up)
        {
            io_state.SkipWithError("the greeting did not make a messaging connection");
            break;
        }
        // A reset rather than an orderly close, so that 10,000 dials leave no ports waiting.
        l_link.reset();
        if (!TornDown(l_user))
        {
            io_state.SkipWithError(("the closed connection was not disposed of: " + Leftovers()).c_str());
            break;
        }
    }
    ReportTimes(io_state, "accept", l_us);
    CheckNothingLeft(io_state, "accept", l_descriptorsBefore);
}
BENCHMARK(BM_AcceptSetUp)->Iterations(s_setUps)->UseManualTime()->Unit(benchmark::kMicrosecond);
} // namespace
