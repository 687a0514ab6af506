#include "forms/SearchResultsForm.h"

#include <QHeaderView>
#include <algorithm>
#include <set>
#include <tuple>

#include "forms/SearchResultListItem.h"
#include "shell/EventToolBar.h"
#include "store/Data.h"
#include "ui_SearchResultsForm.h"

namespace
{
bool Passes(QTreeWidgetItem* ip_file, QStringList const& i_terms)
{
    QString const& l_folder = ip_file->parent()->text(SearchResultListItem::FolderColumn);
    QString const& l_file = static_cast<SearchResultListItem*>(ip_file)->FileName();
    for (QString const& l_term : i_terms)
        if (!l_folder.contains(l_term, Qt::CaseInsensitive) && !l_file.contains(l_term, Qt::CaseInsensitive))
            return false;
    return true;
}

void Show(QTreeWidgetItem* ip_row, bool i_shown)
{
    // Only a change: each call costs the view a relayout.
    if (ip_row->isHidden() == i_shown)
        ip_row->setHidden(!i_shown);
}

RemoteFile FileOf(ItemPtr i_result)
{
    return {i_result["search_results"]["user"].AsString(), i_result["search_result_file_name"].AsString(),
            i_result["search_result_file_folder"].AsString(), i_result["search_result_file_size"].AsInt64()};
}

ItemPtr NodeOf(char const* i_type, QTreeWidgetItem* ip_row)
{
    return d.GetType(i_type)->HasItem(Value(ip_row));
}
} // namespace

SearchResultsForm::SearchResultsForm(QWidget* ip_parent)
    : QWidget(ip_parent), mp_ui(std::make_unique<Ui::SearchResultsForm>())
{
    mp_ui->setupUi(this);
    setFocusProxy(mp_ui->searchResultsTreeWidget);
    QTreeWidget* lp_tree = mp_ui->searchResultsTreeWidget;
    // Wide enough for long queues, speeds in the thousands and sizes of many gigabytes.
    int const l_widths[] = {100, 50, 60, 150, 170, 105};
    for (int l_column = 0; l_column < SearchResultListItem::AttributesColumn; ++l_column)
        lp_tree->setColumnWidth(l_column, l_widths[l_column]);
    lp_tree->header()->setStretchLastSection(true);
    lp_tree->header()->setSectionsClickable(false);
    lp_tree->header()->setSectionsMovable(false);
    lp_tree->setSortingEnabled(false);
}

SearchResultsForm::~SearchResultsForm() = default;

QTreeWidget* SearchResultsForm::searchResults() const
{
    return mp_ui->searchResultsTreeWidget;
}

QLineEdit* SearchResultsForm::filterEdit() const
{
    return mp_ui->filterEdit;
}

void SearchResultsForm::SetSortingParamters(int i_column, Qt::SortOrder i_order)
{
    m_sortColumn = i_column;
    m_sortOrder = i_order;
}

void SearchResultsForm::Sort()
{
    mp_ui->searchResultsTreeWidget->sortByColumn(m_sortColumn, m_sortOrder);
}

QStringList SearchResultsForm::FilterTerms(QString const& i_text)
{
    return i_text.split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

void SearchResultsForm::ApplyFilter(QStringList const& i_terms)
{
    QTreeWidget* lp_tree = mp_ui->searchResultsTreeWidget;
    for (int l_user = 0; l_user < lp_tree->topLevelItemCount(); ++l_user)
    {
        QTreeWidgetItem* lp_user = lp_tree->topLevelItem(l_user);
        bool l_userShown = false;
        for (int l_folder = 0; l_folder < lp_user->childCount(); ++l_folder)
        {
            QTreeWidgetItem* lp_folder = lp_user->child(l_folder);
            bool l_folderShown = false;
            for (int l_file = 0; l_file < lp_folder->childCount(); ++l_file)
            {
                QTreeWidgetItem* lp_file = lp_folder->child(l_file);
                bool const l_passes = Passes(lp_file, i_terms);
                Show(lp_file, l_passes);
                l_folderShown = l_folderShown || l_passes;
            }
            Show(lp_folder, l_folderShown);
            l_userShown = l_userShown || l_folderShown;
        }
        Show(lp_user, l_userShown);
    }
}

void SearchResultsForm::FilterNewRow(SearchResultListItem* ip_file, QStringList const& i_terms)
{
    QTreeWidgetItem* lp_folder = ip_file->parent();
    QTreeWidgetItem* lp_user = lp_folder->parent();
    if (Passes(ip_file, i_terms))
    {
        Show(lp_folder, true);
        Show(lp_user, true);
        return;
    }
    // The rows above already show whether any other file under them passes; a row that had
    // none is new and has nothing to show.
    ip_file->setHidden(true);
    if (lp_folder->childCount() == 1)
        Show(lp_folder, false);
    if (lp_user->childCount() == 1 && lp_folder->isHidden())
        Show(lp_user, false);
}

std::vector<RemoteFile> SearchResultsForm::SelectedFiles() const
{
    std::vector<RemoteFile> l_files;
    for (QTreeWidgetItem* lp_row : mp_ui->searchResultsTreeWidget->selectedItems())
        if (!lp_row->text(SearchResultListItem::FileColumn).isEmpty())
            if (ItemPtr const l_result = NodeOf("search_result_node", lp_row)["search_result"])
                l_files.push_back(FileOf(l_result));
    return l_files;
}

std::vector<RemoteFile> SearchResultsForm::SelectedFolders() const
{
    std::set<QTreeWidgetItem*> l_folders;
    for (QTreeWidgetItem* lp_row : mp_ui->searchResultsTreeWidget->selectedItems())
    {
        if (!lp_row->parent())
            continue;
        l_folders.insert(lp_row->parent()->parent() ? lp_row->parent() : lp_row);
    }
    ItemSet l_results;
    for (QTreeWidgetItem* lp_folder : l_folders)
        for (Item* lp_node : NodeOf("search_results_folder_node", lp_folder).GetItems("search_result_node"))
            if (Item* lp_result = ItemPtr(lp_node)["search_result"])
                l_results.insert(lp_result);
    std::vector<RemoteFile> l_files;
    for (Item* lp_result : l_results)
        l_files.push_back(FileOf(lp_result));
    // By name, then by the rest, so that equal names come in the same order every time.
    std::sort(l_files.begin(), l_files.end(), [](RemoteFile const& i_a, RemoteFile const& i_b) {
        return std::tie(i_a.m_name, i_a.m_folder, i_a.m_user, i_a.m_size) <
               std::tie(i_b.m_name, i_b.m_folder, i_b.m_user, i_b.m_size);
    });
    return l_files;
}

void SearchResultsForm::showEvent(QShowEvent* ip_event)
{
    QWidget::showEvent(ip_event);
    if (eventToolBar)
        eventToolBar->RemoveEvent(this);
}
