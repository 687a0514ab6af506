#include "shell/DiagnosticsForm.h"

#include <QDateTime>
#include <QDebug>
#include <QPlainTextEdit>
#include <QTextCursor>
#include <QTreeWidgetItem>

#include <algorithm>

#include "shell/ItemRow.h"
#include "store/Data.h"
#include "store/Log.h"
#include "ui_DiagnosticsForm.h"

DiagnosticsForm* diagnosticsForm = nullptr;

namespace
{
// Levels are small by contract; the bound only keeps a wild caller from padding a line with
// megabytes of spaces.
constexpr int c_maxIndentLevels = 32;

// Lines that arrive within this time share one append and one repaint of the page; a person
// reading the log does not notice the delay.
constexpr int c_flushIntervalMs = 100;

// A line of a peer's long words is cut, so that a page's lines stay small too.
constexpr qsizetype c_maxLineLength = 1000;
} // namespace

DiagnosticsForm::DiagnosticsForm(QWidget* ip_parent)
    : QWidget(ip_parent), mp_ui(std::make_unique<Ui::DiagnosticsForm>())
{
    mp_ui->setupUi(this);
    mp_ui->trackedUsersTree->sortByColumn(0, Qt::AscendingOrder);

    Type* lp_log = d.NewType("log", true, false, true);
    Type* lp_logWidget = d.NewType("log_widget", true, false, true);
    lp_log->RelateToType(lp_logWidget, One, One, false);

    m_flushTimer.setSingleShot(true);
    m_flushTimer.setInterval(c_flushIntervalMs);
    connect(&m_flushTimer, &QTimer::timeout, this, &DiagnosticsForm::FlushPendingLines);

    diagnosticsForm = this;
    SetLogSink([this](QString const& i_area, int i_level, QString const& i_text, ItemPtr i_item) {
        Log(i_area, i_level, i_text, i_item);
#ifdef TIDEWICK_ECHO_LOG
        qInfo().noquote() << PlainLogLine(i_area, i_level, i_text);
#endif
    });
}

DiagnosticsForm::~DiagnosticsForm()
{
    if (diagnosticsForm == this)
    {
        SetLogSink(LogSink());
        diagnosticsForm = nullptr;
    }
}

void DiagnosticsForm::Init()
{
    Type* lp_node = d.NewType("track_user_node", true, false, true);
    lp_node->RelateToType(d.GetType("user"), One, One, false);

    struct PathSpec
    {
        char const* m_child;
        PathNodeRelation m_relation;
        void (DiagnosticsForm::*m_method)(Item*);
    };
    PathSpec const l_paths[] = {
        {"is_tracked", NewlyConnected, &DiagnosticsForm::OnUserTracked},
        {"is_tracked", NewlyDisconnected, &DiagnosticsForm::OnUserUntracked},
        {"is_online", NewlyConnected, &DiagnosticsForm::OnUserOnline},
        {"is_online", NewlyDisconnected, &DiagnosticsForm::OnUserOffline},
    };
    for (PathSpec const& l_path : l_paths)
    {
        auto* lp_root = new PathNode(&d, "user");
        new PathNode(lp_root, l_path.m_child, l_path.m_relation);
        ListenPath(lp_root, l_path.m_method);
    }
    // A removed user loses its row before its connections are cut, while the row's item can
    // still be found from the user.
    ListenItemRemoved("user", &DiagnosticsForm::OnUserUntracked);

    for (Item* lp_user : g("user"))
        if (lp_user->IsConnected("is_tracked"))
            OnUserTracked(lp_user);
}

void DiagnosticsForm::Log(QString const& i_area, int i_level, QString const& i_text, ItemPtr)
{
    QPlainTextEdit* lp_view = AreaView(i_area);
    QStringList& l_pending = m_pendingLines[lp_view];
    // Lines of one burst beyond what a page keeps would only be dropped by it.
    if (l_pending.size() >= s_maxLinesPerPage)
        l_pending.removeFirst();
    QString l_line = QLatin1Char('[') + TimeStamp() + QLatin1String("] ")
                   + QString(3 * qBound(0, i_level - 1, c_maxIndentLevels), QLatin1Char(' '));
    if (i_text.size() > c_maxLineLength)
        l_line += i_text.left(c_maxLineLength) + QChar(0x2026);
    else
        l_line += i_text;
    l_pending.append(std::move(l_line));
    if (!m_flushTimer.isActive())
        m_flushTimer.start();
}

