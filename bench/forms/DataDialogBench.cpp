// Cost of the data browser over a type of 100,000 items: opening it and selecting the type,
// scrolling the item list from top to bottom with painting, 10,000 items added and removed
// while the type is shown, and clicking an item connected to all 100,000 until its first level
// shows. The dialog stands alone on the graph; no main window is built.
#include <benchmark/benchmark.h>

#include <QApplication>
#include <QListView>
#include <QScrollBar>
#include <QTreeView>
#include <QTreeWidget>
#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "forms/DataDialog.h"
#include "store/Data.h"

namespace
{
constexpr int g_items = 100000;
constexpr int g_scrollSteps = 20;

Type* gp_file = nullptr;
Type* gp_scanned = nullptr;

// Values in random order, so that neither the graph nor the list meets them sorted.
std::vector<std::string> Values(char const* i_prefix, int i_count, unsigned i_seed)
{
    std::vector<std::string> l_values;
    for (int l_n = 0; l_n < i_count; ++l_n)
        l_values.push_back(std::string(i_prefix) + std::to_string(l_n) + "/some folder/track " + std::to_string(l_n % 97) + ".mp3");
    std::shuffle(l_values.begin(), l_values.end(), std::mt19937(i_seed));
    return l_values;
}

void MakeGraph()
{
    gp_file = d.NewType("bench_file", true, false, false);
    gp_scanned = d.NewType("bench_scanned", true, true, false);
    gp_file->RelateToType(gp_scanned, Many, One, false);
    Item* lp_scanned = gp_scanned->NewItem();
    for (std::string const& l_value : Values("/music/", g_items, 1))
        gp_file->NewItem(l_value)->Connect(lp_scanned);
}

DataDialog* OpenDialog()
{
    auto* lp_dialog = new DataDialog(&d, nullptr);
    lp_dialog->show();
    QApplication::processEvents();
    return lp_dialog;
}

void Select(DataDialog* ip_dialog, char const* i_type)
{
    auto* lp_types = ip_dialog->findChild<QTreeWidget*>(QStringLiteral("typeList"));
    lp_types->setCurrentItem(lp_types->findItems(QString::fromUtf8(i_type), Qt::MatchExactly).front());
}

QListView* ItemList(DataDialog* ip_dialog)
{
    return ip_dialog->findChild<QListView*>(QStringLiteral("itemList"));
}

void BM_OpenAndSelectTypeOf100000(benchmark::State& io_state)
{
    for (auto _ : io_state)
    {
        DataDialog* lp_dialog = OpenDialog();
        Select(lp_dialog, "bench_file");
        ItemList(lp_dialog)->viewport()->repaint();
        io_state.PauseTiming();
        bool const l_complete = ItemList(lp_dialog)->model()->rowCount() == g_items;
        delete lp_dialog;
        if (!l_complete)
        {
            io_state.SkipWithError("not every item got a row");
            break;
        }
        io_state.ResumeTiming();
    }
}
BENCHMARK(BM_OpenAndSelectTypeOf100000)->Iterations(5)->Unit(benchmark::kMillisecond);

// The scroll bar is dragged from top to bottom in steps, each painted before the next.
void BM_ScrollTopToBottom(benchmark::State& io_state)
{
    DataDialog* lp_dialog = OpenDialog();
    Select(lp_dialog, "bench_file");
    QListView* lp_list = ItemList(lp_dialog);
    QScrollBar* lp_bar = lp_list->verticalScrollBar();
    QApplication::processEvents();
    for (auto _ : io_state)
    {
        for (int l_step = 0; l_step <= g_scrollSteps; ++l_step)
        {
            lp_bar->setValue(lp_bar->maximum() * l_step / g_scrollSteps);
            lp_list->viewport()->repaint();
        }
        io_state.PauseTiming();
        int const l_topRow = lp_list->indexAt(QPoint(1, 1)).row();
        if (l_topRow < g_items - 100)
        {
            io_state.SkipWithError(("the list stopped at row " + std::to_string(l_topRow)).c_str());
            break;
        }
        lp_bar->setValue(0);
        lp_list->viewport()->repaint();
        io_state.ResumeTiming();
    }
    io_state.counters["steps"] = g_scrollSteps;
    delete lp_dialog;
}
BENCHMARK(BM_ScrollTopToBottom)->Iterations(10)->Unit(benchmark::kMillisecond);

void BM_Add10000ThenRemoveWhileShown(benchmark::State& io_state)
{
    DataDialog* lp_dialog = OpenDialog();
    Select(lp_dialog, "bench_file");
    QApplication::processEvents();
    std::vector<std::string> const l_values = Values("/new/", 10000, 2);
    unsigned l_round = 0;
    for (auto _ : io_state)
    {
        std::vector<Item*> l_added;
        // Between the present values as well as after them.
        std::string const l_prefix = (++l_round % 2) ? "/music/" : "/zz/";
        for (std::string const& l_value : l_values)
            l_added.push_back(gp_file->NewItem(l_prefix + l_value));
        QApplication::processEvents();
        for (Item* lp_item : l_added)
            lp_item->Remove();
        QApplication::processEvents();
        io_state.PauseTiming();
        if (ItemList(lp_dialog)->model()->rowCount() != g_items)
        {
            io_state.SkipWithError("the rows did not come back to the type's items");
            break;
        }
        io_state.ResumeTiming();
    }
    delete lp_dialog;
}
BENCHMARK(BM_Add10000ThenRemoveWhileShown)->Iterations(4)->Unit(benchmark::kMillisecond);

void BM_ClickItemOf100000Connections(benchmark::State& io_state)
{
    DataDialog* lp_dialog = OpenDialog();
    Select(lp_dialog, "bench_scanned");
    QListView* lp_list = ItemList(lp_dialog);
    auto* lp_tree = lp_dialog->findChild<QTreeView*>(QStringLiteral("itemDataTree"));
    QApplication::processEvents();
    for (auto _ : io_state)
    {
        emit lp_list->clicked(lp_list->model()->index(0, 0));
        QApplication::processEvents();
        lp_tree->viewport()->repaint();
        io_state.PauseTiming();
        int const l_shown = lp_tree->model()->rowCount(lp_tree->model()->index(0, 0));
        io_state.counters["first_level_rows"] = l_shown;
        if (l_shown == 0)
        {
            io_state.SkipWithError("the first level did not show");
            break;
        }
        io_state.ResumeTiming();
    }
    delete lp_dialog;
}
BENCHMARK(BM_ClickItemOf100000Connections)->Iterations(10)->Unit(benchmark::kMillisecond);
} // namespace

int main(int i_argc, char** i_argv)
{
    QApplication l_app(i_argc, i_argv);
    MakeGraph();
    benchmark::Initialize(&i_argc, i_argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
