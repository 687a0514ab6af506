// Cost of log lines on the diagnostics page while it is showing: a burst of lines, one flush of
// the few lines that gather between two flushes, and for comparison a rich-text view appended
// line by line.
#include <benchmark/benchmark.h>

#include <QApplication>
#include <QDateTime>
#include <QMainWindow>
#include <QTabWidget>
#include <QTextBrowser>

#include "shell/DiagnosticsForm.h"
#include "store/Log.h"

namespace
{
int g_area = 0;

QTabWidget* Tabs()
{
    return diagnosticsForm->findChild<QTabWidget*>(QStringLiteral("logTabWidget"));
}

// A new area, its page made current so that the lines are laid out and painted.
QString NewVisibleArea()
{
    QString const l_area = QStringLiteral("Bench %1").arg(++g_area);
    Log(l_area, 1, QStringLiteral("start"));
    Tabs()->setCurrentIndex(Tabs()->count() - 1);
    diagnosticsForm->FlushPendingLines();
    QApplication::processEvents();
    return l_area;
}

QString LineText(int i_n)
{
    return QStringLiteral("Received search request from user%1 for \"some words\", token %2").arg(i_n % 97).arg(i_n);
}

void BM_LogBurst(benchmark::State& io_state)
{
    int const l_lines = int(io_state.range(0));
    for (auto _ : io_state)
    {
        io_state.PauseTiming();
        QString const l_area = NewVisibleArea();
        io_state.ResumeTiming();
        for (int l_n = 0; l_n < l_lines; ++l_n)
            Log(l_area, 1 + l_n % 3, LineText(l_n));
        diagnosticsForm->FlushPendingLines();
        QApplication::processEvents();
    }
    io_state.SetItemsProcessed(io_state.iterations() * l_lines);
}
BENCHMARK(BM_LogBurst)->Arg(100000)->Iterations(3)->Unit(benchmark::kMillisecond);

// One flush with its repaint; the page flushes at most ten times a second, whatever the rate.
void BM_FlushWithRepaint(benchmark::State& io_state)
{
    int const l_lines = int(io_state.range(0));
    QString const l_area = NewVisibleArea();
    int l_n = 0;
    for (auto _ : io_state)
    {
        for (int l_line = 0; l_line < l_lines; ++l_line, ++l_n)
            Log(l_area, 1 + l_n % 3, LineText(l_n));
        diagnosticsForm->FlushPendingLines();
        QApplication::processEvents();
    }
    io_state.SetItemsProcessed(io_state.iterations() * l_lines);
}
BENCHMARK(BM_FlushWithRepaint)->Arg(1)->Arg(10)->Unit(benchmark::kMicrosecond);

// The rich-text view with one append per line, as a baseline.
void BM_TextBrowserAppend(benchmark::State& io_state)
{
    int const l_lines = int(io_state.range(0));
    for (auto _ : io_state)
    {
        io_state.PauseTiming();
        auto* lp_browser = new QTextBrowser;
        Tabs()->setCurrentIndex(Tabs()->addTab(lp_browser, QStringLiteral("browser")));
        QApplication::processEvents();
        io_state.ResumeTiming();
        for (int l_n = 0; l_n < l_lines; ++l_n)
            lp_browser->append(QStringLiteral("[") + QDateTime::currentDateTime().toString(Qt::TextDate) +
                               QStringLiteral("] ") + LineText(l_n));
        QApplication::processEvents();
    }
    io_state.SetItemsProcessed(io_state.iterations() * l_lines);
}
BENCHMARK(BM_TextBrowserAppend)->Arg(10000)->Iterations(1)->Unit(benchmark::kMillisecond);
} // namespace

int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication l_app(argc, argv);
    ::benchmark::Initialize(&argc, argv);
    QMainWindow l_window;
    l_window.resize(1000, 600);
    l_window.setCentralWidget(new DiagnosticsForm(&l_window));
    l_window.show();
    QApplication::processEvents();
    ::benchmark::RunSpecifiedBenchmarks();
    ::benchmark::Shutdown();
    return 0;
}
