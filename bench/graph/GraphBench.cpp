// Costs of the item graph: creating items, connecting and disconnecting, delivering an event
// to many handlers, and the heap bytes one item and one connection take.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <malloc.h>
#include <memory>
#include <new>
#include <vector>

#include "store/Data.h"

namespace
{
std::size_t HeapInUse()
{
    struct mallinfo2 l_info = mallinfo2();
    return l_info.uordblks;
}

struct Schema
{
    Schema()
    {
        mp_folder = m_data.NewType("shared_folder", true, false, true);
        mp_file = m_data.NewType("shared_file", true, true, true);
        mp_name = m_data.NewType("shared_file_name", false, false, true);
        mp_size = m_data.NewType("shared_file_size", false, false, true);
        mp_file->RelateToType(mp_folder, Many, One, false);
        mp_file->RelateToType(mp_name, Many, One, false);
        mp_file->RelateToType(mp_size, Many, One, false);
    }
    Data m_data;
    Type* mp_folder;
    Type* mp_file;
    Type* mp_name;
    Type* mp_size;
};

class Counter : public DataHandler
{
public:
    void Listen(Type* ip_type) { ip_type->m_itemAddedEvent.Add(MakeHandler(&Counter::OnAdded)); }
    void OnAdded(Item*) { ++m_count; }
    long m_count = 0;
};

void BM_NewValueItem(benchmark::State& io_state)
{
    Schema l_schema;
    long l_n = 0;
    for (auto _ : io_state)
        benchmark::DoNotOptimize(l_schema.mp_name->NewItem(Value(static_cast<long long>(l_n++))));
    io_state.SetItemsProcessed(l_n);
}
BENCHMARK(BM_NewValueItem);

void BM_NewNullItem(benchmark::State& io_state)
{
    Schema l_schema;
    for (auto _ : io_state)
        benchmark::DoNotOptimize(l_schema.mp_file->NewItem());
    io_state.SetItemsProcessed(io_state.iterations());
}
BENCHMARK(BM_NewNullItem);

void BM_ConnectDisconnect(benchmark::State& io_state)
{
    Schema l_schema;
    Item* lp_folder = l_schema.mp_folder->NewItem("music");
    std::vector<Item*> l_files;
    for (int l_n = 0; l_n < 1000; ++l_n)
        l_files.push_back(l_schema.mp_file->NewItem());
    for (auto _ : io_state)
    {
        for (Item* lp_file : l_files)
            lp_file->Connect(lp_folder);
        for (Item* lp_file : l_files)
            lp_file->Disconnect(lp_folder);
    }
    io_state.SetItemsProcessed(io_state.iterations() * 2000);
}
BENCHMARK(BM_ConnectDisconnect);

void BM_NotifyHandlers(benchmark::State& io_state)
{
    Schema l_schema;
    std::vector<std::unique_ptr<Counter>> l_counters;
    for (int l_n = 0; l_n < io_state.range(0); ++l_n)
    {
        l_counters.push_back(std::make_unique<Counter>());
        l_counters.back()->Listen(l_schema.mp_file);
    }
    for (auto _ : io_state)
        l_schema.mp_file->NewItem();
    io_state.SetItemsProcessed(io_state.iterations() * io_state.range(0));
}
BENCHMARK(BM_NotifyHandlers)->Arg(1)->Arg(10)->Arg(100)->Arg(1000);

// Reported as counters: heap bytes per null item, per valued item and per connection.
void BM_MemoryPerItemAndConnection(benchmark::State& io_state)
{
    constexpr int c_count = 100000;
    for (auto _ : io_state)
    {
        Schema l_schema;
        Item* lp_folder = l_schema.mp_folder->NewItem("music");
        std::vector<Item*> l_files;
        l_files.reserve(c_count);

        std::size_t const l_start = HeapInUse();
        for (int l_n = 0; l_n < c_count; ++l_n)
            l_files.push_back(l_schema.mp_file->NewItem());
        std::size_t const l_afterNull = HeapInUse();
        for (int l_n = 0; l_n < c_count; ++l_n)
            l_schema.mp_name->NewItem(Value(l_n));
        std::size_t const l_afterValued = HeapInUse();
        for (Item* lp_file : l_files)
            lp_file->Connect(lp_folder);
        std::size_t const l_afterConnect = HeapInUse();

        io_state.counters["bytes_per_null_item"] = double(l_afterNull - l_start) / c_count;
        io_state.counters["bytes_per_valued_item"] = double(l_afterValued - l_afterNull) / c_count;
        io_state.counters["bytes_per_connection"] = double(l_afterConnect - l_afterValued) / c_count;
    }
}
BENCHMARK(BM_MemoryPerItemAndConnection)->Iterations(1)->Unit(benchmark::kMillisecond);
} // namespace

BENCHMARK_MAIN();
