// The peer benchmarks run in one process with one client graph; the summary after them gives
// every figure against its target, and the exit status tells whether all were met.
#include <benchmark/benchmark.h>

#include <QCoreApplication>

#include "PeerBenchSupport.h"

int main(int i_argc, char** i_argv)
{
    QCoreApplication l_app(i_argc, i_argv);
    PeerBench::SetUpClient();
    benchmark::Initialize(&i_argc, i_argv);
    if (benchmark::ReportUnrecognizedArguments(i_argc, i_argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return PeerBench::PrintSummary() == 0 ? 0 : 1;
}
