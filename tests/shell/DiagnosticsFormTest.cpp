#include "ShellEnvironment.h"
#include "store/Log.h"

namespace
{
QTabWidget* Tabs() { return diagnosticsForm->findChild<QTabWidget*>(S("logTabWidget")); }

QStringList Lines(char const* i_area)
{
    diagnosticsForm->FlushPendingLines();
    auto* lp_view = qobject_cast<QPlainTextEdit*>(d.GetType("log")->HasItem(i_area)["log_widget"].AsPointer<QObject>());
    return lp_view ? lp_view->toPlainText().split(QLatin1Char('\n')) : QStringList();
}

// The lines of every page together.
int TotalLines()
{
    int l_total = 0;
    for (Item* lp_log : d.GetType("log")->Items())
        l_total += Lines(ItemPtr(lp_log).AsString().c_str()).size();
    return l_total;
}

// The tracked users as the tree shows them, in its order.
QString TrackedRows()
{
    QStringList l_rows;
    auto* lp_tree = diagnosticsForm->findChild<QTreeWidget*>(S("trackedUsersTree"));
    for (int l_row = 0; l_row < lp_tree->topLevelItemCount(); ++l_row)
        l_rows << lp_tree->topLevelItem(l_row)->text(0) + QLatin1Char(' ') + lp_tree->topLevelItem(l_row)->text(1);
    return l_rows.join(S(", "));
}

TEST(DiagnosticsFormTest, OneTabPerAreaInOrderOfFirstUseWithStampedLinesIndentedWithinABound)
{
    int const l_tabs = Tabs()->count();
    QDateTime const l_before = QDateTime::currentDateTime().addSecs(-1);
    std::pair<int, int> const l_levelsAndIndents[] = {{-5, 0}, {0, 0}, {1, 0}, {2, 3}, {3, 6}, {1000000, 96}};
    Log(S("peer messenger"), 1, S("other case"));
    for (auto [l_level, l_indent] : l_levelsAndIndents)
        Log(S("Peer Messenger"), l_level, S("text"));
    Log(S("peer messenger"), 1, S("again"));
    ASSERT_EQ(Tabs()->count(), l_tabs + 2);
    EXPECT_EQ(Tabs()->tabText(l_tabs), S("peer messenger"));
    EXPECT_EQ(Tabs()->tabText(l_tabs + 1), S("Peer Messenger"));
    EXPECT_EQ(Lines("peer messenger").size(), 2);

    QStringList const l_lines = Lines("Peer Messenger");
    ASSERT_EQ(l_lines.size(), std::ssize(l_levelsAndIndents));
    for (qsizetype l_n = 0; l_n < l_lines.size(); ++l_n)
    {
        QStringList const l_parts = l_lines[l_n].split(S("] "));
        QDateTime const l_stamp = QDateTime::fromString(l_parts[0].mid(1), Qt::TextDate);
        EXPECT_TRUE(l_stamp >= l_before && l_stamp <= QDateTime::currentDateTime()) << l_lines[l_n].toStdString();
        EXPECT_EQ(l_parts.value(1), QString(l_levelsAndIndents[l_n].second, QLatin1Char(' ')) + S("text"))
            << "level " << l_levelsAndIndents[l_n].first;
    }
}

// A flood of lines, as a peer can cause, leaves a page its newest ones; past the bound of all
// pages together the fullest pages lose their oldest lines while quiet ones keep theirs; and a
// line of a peer's long words is cut.
TEST(DiagnosticsFormTest, PagesKeepTheirNewestLinesWithinBoundsAndCutLongOnes)
{
    constexpr int c_page = DiagnosticsForm::s_maxLinesPerPage, c_all = DiagnosticsForm::s_maxLinesInAll;
    for (char const* lp_text : {"q1", "q2", "q3"})
        Log(S("Quiet"), 1, S(lp_text));
    for (int l_n = 0; l_n < c_page + 3; ++l_n)
        Log(S("Flood"), 1, QString::number(l_n));
    QStringList l_lines = Lines("Flood");
    ASSERT_EQ(l_lines.size(), c_page);
    EXPECT_TRUE(l_lines.first().endsWith(S("] 3")));
    EXPECT_TRUE(l_lines.last().endsWith(QLatin1String("] ") + QString::number(c_page + 2)));
    // Across flushes the page drops its oldest lines as new ones come.
    Log(S("Flood"), 1, S("later"));
    l_lines = Lines("Flood");
    EXPECT_EQ(l_lines.size(), c_page);
    EXPECT_TRUE(l_lines.first().endsWith(S("] 4")));

    // A second busy page takes its lines from the fullest one only.
    int const l_busy = c_all - c_page + 500;
    for (int l_n = 0; l_n < l_busy; ++l_n)
        Log(S("Busy"), 1, QString::number(l_n));
    EXPECT_EQ(Lines("Busy").size(), l_busy);
    EXPECT_EQ(TotalLines(), c_all);
    EXPECT_LT(Lines("Flood").size(), c_page);
    EXPECT_TRUE(Lines("Flood").last().endsWith(S("] later")));
    // Both full, they share what the quiet pages leave.
    for (int l_n = 0; l_n < c_page; ++l_n)
        Log(S("Busy"), 1, S("again ") + QString::number(l_n));
    EXPECT_LE(std::abs(Lines("Busy").size() - Lines("Flood").size()), 1);
    EXPECT_GE(TotalLines(), c_all - 1);
    EXPECT_LE(TotalLines(), c_all);
    EXPECT_TRUE(Lines("Busy").last().endsWith(QLatin1String("] again ") + QString::number(c_page - 1)));
    EXPECT_EQ(Lines("Quiet").size(), 3);
    EXPECT_TRUE(Lines("Quiet").first().endsWith(S("] q1")));

    Log(S("Long"), 1, QString(5000, QLatin1Char('x')));
    QString const l_line = Lines("Long").value(0);
    EXPECT_TRUE(l_line.endsWith(QString(1000, QLatin1Char('x')) + QChar(0x2026)));
    EXPECT_FALSE(l_line.contains(QString(1001, QLatin1Char('x'))));
}

TEST(DiagnosticsFormTest, TrackedUsersShowTheirOnlineStateUntilUntracked)
{
    EXPECT_EQ(TrackedRows(), S("early_user Offline"));
    ItemPtr const l_ann = d.GetType("user")->GetItem("ann"), l_bo = d.GetType("user")->GetItem("bo");
    l_ann.NewItem("is_tracked");
    l_bo.NewItem("is_online");
    EXPECT_EQ(TrackedRows(), S("ann Offline, early_user Offline"));
    l_ann.NewItem("is_online");
    l_bo.NewItem("is_tracked");
    EXPECT_EQ(TrackedRows(), S("ann Online, bo Online, early_user Offline"));
    l_ann.Disconnect("is_online");
    EXPECT_EQ(TrackedRows(), S("ann Offline, bo Online, early_user Offline"));

    l_ann.Disconnect("is_tracked");
    l_ann.NewItem("is_online");
    l_bo.Remove();
    EXPECT_EQ(TrackedRows(), S("early_user Offline"));
    EXPECT_EQ(d.GetType("track_user_node")->ItemCount(), 1u);
    l_ann.Remove();
}
} // namespace
