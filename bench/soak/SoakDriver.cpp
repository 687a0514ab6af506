#include "SoakDriver.h"

#include <QFile>
#include <QPlainTextEdit>
#include <QSaveFile>
#include <QTextEdit>
#include <QTextStream>

#include <malloc.h>

#include <algorithm>
#include <cstdio>
#include <vector>

#include "server/Server.h"
#include "shares/SharedFoldersManager.h"
#include "shell/MainWindow.h"
#include "store/Data.h"
#include "store/Item.h"
#include "store/ItemPtr.h"

namespace
{
constexpr int c_tickMs = 100;
constexpr qint64 c_progressEveryMs = 5000;
constexpr qint64 c_heapReportEveryMs = 5 * 60 * 1000;
// The queue's last files and the peer's last lines get this long after the load ends.
constexpr qint64 c_drainMs = 15 * 60 * 1000;
constexpr qint64 c_settleMs = 2 * 60 * 1000;
// Start-up: login, the walk of the shares, entering the room, and the peer doing the same.
constexpr qint64 c_startMs = 5 * 60 * 1000;

// What the process holds that could grow without end: the graph's items, and the lines the
// window's views keep (the Diagnostics log's pages and the chat views).
QString Holdings()
{
    std::size_t l_items = 0;
    for (auto const& [l_name, lp_type] : d.Types())
        l_items += lp_type->ItemCount();
    int l_logLines = 0, l_chatBlocks = 0;
    for (QPlainTextEdit* lp_view : mainWindow->findChildren<QPlainTextEdit*>())
        l_logLines += lp_view->blockCount();
    for (QTextEdit* lp_view : mainWindow->findChildren<QTextEdit*>())
        l_chatBlocks += lp_view->document()->blockCount();
    // The allocator's view beside the resident figure: memory in use that grows is held by
    // something; free memory that grows is the heap's fragmentation.
    struct mallinfo2 const l_heap = mallinfo2();
    return QStringLiteral("items=%1 log_lines=%2 chat_blocks=%3 heap_used_kib=%4 heap_free_kib=%5")
        .arg(l_items)
        .arg(l_logLines)
        .arg(l_chatBlocks)
        .arg((l_heap.uordblks + l_heap.hblkhd) / 1024)
        .arg(l_heap.fordblks / 1024);
}

// The item types with the most items, and the Diagnostics log's pages with their lines: where to
// look first when the memory grew.
QString LargestHoldings()
{
    std::vector<std::pair<std::size_t, std::string>> l_types;
    for (auto const& [l_name, lp_type] : d.Types())
        l_types.emplace_back(lp_type->ItemCount(), l_name);
    std::sort(l_types.rbegin(), l_types.rend());
    QString l_text = QStringLiteral("types");
    for (std::size_t l_index = 0; l_index < std::min<std::size_t>(8, l_types.size()); ++l_index)
        l_text += QStringLiteral(" %1=%2").arg(QString::fromStdString(l_types[l_index].second)).arg(l_types[l_index].first);
    l_text += QStringLiteral("\nlog_pages");
    for (Item* lp_log : d.GetType("log")->Items())
        if (auto* lp_view = qobject_cast<QPlainTextEdit*>(ItemPtr(lp_log)["log_widget"].AsPointer<QObject>()))
            l_text += QStringLiteral(" %1=%2").arg(QString::fromStdString(ItemPtr(lp_log).AsString())).arg(lp_view->blockCount());
    return l_text;
}
} // namespace

SoakDriver::SoakDriver(SoakPlan i_plan, QObject* ip_parent)
    : QObject(ip_parent), m_plan(std::move(i_plan)), m_chat(m_plan.m_self, m_plan.m_peer, m_plan.m_room),
      m_downloads(m_plan.m_peer, m_plan.m_peerShare, m_plan.m_maxOutstanding)
{
    if (!m_downloads.FindPeerFiles())
        m_faults += "the peer's shared folder " + m_plan.m_peerShare.toStdString() + " holds no file\n";
    connect(gp_server, &Server::Disconnected, this, [this] { ++m_disconnects; });
    connect(&m_timer, &QTimer::timeout, this, &SoakDriver::OnTick);
    m_timer.start(c_tickMs);
    m_inPhase.start();
    m_clock.start();
}

QString SoakDriver::Meeting(char const* i_what, std::string const& i_name) const
{
    return m_plan.m_meeting + QLatin1Char('/') + QString::fromStdString(i_name) + QLatin1Char('.') + QLatin1String(i_what);
}

void SoakDriver::WriteMeeting(char const* i_what, QString const& i_text) const
{
    // Whole or not at all: the other side may read it at any moment.
    QSaveFile l_file(Meeting(i_what, m_plan.m_self));
    if (l_file.open(QIODevice::WriteOnly))
    {
        l_file.write(i_text.toUtf8());
        l_file.commit();
    }
}

void SoakDriver::Enter(Phase i_phase)
{
    m_phase = i_phase;
    m_inPhase.restart();
}

void SoakDriver::OnTick()
{
    Tick();
    if (m_clock.elapsed() - m_lastProgressMs >= c_progressEveryMs)
    {
        // Every five minutes, the allocator's own account arena by arena: which arenas hold the
        // free memory that the progress line sums up.
        if (m_clock.elapsed() / c_heapReportEveryMs != m_lastProgressMs / c_heapReportEveryMs)
            WriteHeapReport();
        m_lastProgressMs = m_clock.elapsed();
        WriteProgress();
    }
}