QPlainTextEdit* DiagnosticsForm::AreaView(QString const& i_area)
{
    ItemPtr const l_log = d.GetType("log")->GetItem(i_area.toStdString());
    if (ItemPtr const l_widget = l_log["log_widget"])
        return static_cast<QPlainTextEdit*>(l_widget.AsPointer<QObject>());

    auto* lp_view = new QPlainTextEdit(this);
    lp_view->setReadOnly(true);
    // The log only grows; an undo history of it would double its memory.
    lp_view->setUndoRedoEnabled(false);
    lp_view->setMaximumBlockCount(s_maxLinesPerPage);
    mp_ui->logTabWidget->addTab(lp_view, i_area);
    m_pages.push_back(lp_view);
    l_log += d.GetType("log_widget")->GetItem(Value(static_cast<QObject*>(lp_view)));
    return lp_view;
}

QString const& DiagnosticsForm::TimeStamp()
{
    // Formatting the local time dominates the cost of a line, and it changes once a second.
    qint64 const l_second = QDateTime::currentSecsSinceEpoch();
    if (l_second != m_stampSecond)
    {
        m_stampSecond = l_second;
        m_stamp = QDateTime::currentDateTime().toString(Qt::TextDate);
    }
    return m_stamp;
}

void DiagnosticsForm::FlushPendingLines()
{
    QHash<QPlainTextEdit*, QStringList> const l_pending = std::exchange(m_pendingLines, {});
    for (auto l_it = l_pending.cbegin(); l_it != l_pending.cend(); ++l_it)
        l_it.key()->appendPlainText(l_it.value().join(QLatin1Char('\n')));
    KeepWithinTotal();
}

void DiagnosticsForm::KeepWithinTotal()
{
    std::vector<int> l_counts;
    int l_total = 0;
    for (QPlainTextEdit* lp_page : m_pages)
    {
        l_counts.push_back(lp_page->blockCount());
        l_total += l_counts.back();
    }
    if (l_total <= s_maxLinesInAll)
        return;
    // The highest level the fullest pages can be cut to with all pages within the total: the
    // pages below it keep every line, those above lose their oldest lines down to it.
    std::sort(l_counts.rbegin(), l_counts.rend());
    int l_level = 0, l_rest = l_total;
    for (std::size_t l_cut = 1; l_cut <= l_counts.size(); ++l_cut)
    {
        l_rest -= l_counts[l_cut - 1];
        int const l_next = l_cut < l_counts.size() ? l_counts[l_cut] : 0;
        if (l_rest <= s_maxLinesInAll && (s_maxLinesInAll - l_rest) / static_cast<int>(l_cut) >= l_next)
        {
            l_level = std::max(1, (s_maxLinesInAll - l_rest) / static_cast<int>(l_cut));
            break;
        }
    }
    for (QPlainTextEdit* lp_page : m_pages)
    {
        if (lp_page->blockCount() <= l_level)
            continue;
        QTextCursor l_cursor(lp_page->document());
        l_cursor.movePosition(QTextCursor::Start);
        l_cursor.movePosition(QTextCursor::NextBlock, QTextCursor::KeepAnchor, lp_page->blockCount() - l_level);
        l_cursor.removeSelectedText();
    }
}

void DiagnosticsForm::OnUserTracked(Item* ip_user)
{
    AddItemRow(mp_ui->trackedUsersTree, ip_user, "track_user_node")
        ->setText(1, ItemPtr(ip_user).IsConnected("is_online") ? QStringLiteral("Online") : QStringLiteral("Offline"));
}

void DiagnosticsForm::OnUserUntracked(Item* ip_user)
{
    DropItemRow(ip_user, "track_user_node");
}

void DiagnosticsForm::OnUserOnline(Item* ip_user)
{
    SetStatus(ip_user, QStringLiteral("Online"));
}

void DiagnosticsForm::OnUserOffline(Item* ip_user)
{
    SetStatus(ip_user, QStringLiteral("Offline"));
}

void DiagnosticsForm::SetStatus(Item* ip_user, QString const& i_status)
{
    if (QTreeWidgetItem* lp_row = ItemRow(ip_user, "track_user_node"))
        lp_row->setText(1, i_status);
}
