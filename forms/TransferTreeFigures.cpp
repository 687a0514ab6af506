#include <QLabel>
#include <QProgressBar>
#include <QTreeWidget>

#include <algorithm>

#include "forms/TransferFigures.h"
#include "forms/TransferTree.h"
#include "store/Data.h"

using TransferFigures::IsRunningStatus;

long long TransferTree::PositionOf(ItemPtr i_entry) const
{
    long long const* lp_position = i_entry.HasItem(m_kind.m_positionType).AsPointer<long long>();
    return lp_position ? *lp_position : 0;
}

long long TransferTree::SpeedOf(ItemPtr i_entry)
{
    int const* lp_speed = i_entry.HasItem("bytes_per_second").AsPointer<int>();
    return lp_speed ? std::max(0, *lp_speed) : 0;
}

TransferRow::Sums TransferTree::ContributionOf(std::string const& i_status, long long i_position, long long i_size)
{
    TransferRow::Sums l_sums;
    if (i_status == "complete")
        l_sums = {i_size, 0, i_size, 1};
    else if (i_status == "queued" || i_status == "aborted" || IsRunningStatus(i_status))
        l_sums = {i_position, i_size - i_position, i_size, 1};
    return l_sums;
}

TransferRow::Sums TransferTree::ProgressStatsOf(ItemSet const& i_entries) const
{
    TransferRow::Sums l_sums;
    for (Item* lp_entry : i_entries)
        l_sums += ContributionOf(StatusOf(lp_entry), PositionOf(lp_entry), m_kind.mp_sizeOf(lp_entry));
    return l_sums;
}

void TransferTree::ApplyContribution(TransferRow* ip_file, TransferRow::Sums const& i_new)
{
    TransferRow* lp_folder = ip_file->Group();
    for (TransferRow* lp_group : {lp_folder, lp_folder->Group()})
    {
        lp_group->m_sums -= ip_file->m_contribution;
        lp_group->m_sums += i_new;
    }
    ip_file->m_contribution = i_new;
}

void TransferTree::MarkDirty(TransferRow* ip_row)
{
    if (ip_row->m_dirty)
        return;
    ip_row->m_dirty = true;
    m_dirty.push_back(ip_row);
}

void TransferTree::OnProgress(ItemPtr i_entry)
{
    TransferRow* lp_row = FileRowOf(i_entry);
    if (!lp_row)
        return;
    long long const l_speed = SpeedOf(i_entry);
    if (IsRunningStatus(lp_row->m_status))
        m_runningSpeed += l_speed - lp_row->m_speed;
    lp_row->m_speed = l_speed;
    lp_row->m_position = PositionOf(i_entry);
    ApplyContribution(lp_row, ContributionOf(lp_row->m_status, lp_row->m_position, lp_row->m_size));
    TransferRow* lp_folder = lp_row->Group();
    TransferRow* lp_user = lp_folder->Group();
    lp_folder->m_lastSpeed = l_speed;
    lp_user->m_lastSpeed = l_speed;
    MarkDirty(lp_row);
    MarkDirty(lp_folder);
    MarkDirty(lp_user);
    m_summaryDirty = true;
    m_scheduleRedraw();
}

void TransferTree::Redraw()
{
    std::vector<TransferRow*> l_dirty;
    l_dirty.swap(m_dirty);
    for (TransferRow* lp_row : l_dirty)
    {
        lp_row->m_dirty = false;
        if (lp_row->GetLevel() == TransferRow::Level::File)
            DrawFile(lp_row);
        else
            DrawGroup(lp_row, true);
    }
    if (m_summaryDirty)
        DrawSummary();
}

void TransferTree::SetBar(TransferRow* ip_row, long long i_done, double i_percent, bool i_mayMakeBar)
{
    if (!ip_row->mp_bar)
    {
        if (!i_mayMakeBar)
            return;
        ip_row->mp_bar = new QProgressBar();
        ip_row->mp_bar->setMaximumHeight(14);
        mp_tree->setItemWidget(ip_row, 4, ip_row->mp_bar);
    }
    ip_row->mp_bar->setFormat(TransferFigures::ProgressText(i_done, i_percent));
    ip_row->mp_bar->setValue(static_cast<int>(std::clamp(i_percent, 0.0, 100.0)));
}

void TransferTree::DrawFile(TransferRow* ip_row)
{
    SetBar(ip_row, ip_row->m_position,
           TransferFigures::Percent(static_cast<double>(ip_row->m_position), static_cast<double>(ip_row->m_size)), true);
    ip_row->setText(5, TransferFigures::EtaText(ip_row->m_size - ip_row->m_position, ip_row->m_speed));
    ip_row->setText(6, TransferFigures::KbsText(ip_row->m_speed));
}

void TransferTree::DrawGroup(TransferRow* ip_row, bool i_mayMakeBar)
{
    // A single folder shows nothing that its user's row does not.
    if (ip_row->GetLevel() == TransferRow::Level::Folder && ip_row->Group()->childCount() < 2)
        return;
    TransferRow::Sums const& l_sums = ip_row->m_sums;
    if (l_sums.m_counted == 0 || (!ip_row->mp_bar && !i_mayMakeBar))
        return;
    SetBar(ip_row, TransferFigures::Shown(l_sums.m_done),
           TransferFigures::Percent(static_cast<double>(l_sums.m_done), static_cast<double>(l_sums.m_total)), i_mayMakeBar);
    ip_row->setText(5, TransferFigures::EtaText(TransferFigures::Shown(l_sums.m_left), ip_row->m_lastSpeed));
}

QProgressBar* TransferTree::BarOf(QTreeWidgetItem* ip_row)
{
    return ip_row ? static_cast<TransferRow*>(ip_row)->mp_bar : nullptr;
}

QString TransferTree::SummaryText() const
{
    return QStringLiteral("Running: %1   Waiting: %2   Finished: %3   Failed: %4   Speed: %5 KiB/s")
        .arg(m_tally.Active())
        .arg(m_tally.Count("queued"))
        .arg(m_tally.Count("complete"))
        .arg(m_tally.Failed())
        .arg(TransferFigures::KbsText(m_runningSpeed));
}

void TransferTree::DrawSummary()
{
    m_summaryDirty = false;
    if (mp_summary)
        mp_summary->setText(SummaryText());
}