void SoakDriver::Tick()
{
    switch (m_phase)
    {
    case Phase::Starting:
    {
        bool const l_ready = gp_server->IsConnected() && !sharedFoldersManager->IsScanning() && m_chat.InRoom();
        if (l_ready && !QFile::exists(Meeting("ready", m_plan.m_self)))
            WriteMeeting("ready", QStringLiteral("ready\n"));
        if (l_ready && QFile::exists(Meeting("ready", m_plan.m_peer)))
        {
            m_disconnects = 0;
            Enter(Phase::Load);
        }
        else if (m_inPhase.elapsed() > c_startMs)
        {
            m_faults += "never got ready: logged in, shares scanned, in the room, peer ready\n";
            Finish();
        }
        return;
    }
    case Phase::Load:
        if (m_plan.m_chatEveryMs > 0 && m_inPhase.elapsed() - m_lastChatMs >= m_plan.m_chatEveryMs)
        {
            m_lastChatMs = m_inPhase.elapsed();
            if (!m_chat.SendNext())
                m_faults += "a line could not be sent at " + std::to_string(m_lastChatMs / 1000) + " s\n";
        }
        if (m_plan.m_downloadEveryMs > 0 && m_inPhase.elapsed() - m_lastDownloadMs >= m_plan.m_downloadEveryMs)
        {
            m_lastDownloadMs = m_inPhase.elapsed();
            m_downloads.QueueNext();
        }
        m_downloads.Check();
        if (m_inPhase.elapsed() >= qint64(m_plan.m_loadSeconds) * 1000)
            Enter(Phase::Drain);
        return;
    case Phase::Drain:
        m_downloads.Check();
        if (m_downloads.Outstanding() == 0 || m_inPhase.elapsed() > c_drainMs)
        {
            if (m_downloads.Outstanding() > 0)
                m_faults += std::to_string(m_downloads.Outstanding()) + " downloads never ended\n";
            WriteMeeting("sent", QStringLiteral("%1 %2\n").arg(m_chat.SentPrivate()).arg(m_chat.SentRoom()));
            Enter(Phase::Settle);
        }
        return;
    case Phase::Settle:
    {
        QFile l_peerSent(Meeting("sent", m_plan.m_peer));
        if (!l_peerSent.open(QIODevice::ReadOnly))
        {
            if (m_inPhase.elapsed() > c_drainMs + c_settleMs)
            {
                m_faults += "the peer never said what it sent\n";
                Finish();
            }
            return;
        }
        QTextStream(&l_peerSent) >> m_peerPrivate >> m_peerRoom;
        // The peer may still be draining; its lines all went out before it wrote the file.
        if (m_chat.AllArrived(m_peerPrivate, m_peerRoom) || m_inPhase.elapsed() > c_drainMs + c_settleMs)
            Finish();
        return;
    }
    case Phase::Done:
        return;
    }
}

void SoakDriver::Finish()
{
    // A moment more, so that a line sent twice has the time to arrive twice.
    QTimer::singleShot(3000, this, [this] {
        m_faults += m_chat.Faults(m_peerPrivate, m_peerRoom) + m_downloads.Faults();
        if (m_disconnects > 0)
            m_faults += "the link to the server was lost " + std::to_string(m_disconnects) + " times\n";
        QString l_report;
        QTextStream l_out(&l_report);
        l_out << "holdings " << Holdings() << '\n' << LargestHoldings() << '\n';
        l_out << "transfers " << m_downloads.Transfers() << "\nbytes " << m_downloads.Bytes() << "\ntransfer_failures "
              << m_downloads.Failures() << "\naborts_recovered " << m_downloads.Aborts() << "\nlines_sent "
              << m_chat.SentPrivate() + m_chat.SentRoom() << "\nlines_received " << m_chat.Received() << "\nverdict "
              << (m_faults.empty() ? "pass" : "fail") << '\n';
        for (QString const& l_fault : QString::fromStdString(m_faults).split(QLatin1Char('\n'), Qt::SkipEmptyParts))
            l_out << "fault " << l_fault << '\n';
        l_out.flush();
        WriteMeeting("report", l_report);
        // The log's pages as they stand, to read what was logged at what rate.
        for (Item* lp_log : d.GetType("log")->Items())
            if (auto* lp_view = qobject_cast<QPlainTextEdit*>(ItemPtr(lp_log)["log_widget"].AsPointer<QObject>()))
                WriteMeeting(("log " + ItemPtr(lp_log).AsString()).c_str(), lp_view->toPlainText());
        std::fputs(l_report.toUtf8().constData(), stdout);
        std::fflush(stdout);
    });
    Enter(Phase::Done);
}


void SoakDriver::WriteProgress() const
{
    WriteMeeting("progress", QStringLiteral("transfers=%1 bytes=%2 failures=%3 queued=%4 lines_sent=%5 lines_received=%6 %7\n")
                                 .arg(m_downloads.Transfers())
                                 .arg(m_downloads.Bytes())
                                 .arg(m_downloads.Failures())
                                 .arg(m_downloads.Outstanding())
                                 .arg(m_chat.SentPrivate() + m_chat.SentRoom())
                                 .arg(m_chat.Received())
                                 .arg(Holdings()));
}

void SoakDriver::WriteHeapReport() const
{
    QString const l_name = Meeting("heap", m_plan.m_self) +
                           QStringLiteral("-%1.xml").arg(m_clock.elapsed() / 60000, 3, 10, QLatin1Char('0'));
    if (FILE* lp_file = std::fopen(qPrintable(l_name), "w"))
    {
        malloc_info(0, lp_file);
        std::fclose(lp_file);
    }
}
