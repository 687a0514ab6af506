#include <QDateTime>
#include <QPlainTextEdit>
#include <QRegularExpression>
#include <QTreeWidget>

#include "ShellEnvironment.h"
#include "shell/DiagnosticsForm.h"
#include "store/Log.h"

namespace
{
QTabWidget* Tabs() { return diagnosticsForm->findChild<QTabWidget*>(S("logTabWidget")); }

QList<int> TabIndexes(QString const& i_area)
{
    QList<int> l_indexes;
    for (int l_index = 0; l_index < Tabs()->count(); ++l_index)
        if (Tabs()->tabText(l_index) == i_area)
            l_indexes << l_index;
    return l_indexes;
}

QStringList Lines(QString const& i_area)
{
    diagnosticsForm->FlushPendingLines();
    auto* lp_view = qobject_cast<QPlainTextEdit*>(Tabs()->widget(TabIndexes(i_area).value(0, -1)));
    return lp_view ? lp_view->toPlainText().split(QLatin1Char('\n')) : QStringList();
}

// Tracked user -> status, as the tree shows them.
QMap<QString, QString> TrackedRows()
{
    QMap<QString, QString> l_rows;
    auto* lp_tree = diagnosticsForm->findChild<QTreeWidget*>(S("trackedUsersTree"));
    for (int l_row = 0; l_row < lp_tree->topLevelItemCount(); ++l_row)
        l_rows.insert(lp_tree->topLevelItem(l_row)->text(0), lp_tree->topLevelItem(l_row)->text(1));
    return l_rows;
}

TEST(DiagnosticsFormTest, LinesCarryTheTimeStampThenThreeSpacesPerLevelAboveOne)
{
    QDateTime const l_before = QDateTime::currentDateTime().addSecs(-1);
    for (int l_level = 0; l_level <= 3; ++l_level)
        Log(S("Levels"), l_level, S("text"), d.GetType("user")->GetItem("early_user"));
    QStringList const l_lines = Lines(S("Levels"));
    ASSERT_EQ(l_lines.size(), 4);

    QRegularExpression const l_format(S("^\\[([^\\]]+)\\] (.*)$"));
    QStringList const l_bodies{S("text"), S("text"), S("   text"), S("      text")};
    for (int l_n = 0; l_n < 4; ++l_n)
    {
        QRegularExpressionMatch const l_match = l_format.match(l_lines[l_n]);
        ASSERT_TRUE(l_match.hasMatch()) << l_lines[l_n].toStdString();
        EXPECT_EQ(l_match.captured(2), l_bodies[l_n]);
        QDateTime const l_stamp = QDateTime::fromString(l_match.captured(1), Qt::TextDate);
        EXPECT_TRUE(l_stamp >= l_before && l_stamp <= QDateTime::currentDateTime()) << l_lines[l_n].toStdString();
    }
}

TEST(DiagnosticsFormTest, OneTabAndOnePairOfItemsPerAreaInOrderOfFirstUse)
{
    Log(S("Peer Messenger"), 1, S("first"));
    Log(S("peer messenger"), 1, S("other case"));
    Log(S("Peer Messenger"), 2, S("second"));
    QList<int> const l_upper = TabIndexes(S("Peer Messenger"));
    QList<int> const l_lower = TabIndexes(S("peer messenger"));
    ASSERT_EQ(l_upper.size(), 1);
    ASSERT_EQ(l_lower.size(), 1);
    EXPECT_LT(l_upper.first(), l_lower.first());
    EXPECT_EQ(Lines(S("Peer Messenger")).size(), 2);
    EXPECT_EQ(Lines(S("peer messenger")).size(), 1);

    EXPECT_EQ(d.GetType("log")->HasItem("Peer Messenger")["log_widget"].AsPointer<QObject>(),
              Tabs()->widget(l_upper.first()));
    EXPECT_EQ(d.GetType("log")->ItemCount(), std::size_t(Tabs()->count()));
    EXPECT_EQ(d.GetType("log_widget")->ItemCount(), std::size_t(Tabs()->count()));
}

TEST(DiagnosticsFormTest, TrackedUsersShowTheirOnlineStateUntilUntracked)
{
    EXPECT_EQ(TrackedRows().value(S("early_user")), S("Offline"));
    ItemPtr const l_ann = d.GetType("user")->GetItem("ann");
    ItemPtr const l_bo = d.GetType("user")->GetItem("bo");
    l_ann.NewItem("is_tracked");
    l_bo.NewItem("is_online");
    EXPECT_EQ(TrackedRows().value(S("ann")), S("Offline"));
    EXPECT_FALSE(TrackedRows().contains(S("bo")));

    l_ann.NewItem("is_online");
    EXPECT_EQ(TrackedRows().value(S("ann")), S("Online"));
    l_bo.NewItem("is_tracked");
    EXPECT_EQ(TrackedRows().value(S("bo")), S("Online"));
    l_ann.Disconnect("is_online");
    EXPECT_EQ(TrackedRows().value(S("ann")), S("Offline"));

    l_ann.Disconnect("is_tracked");
    l_ann.NewItem("is_online");
    l_bo.Remove();
    EXPECT_EQ(TrackedRows().keys(), QStringList{S("early_user")});
    EXPECT_EQ(d.GetType("track_user_node")->ItemCount(), 1u);
    l_ann.Remove();
}
} // namespace
