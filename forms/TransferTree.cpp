#include "forms/TransferTree.h"

#include <QTreeWidget>

#include <algorithm>

#include "forms/TransferFigures.h"
#include "server/ServerSchema.h"
#include "shell/PaletteColors.h"
#include "store/Data.h"
#include "stream/NumberText.h"
#include "stream/PathNames.h"
#include "transfers/TransferSupport.h"

TransferTree::TransferTree(TransferTreeKind const& i_kind, QTreeWidget* ip_tree, QLabel* ip_summary,
                           std::function<void()> i_scheduleRedraw)
    : m_kind(i_kind), mp_tree(ip_tree), mp_summary(ip_summary), m_scheduleRedraw(std::move(i_scheduleRedraw))
{
}

void TransferTree::DeclareTypes()
{
    for (char const* lp_type : {m_kind.m_userNodeType, m_kind.m_folderNodeType, m_kind.m_fileNodeType})
        d.NewType(lp_type, true, false, true);
    RelateOnceByName(m_kind.m_userNodeType, "user", One, One);
    RelateOnceByName(m_kind.m_folderNodeType, m_kind.m_userNodeType, One, Many);
    RelateOnceByName(m_kind.m_folderNodeType, m_kind.m_folderType, One, Many);
    RelateOnceByName(m_kind.m_folderNodeType, m_kind.m_fileNodeType, Many, One);
    RelateOnceByName(m_kind.m_fileNodeType, m_kind.m_entryType, One, One);
}

void TransferTree::BeginBuild()
{
    m_building = true;
}

void TransferTree::EndBuild()
{
    m_building = false;
    if (m_builtUsers.empty())
        return;
    QList<QTreeWidgetItem*> l_rows;
    for (TransferRow* lp_user : m_builtUsers)
        l_rows << lp_user;
    mp_tree->addTopLevelItems(l_rows);
    for (TransferRow* lp_user : m_builtUsers)
    {
        for (int l_child = 0; l_child < lp_user->childCount(); ++l_child)
        {
            auto* lp_folder = static_cast<TransferRow*>(lp_user->child(l_child));
            lp_folder->setExpanded(m_expandFolders);
            ShowAggregateIfClosed(lp_folder);
        }
        lp_user->setExpanded(m_expandUsers);
        ShowAggregateIfClosed(lp_user);
    }
    m_builtUsers.clear();
    DrawSummary();
}

ItemPtr TransferTree::NodeOf(QTreeWidgetItem* ip_row, char const* i_nodeType) const
{
    return d.GetType(i_nodeType)->HasItem(Value(ip_row));
}

TransferRow* TransferTree::FileRowOf(ItemPtr i_entry) const
{
    return static_cast<TransferRow*>(i_entry.HasItem(m_kind.m_fileNodeType).AsPointer<QTreeWidgetItem>());
}

TransferRow* TransferTree::UserRowOf(ItemPtr i_user) const
{
    return static_cast<TransferRow*>(i_user.HasItem(m_kind.m_userNodeType).AsPointer<QTreeWidgetItem>());
}

TransferRow* TransferTree::UserRowAbove(QTreeWidgetItem* ip_row)
{
    while (ip_row && ip_row->parent())
        ip_row = ip_row->parent();
    return static_cast<TransferRow*>(ip_row);
}

ItemPtr TransferTree::UserOfRow(QTreeWidgetItem* ip_row) const
{
    TransferRow* lp_user = UserRowAbove(ip_row);
    return lp_user ? NodeOf(lp_user, m_kind.m_userNodeType).HasItem("user") : ItemPtr();
}

ItemSet TransferTree::EntriesUnder(QTreeWidgetItem* ip_row) const
{
    ItemSet l_entries;
    if (!ip_row)
        return l_entries;
    switch (static_cast<TransferRow*>(ip_row)->GetLevel())
    {
    case TransferRow::Level::File:
        if (ItemPtr const l_entry = NodeOf(ip_row, m_kind.m_fileNodeType).HasItem(m_kind.m_entryType))
            l_entries.insert(l_entry);
        break;
    case TransferRow::Level::Folder:
        l_entries = NodeOf(ip_row, m_kind.m_folderNodeType).GetItems(m_kind.m_fileNodeType).GetItems(m_kind.m_entryType);
        break;
    case TransferRow::Level::User:
        l_entries = NodeOf(ip_row, m_kind.m_userNodeType)
                        .GetItems(m_kind.m_folderNodeType)
                        .GetItems(m_kind.m_fileNodeType)
                        .GetItems(m_kind.m_entryType);
        break;
    }
    return l_entries;
}

