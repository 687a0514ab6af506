#include "FormsFixture.h"

QStringList MenuShownBy(std::function<void()> const& i_request)
{
    QStringList l_texts{QStringLiteral("<no menu>")};
    // The timer goes with the call: when no menu opened, it must not fire into a later one.
    QObject l_scope;
    QTimer::singleShot(100, &l_scope, [&l_texts] {
        for (QWidget* lp_widget : QApplication::topLevelWidgets())
        {
            auto* lp_menu = qobject_cast<QMenu*>(lp_widget);
            if (!lp_menu || !lp_menu->isVisible())
                continue;
            l_texts.clear();
            for (QAction* lp_action : lp_menu->actions())
                l_texts << lp_action->text();
            lp_menu->close();
        }
    });
    i_request();
    QApplication::processEvents();
    return l_texts;
}

QStringList ActionTexts()
{
    QStringList l_texts;
    for (QAction* lp_action : actionBar->actions()) l_texts << lp_action->text();
    return l_texts;
}

bool Trigger(QString const& i_text)
{
    for (QAction* lp_action : actionBar->actions())
        if (lp_action->text() == i_text)
            return lp_action->trigger(), true;
    return false;
}

void FormsTest::SetUp()
{
    mp_window = AppEnvironment::Window();
    CloseInformationBoxes(QString());
    // Active, so that focus changes are real.
    mp_window->show();
    QApplication::setActiveWindow(mp_window);
    ASSERT_TRUE(QTest::qWaitForWindowActive(mp_window));
    mp_form = mp_window->UserList();
}

void FormsTest::TearDown()
{
    gp_server->Disconnect();
    CloseDialogs();
}

void FormsTest::LogIn()
{
    gp_server->SetAddress(QStringLiteral("127.0.0.1"), m_central.Port());
    SetGlobal("username", "me");
    SetGlobal("password", "pw");
    gp_server->Connect();
    mp_central = m_central.AnswerLogin();
    ASSERT_TRUE(mp_central);
    ASSERT_TRUE(WaitFor([] { return gp_server->IsConnected(); }));
    while (!mp_central->Next(300).isEmpty()) {}
}

QTreeWidgetItem* FormsTest::Row(QTreeWidget* ip_tree, char const* i_name, int i_column)
{
    QList<QTreeWidgetItem*> const l_rows =
        ip_tree->findItems(QString::fromUtf8(i_name), Qt::MatchExactly | Qt::MatchCaseSensitive, i_column);
    return l_rows.size() == 1 ? l_rows.front() : nullptr;
}

void FormsTest::CloseDialogs()
{
    // A dialog may own another, so each is looked at only while it still lives.
    QList<QPointer<QDialog>> l_dialogs;
    for (QWidget* lp_widget : QApplication::topLevelWidgets())
        if (auto* lp_dialog = qobject_cast<QDialog*>(lp_widget))
            l_dialogs << lp_dialog;
    for (QPointer<QDialog> const& lp_dialog : l_dialogs)
        delete lp_dialog.data();
    QApplication::processEvents();
}

QStringList CutTexts(QTreeWidget* ip_tree, QList<int> const& i_columns)
{
    QFontMetrics const l_metrics(ip_tree->font());
    // The room the view leaves beside a cell's text.
    int const l_margin = 2 * (ip_tree->style()->pixelMetric(QStyle::PM_FocusFrameHMargin, nullptr, ip_tree) + 1);
    QStringList l_cut;
    for (QTreeWidgetItemIterator l_it(ip_tree); *l_it; ++l_it)
        for (int l_column : i_columns)
            if (QString const l_text = (*l_it)->text(l_column);
                ip_tree->columnWidth(l_column) < l_metrics.horizontalAdvance(l_text) + l_margin)
                l_cut << QStringLiteral("%1: %2").arg(l_column).arg(l_text);
    return l_cut;
}

QStringList QueuedDownloads()
{
    std::vector<Item*> l_entries;
    for (Item* lp_entry : d.GetType("download_entry")->Items())
        l_entries.push_back(lp_entry);
    std::sort(l_entries.begin(), l_entries.end(), [](Item* ip_a, Item* ip_b)
              { return ItemPtr(ip_a)["download_order"].AsInt64() < ItemPtr(ip_b)["download_order"].AsInt64(); });
    QStringList l_queued;
    for (Item* lp_entry : l_entries)
    {
        ItemPtr const l_entry(lp_entry);
        l_queued << QString::fromStdString(l_entry["user"].AsString() + '|' + l_entry["remote_folder"].AsString() + '|' +
                                           l_entry["file_name"].AsString() + '|' + l_entry["file_size"].AsString());
    }
    return l_queued;
}
