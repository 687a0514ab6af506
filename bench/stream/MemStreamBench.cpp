#include "stream/MemStream.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>

// Appending many small messages to one stream must stay linear, thanks to doubling.
static void AppendSmallMessages(benchmark::State& io_state)
{
    std::string const l_text = "a small chat line";
    for (auto l_ : io_state)
    {
        MemStream l_stream;
        for (std::int64_t l_index = 0; l_index < io_state.range(0); ++l_index)
        {
            l_stream.Write(static_cast<std::uint32_t>(l_index));
            l_stream.Write(l_text);
        }
        benchmark::DoNotOptimize(l_stream.GetReadBuffer());
    }
    io_state.SetItemsProcessed(io_state.iterations() * io_state.range(0));
}
BENCHMARK(AppendSmallMessages)->Range(8, 1 << 16);

// Parsing them back, as a receiver does with a frame of many entries.
static void ReadSmallMessages(benchmark::State& io_state)
{
    MemStream l_source;
    for (std::int64_t l_index = 0; l_index < io_state.range(0); ++l_index)
    {
        l_source.Write(static_cast<std::uint32_t>(l_index));
        l_source.Write(std::string("a small chat line"));
    }
    for (auto l_ : io_state)
    {
        MemStream l_stream;
        l_stream.WriteBuffer(l_source.GetReadBuffer(), l_source.GetPendingReadLength());
        std::uint32_t l_number = 0;
        std::string l_text;
        while (l_stream.Read(l_number) && l_stream.Read(l_text))
            benchmark::DoNotOptimize(l_text.data());
    }
    io_state.SetItemsProcessed(io_state.iterations() * io_state.range(0));
}
BENCHMARK(ReadSmallMessages)->Range(8, 1 << 16);

BENCHMARK_MAIN();