QString TransferTree::LocalFolderOf(QTreeWidgetItem* ip_row) const
{
    auto* lp_row = static_cast<TransferRow*>(ip_row);
    if (!lp_row || lp_row->GetLevel() == TransferRow::Level::User)
        return QString();
    if (lp_row->GetLevel() == TransferRow::Level::Folder)
        lp_row = lp_row->childCount() ? static_cast<TransferRow*>(lp_row->child(0)) : nullptr;
    return lp_row ? m_kind.mp_localFolderOf(lp_row->Entry()) : QString();
}

std::string TransferTree::StatusOf(ItemPtr i_entry) const
{
    return i_entry.HasItem(m_kind.m_statusType).AsString();
}

TransferRow* TransferTree::NewUserRow(ItemPtr i_user)
{
    auto* lp_row = new TransferRow(this, TransferRow::Level::User);
    ItemPtr(d.GetType(m_kind.m_userNodeType)->GetItem(Value(static_cast<QTreeWidgetItem*>(lp_row)))) += i_user;
    if (m_building)
        m_builtUsers.push_back(lp_row);
    else
    {
        mp_tree->addTopLevelItem(lp_row);
        lp_row->setExpanded(m_expandUsers);
    }
    ShowUserName(i_user);
    return lp_row;
}

TransferRow* TransferTree::FolderRow(TransferRow* ip_userRow, ItemPtr i_folder)
{
    ItemPtr const l_userNode = NodeOf(ip_userRow, m_kind.m_userNodeType);
    if (ItemPtr const l_node = d.GetItem(l_userNode, i_folder, m_kind.m_folderNodeType))
        return static_cast<TransferRow*>(l_node.AsPointer<QTreeWidgetItem>());
    auto* lp_row = new TransferRow(this, TransferRow::Level::Folder);
    lp_row->setText(1, QString::fromStdString(ReversePathname(i_folder.AsString())));
    ItemPtr const l_node = d.GetType(m_kind.m_folderNodeType)->GetItem(Value(static_cast<QTreeWidgetItem*>(lp_row)));
    l_node += l_userNode;
    l_node += i_folder;
    ip_userRow->addChild(lp_row);
    if (!m_building)
        lp_row->setExpanded(m_expandFolders);
    return lp_row;
}

TransferRow* TransferTree::AddEntry(ItemPtr i_entry)
{
    if (TransferRow* lp_row = FileRowOf(i_entry))
    {
        // The pattern fires again when a part is replaced: a peer may offer another size.
        long long const l_size = m_kind.mp_sizeOf(i_entry);
        if (l_size != lp_row->m_size)
        {
            lp_row->m_size = l_size;
            lp_row->setText(7, CommafyNumber(l_size));
            ApplyContribution(lp_row, ContributionOf(lp_row->m_status, lp_row->m_position, l_size));
        }
        return lp_row;
    }
    ItemPtr const l_user = i_entry.HasItem("user");
    ItemPtr const l_folder = m_kind.mp_folderOf(i_entry);
    if (!l_user || !l_folder)
        return nullptr;
    TransferRow* lp_userRow = UserRowOf(l_user);
    if (!lp_userRow)
        lp_userRow = NewUserRow(l_user);
    TransferRow* lp_folderRow = FolderRow(lp_userRow, l_folder);

    auto* lp_row = new TransferRow(this, TransferRow::Level::File, i_entry);
    lp_row->m_size = m_kind.mp_sizeOf(i_entry);
    lp_row->setText(2, m_kind.mp_fileNameOf(i_entry));
    lp_row->setText(7, CommafyNumber(lp_row->m_size));
    lp_folderRow->addChild(lp_row);
    ItemPtr const l_node = d.GetType(m_kind.m_fileNodeType)->GetItem(Value(static_cast<QTreeWidgetItem*>(lp_row)));
    l_node += i_entry;
    l_node += NodeOf(lp_folderRow, m_kind.m_folderNodeType);

    std::string const l_status = StatusOf(i_entry);
    lp_row->m_status = l_status;
    CountStatus(lp_row, l_status, 1);
    if (!l_status.empty())
        ShowStatus(lp_row, i_entry);
    if (TransferFigures::IsRunningStatus(l_status))
        lp_row->m_position = PositionOf(i_entry);
    ApplyContribution(lp_row, ContributionOf(l_status, lp_row->m_position, lp_row->m_size));
    if (!m_building)
    {
        ShowAggregateIfClosed(lp_folderRow);
        ShowAggregateIfClosed(lp_userRow);
        m_summaryDirty = true;
        m_scheduleRedraw();
    }
    return lp_row;
}

void TransferTree::DropRow(TransferRow* ip_row, char const* i_nodeType)
{
    if (ip_row->m_dirty)
        m_dirty.erase(std::find(m_dirty.begin(), m_dirty.end(), ip_row));
    if (ItemPtr const l_node = NodeOf(ip_row, i_nodeType))
        l_node.Remove();
    delete ip_row;
}

void TransferTree::RemoveEntry(ItemPtr i_entry)
{
    TransferRow* lp_row = FileRowOf(i_entry);
    if (!lp_row)
        return;
    TransferRow* lp_folder = lp_row->Group();
    TransferRow* lp_user = lp_folder->Group();
    CountStatus(lp_row, lp_row->m_status, -1);
    ApplyContribution(lp_row, TransferRow::Sums());
    if (TransferFigures::IsRunningStatus(lp_row->m_status))
        m_runningSpeed -= lp_row->m_speed;
    DropRow(lp_row, m_kind.m_fileNodeType);
    if (lp_folder->childCount() == 0)
    {
        DropRow(lp_folder, m_kind.m_folderNodeType);
        lp_folder = nullptr;
        if (lp_user->childCount() == 0)
        {
            DropRow(lp_user, m_kind.m_userNodeType);
            lp_user = nullptr;
        }
    }
    for (TransferRow* lp_group : {lp_folder, lp_user})
        if (lp_group)
        {
            ShowAggregateIfClosed(lp_group);
            DrawGroup(lp_group, false);
        }
    DrawSummary();
}

void TransferTree::CountStatus(TransferRow* ip_file, std::string const& i_status, int i_count)
{
    TransferRow* lp_folder = ip_file->Group();
    lp_folder->m_tally.Add(i_status, i_count);
    lp_folder->Group()->m_tally.Add(i_status, i_count);
    m_tally.Add(i_status, i_count);
}

void TransferTree::ShowStatus(TransferRow* ip_file, ItemPtr i_entry)
{
    SetItemColorByStatus(ip_file, QString::fromStdString(ip_file->m_status));
    ip_file->setText(3, QString::fromStdString(StatusTextOf(i_entry)));
}

std::string TransferTree::StatusTextOf(ItemPtr i_entry) const
{
    std::string const l_status = StatusOf(i_entry);
    QString const l_text = l_status == "denied" ? QString::fromStdString(i_entry.HasItem("denial_reason").AsString())
                                                : QString::fromStdString(l_status);
    return l_text.toLower().toStdString();
}

void TransferTree::OnStatusChange(ItemPtr i_entry)
{
    TransferRow* lp_row = FileRowOf(i_entry);
    if (!lp_row)
        return;
    // Figures still waiting are drawn first, so that none is drawn over the new status later.
    Redraw();
    std::string const l_status = StatusOf(i_entry);
    CountStatus(lp_row, lp_row->m_status, -1);
    CountStatus(lp_row, l_status, 1);
    if (TransferFigures::IsRunningStatus(lp_row->m_status))
        m_runningSpeed -= lp_row->m_speed;
    lp_row->m_speed = 0;
    // A position is held only while bytes move: a transfer that stops counts from nothing.
    lp_row->m_position = TransferFigures::IsRunningStatus(l_status) ? PositionOf(i_entry) : 0;
    lp_row->m_status = l_status;
    ApplyContribution(lp_row, ContributionOf(l_status, lp_row->m_position, lp_row->m_size));

    ShowStatus(lp_row, i_entry);
    if (l_status == "complete")
        lp_row->setText(4, QString());
    // A place in line belongs to the status it was told in.
    if (m_kind.m_downloads)
        lp_row->setText(8, QString());
    TransferRow* lp_folder = lp_row->Group();
    for (TransferRow* lp_group : {lp_folder, lp_folder->Group()})
    {
        ShowAggregateIfClosed(lp_group);
        DrawGroup(lp_group, false);
    }
    DrawSummary();
}

void TransferTree::ShowUserName(ItemPtr i_user)
{
    TransferRow* lp_row = UserRowOf(i_user);
    if (!lp_row)
        return;
    QString l_name = QString::fromStdString(i_user.AsString());
    if (m_kind.m_downloads && !i_user.HasItem("is_online"))
        l_name += QStringLiteral(" [offline]");
    lp_row->setText(0, l_name);
}

void TransferTree::ShowGroupStatus(TransferRow* ip_group)
{
    if (!ip_group || ip_group->GetLevel() == TransferRow::Level::File)
        return;
    QString const l_status =
        ip_group->isExpanded() ? QString() : QString::fromStdString(ip_group->m_tally.Aggregate());
    ip_group->setText(3, l_status);
    SetItemColorByStatus(ip_group, l_status);
}

void TransferTree::ShowAggregateIfClosed(TransferRow* ip_group)
{
    if (!ip_group->isExpanded())
        ShowGroupStatus(ip_group);
}

void TransferTree::SetLevelExpanded(TransferRow::Level i_level, bool i_expanded)
{
    for (int l_user = 0; l_user < mp_tree->topLevelItemCount(); ++l_user)
    {
        QTreeWidgetItem* lp_user = mp_tree->topLevelItem(l_user);
        if (i_level == TransferRow::Level::User)
            lp_user->setExpanded(i_expanded);
        else
            for (int l_folder = 0; l_folder < lp_user->childCount(); ++l_folder)
                lp_user->child(l_folder)->setExpanded(i_expanded);
    }
}

std::string TransferTree::AggregateStatusOf(ItemSet const& i_entries) const
{
    TransferTally l_tally;
    for (Item* lp_entry : i_entries)
        l_tally.Add(StatusOf(lp_entry));
    return l_tally.Aggregate();
}

void TransferTree::SetItemColorByStatus(QTreeWidgetItem* ip_row, QString const& i_status) const
{
    QBrush const l_brush(PaletteColors::Readable(TransferFigures::StatusColor(i_status.toStdString()), mp_tree->palette()));
    for (int l_column = 0; l_column < ip_row->columnCount(); ++l_column)
        ip_row->setForeground(l_column, l_brush);
}

QString TransferTree::ToolTipOf(TransferRow const* ip_row, int i_column) const
{
    ItemPtr const l_entry = ip_row->Entry();
    if (i_column == 3 && ip_row->m_status == "denied")
        return QString::fromStdString(l_entry.HasItem("denial_reason").AsString());
    if (i_column == 3 && ip_row->m_status == "queued" && !m_kind.m_downloads)
    {
        // The place among the waiting uploads, by the queue's own order.
        ItemPtr const l_queued = d.GetType(m_kind.m_statusType)->HasItem("queued");
        ItemSet const l_waiting = l_queued ? l_queued.GetItems(m_kind.m_entryType) : ItemSet();
        auto const l_orderOf = [](ItemPtr i_upload)
        { return DecimalOf(i_upload.HasItem("effective_upload_order").AsString()).value_or(0); };
        long long const l_order = l_orderOf(l_entry);
        long long l_place = 1;
        for (Item* lp_other : l_waiting)
            if (lp_other != l_entry.Get() && l_orderOf(lp_other) < l_order)
                ++l_place;
        return QStringLiteral("Place %1 of %2 queued uploads").arg(l_place).arg(l_waiting.size());
    }
    return m_kind.mp_localPathOf(l_entry);
}
