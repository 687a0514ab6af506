#include "forms/ShareForm.h"

#include <QHeaderView>
#include <QShortcut>
#include <QTreeWidget>
#include <map>
#include <string_view>

#include "shares/SharedFoldersManager.h"
#include "shell/ActionSetToolBar.h"
#include "shell/EventToolBar.h"
#include "store/Data.h"
#include "stream/NumberText.h"
#include "stream/PathNames.h"
#include "ui_ShareForm.h"

namespace
{
// A row of the file list; the size column sorts by the number of bytes, not by its text.
class FileRow : public QTreeWidgetItem
{
public:
    static constexpr int s_sizeColumn = 1;

    bool operator<(QTreeWidgetItem const& i_other) const override
    {
        QTreeWidget const* lp_tree = treeWidget();
        if (lp_tree && lp_tree->sortColumn() == s_sizeColumn)
            return data(s_sizeColumn, Qt::UserRole).toLongLong() < i_other.data(s_sizeColumn, Qt::UserRole).toLongLong();
        return QTreeWidgetItem::operator<(i_other);
    }
};

QString DecodedName(ItemPtr i_item, char const* i_nameType)
{
    return QString::fromUtf8(i_item[i_nameType].AsCStr());
}

// Takes out the terms the text holds, ignoring case.
void DropFound(QStringList& io_terms, QString const& i_text)
{
    io_terms.removeIf([&i_text](QString const& i_term) { return i_text.contains(i_term, Qt::CaseInsensitive); });
}

bool HoldsAll(QString const& i_text, QStringList const& i_terms)
{
    for (QString const& l_term : i_terms)
        if (!i_text.contains(l_term, Qt::CaseInsensitive))
            return false;
    return true;
}

QStringList SplitTerms(QString const& i_text)
{
    return i_text.split(QLatin1Char(' '), Qt::SkipEmptyParts);
}
} // namespace

ShareForm::ShareForm(Item* i_share, QWidget* i_parent)
    : QWidget(i_parent),
      mp_ui(std::make_unique<Ui::ShareForm>()),
      mp_share(i_share),
      m_user(ItemPtr(i_share)["user"].AsString()),
      mp_folderNodeType(d.GetType("user_share_folder_node")),
      mp_fileNodeType(d.GetType("user_share_file_node"))
{
    mp_ui->setupUi(this);
    // Focus given to the tab, by a tab change or an event button, lands in the tree, which
    // brings up the tree's actions.
    setFocusProxy(mp_ui->folderTree);
    QTreeWidget* lp_files = mp_ui->fileList;
    lp_files->setColumnWidth(0, 200);
    lp_files->setColumnWidth(1, 70);
    lp_files->header()->setStretchLastSection(true);
    lp_files->setSortingEnabled(true);
    lp_files->sortByColumn(0, Qt::AscendingOrder);
    if (actionBar)
    {
        actionBar->RegisterWidget(mp_ui->folderTree, QStringLiteral("share_folders"));
        actionBar->RegisterWidget(lp_files, QStringLiteral("share_files"));
        connect(actionBar, &ActionSetToolBar::ActionTriggered, this, &ShareForm::OnActionBarTriggered);
    }
    connect(mp_ui->folderTree, &QTreeWidget::currentItemChanged, this, &ShareForm::OnCurrentItemChanged);
    connect(lp_files, &QTreeWidget::currentItemChanged, this, &ShareForm::OnFileItemChanged);
    connect(mp_ui->filterEdit, &QLineEdit::textChanged, this, &ShareForm::OnFilterTextChanged);
    connect(new QShortcut(QKeySequence(Qt::Key_Escape), mp_ui->filterEdit, nullptr, nullptr, Qt::WidgetShortcut),
            &QShortcut::activated, mp_ui->filterEdit, &QLineEdit::clear);

    ItemPtr(mp_share) += d.GetType("user_share_tab")->GetItem(Value(static_cast<QWidget*>(this)));
    BuildTree();
    if (eventToolBar)
        eventToolBar->AddEvent(QString::fromUtf8(m_user), QStringLiteral(":/icons/browse_icon"), mp_ui->folderTree);
}

ShareForm::~ShareForm()
{
    DeleteFolderRows();
}

void ShareForm::BuildTree()
{
    struct Folder
    {
        Item* mp_folder;
        QTreeWidgetItem* mp_row = nullptr;
        int m_depth = 0;
    };
    // By name in byte order, so that a parent, a prefix of its children's names, comes first.
    // The names are the items' own bytes, alive as long as the folders.
    std::map<std::string_view, Folder> l_folders;
    for (Item* lp_folder : ItemPtr(mp_share).GetItems("user_share_folder"))
    {
        Item* lp_name = lp_folder->HasItem("user_share_folder_name");
        l_folders.emplace(lp_name ? lp_name->AsView() : std::string_view(), Folder{lp_folder});
    }

    // The rows are put together away from the view and handed to it at once: a view takes
    // every inserted row and every expansion into its own bookkeeping.
    QList<QTreeWidgetItem*> l_topLevel;
    std::vector<QTreeWidgetItem*> l_toExpand;
    m_folderRows.reserve(l_folders.size());
    for (auto& [l_name, l_entry] : l_folders)
    {
        std::string const l_parentName = GetParentFolder(std::string(l_name));
        auto const l_parent = l_parentName == l_name ? l_folders.end() : l_folders.find(l_parentName);
        if (l_parent != l_folders.end() && l_parent->second.mp_row)
        {
            QTreeWidgetItem* lp_parentRow = l_parent->second.mp_row;
            l_entry.mp_row = new QTreeWidgetItem(lp_parentRow);
            l_entry.m_depth = l_parent->second.m_depth + 1;
            if (lp_parentRow->childCount() == 1 && l_parent->second.m_depth < s_maxExpandedDepth)
                l_toExpand.push_back(lp_parentRow);
        }
        else
        {
            // Not listed, the parent has no row: the folder stands at the top.
            l_entry.mp_row = new QTreeWidgetItem();
            l_topLevel.append(l_entry.mp_row);
        }
        l_entry.mp_row->setText(0, QString::fromUtf8(GetFileName(std::string(l_name))));
        m_folderRows.push_back(l_entry.mp_row);
        ItemPtr(l_entry.mp_folder) += mp_folderNodeType->GetItem(Value(l_entry.mp_row));
    }
    mp_ui->folderTree->addTopLevelItems(l_topLevel);
    for (QTreeWidgetItem* lp_row : l_toExpand)
        lp_row->setExpanded(true);
}

Item* ShareForm::FolderOfRow(QTreeWidgetItem* ip_row) const
{
    return mp_folderNodeType->HasItem(Value(ip_row))["user_share_folder"];
}

QStringList ShareForm::FilterTerms() const
{
    return SplitTerms(mp_ui->filterEdit->text());
}

void ShareForm::ClearFileList()
{
    QTreeWidget* lp_files = mp_ui->fileList;
    for (int l_index = 0; l_index < lp_files->topLevelItemCount(); ++l_index)
        if (ItemPtr const l_node = mp_fileNodeType->HasItem(Value(lp_files->topLevelItem(l_index))))
            l_node.Remove();
    lp_files->clear();
}

void ShareForm::OnCurrentItemChanged(QTreeWidgetItem* ip_current, QTreeWidgetItem*)
{
    ClearFileList();
    if (!mp_share || !ip_current)
        return;
    ItemPtr const l_folder = FolderOfRow(ip_current);
    if (!l_folder)
        return;
    QStringList l_terms = FilterTerms();
    for (QTreeWidgetItem* lp_row = ip_current; lp_row && !l_terms.isEmpty(); lp_row = lp_row->parent())
        DropFound(l_terms, lp_row->text(0));

    QList<QTreeWidgetItem*> l_rows;
    for (Item* lp_file : l_folder.GetItems("user_share_file"))
    {
        QString const l_name = DecodedName(lp_file, "user_share_file_name");
        if (!HoldsAll(l_name, l_terms))
            continue;
        long long const l_size = ItemPtr(lp_file)["user_share_file_size"].AsInt64();
        auto* lp_row = new FileRow();
        lp_row->setText(0, l_name);
        lp_row->setText(FileRow::s_sizeColumn, CommafyNumber(l_size));
        lp_row->setData(FileRow::s_sizeColumn, Qt::UserRole, l_size);
        lp_row->setText(2, SharedFoldersManager::GetFileItemDisplayString(lp_file));
        ItemPtr(lp_file) += mp_fileNodeType->GetItem(Value(static_cast<QTreeWidgetItem*>(lp_row)));
        l_rows.append(lp_row);
    }
    // Added unsorted in one go, then sorted once by the column the header shows.
    mp_ui->fileList->setSortingEnabled(false);
    mp_ui->fileList->addTopLevelItems(l_rows);
    mp_ui->fileList->setSortingEnabled(true);
    // A size of some GiB needs more than the first width: the column grows to show it whole,
    // and never shrinks below what the user made it.
    int const l_needed = static_cast<QAbstractItemView*>(mp_ui->fileList)->sizeHintForColumn(FileRow::s_sizeColumn);
    if (l_needed > mp_ui->fileList->columnWidth(FileRow::s_sizeColumn))
        mp_ui->fileList->setColumnWidth(FileRow::s_sizeColumn, l_needed);
}

void ShareForm::OnFileItemChanged(QTreeWidgetItem*, QTreeWidgetItem*) {}

void ShareForm::OnFilterTextChanged(QString i_text)
{
    if (!mp_share)
        return;
    QStringList const l_terms = SplitTerms(i_text);
    QTreeWidget* lp_tree = mp_ui->folderTree;
    for (int l_index = 0; l_index < lp_tree->topLevelItemCount(); ++l_index)
        FilterFolderNode(lp_tree->topLevelItem(l_index), l_terms);
}

bool ShareForm::FilterFolderNode(QTreeWidgetItem* ip_row, QStringList const& i_terms)
{
    // The subtree in pre-order, each row with the terms its own name and its ancestors' names
    // left over. Walked backwards, every row comes after its descendants, so a visible child
    // has already marked its parent visible when the parent is reached.
    struct Entry
    {
        QTreeWidgetItem* mp_row;
        std::ptrdiff_t m_parent;
        QStringList m_terms;
        bool m_visible = false;
    };
    std::vector<Entry> l_entries;
    std::vector<std::pair<QTreeWidgetItem*, std::ptrdiff_t>> l_stack{{ip_row, -1}};
    while (!l_stack.empty())
    {
        auto const [lp_row, l_parent] = l_stack.back();
        l_stack.pop_back();
        QStringList l_terms = l_parent < 0 ? i_terms : l_entries[static_cast<std::size_t>(l_parent)].m_terms;
        DropFound(l_terms, lp_row->text(0));
        l_entries.push_back({lp_row, l_parent, std::move(l_terms)});
        auto const l_self = static_cast<std::ptrdiff_t>(l_entries.size() - 1);
        for (int l_child = lp_row->childCount() - 1; l_child >= 0; --l_child)
            l_stack.emplace_back(lp_row->child(l_child), l_self);
    }

    QTreeWidgetItem* lp_current = mp_ui->folderTree->currentItem();
    for (std::size_t l_index = l_entries.size(); l_index-- > 0;)
    {
        Entry& l_entry = l_entries[l_index];
        if (!l_entry.m_visible)
        {
            l_entry.m_visible = l_entry.m_terms.isEmpty();
            if (!l_entry.m_visible)
                for (Item* lp_file : ItemPtr(FolderOfRow(l_entry.mp_row)).GetItems("user_share_file"))
                    if (HoldsAll(DecodedName(lp_file, "user_share_file_name"), l_entry.m_terms))
                    {
                        l_entry.m_visible = true;
                        break;
                    }
        }
        if (!l_entry.m_visible && l_entry.mp_row == lp_current)
            ClearFileList();
        if (l_entry.mp_row->isHidden() == l_entry.m_visible)
            l_entry.mp_row->setHidden(!l_entry.m_visible);
        if (l_entry.m_visible && l_entry.m_parent >= 0)
            l_entries[static_cast<std::size_t>(l_entry.m_parent)].m_visible = true;
    }
    return l_entries.front().m_visible;
}

std::vector<ShareDownload> ShareForm::Downloads(std::string const& i_action) const
{
    std::vector<ShareDownload> l_downloads;
    if (!mp_share)
        return l_downloads;
    auto const l_add = [&l_downloads](ItemPtr i_file) {
        ItemPtr const l_folder = i_file["user_share_folder"];
        l_downloads.push_back({l_folder["user_share"]["user"].AsString(), i_file["user_share_file_name"].AsString(),
                               l_folder["user_share_folder_name"].AsString(), i_file["user_share_file_size"].AsInt64()});
    };
    if (i_action == "download_share_folder")
    {
        for (QTreeWidgetItem* lp_row : mp_ui->folderTree->selectedItems())
            for (Item* lp_file : ItemPtr(FolderOfRow(lp_row)).GetItems("user_share_file"))
                l_add(lp_file);
    }
    else if (i_action == "download_share_file")
    {
        for (QTreeWidgetItem* lp_row : mp_ui->fileList->selectedItems())
            if (ItemPtr const l_file = mp_fileNodeType->HasItem(Value(lp_row))["user_share_file"])
                l_add(l_file);
    }
    return l_downloads;
}

void ShareForm::OnActionBarTriggered(std::string i_action)
{
    if (i_action == "download_share_folder" || i_action == "download_share_file")
        AddDownloads(Downloads(i_action));
}

void ShareForm::OnShareRemoved()
{
    mp_share = nullptr;
    QMetaObject::invokeMethod(this, [this] { emit CloseRequested(this); }, Qt::QueuedConnection);
}

void ShareForm::Delete()
{
    ClearFileList();
    // The folders are found through the rows as well, since a replaced share is gone and its
    // folders are reachable only from here.
    ItemSet l_folders = ItemPtr(mp_share).GetItems("user_share_folder");
    for (QTreeWidgetItem* lp_row : m_folderRows)
        if (Item* lp_folder = FolderOfRow(lp_row))
            l_folders.insert(lp_folder);
    for (Item* lp_folder : l_folders)
        ItemPtr(lp_folder).GetItems("user_share_file").Remove();
    l_folders.Remove();
    // The tab goes first, so that the share's removal finds no tab to tell.
    if (ItemPtr const l_tab = d.GetType("user_share_tab")->HasItem(Value(static_cast<QWidget*>(this))))
        l_tab.Remove();
    if (Item* lp_share = mp_share)
    {
        mp_share = nullptr;
        lp_share->Remove();
    }
    d.RemoveDisconnectedItems();
    delete this;
}

void ShareForm::DeleteFolderRows()
{
    QTreeWidget* lp_tree = mp_ui->folderTree;
    disconnect(lp_tree, nullptr, this, nullptr);
    // The view tracks expanded and hidden rows by index; with none left, taking the rows out
    // costs the view nothing per level.
    lp_tree->collapseAll();
    for (QTreeWidgetItem* lp_row : m_folderRows)
        if (lp_row->isHidden())
            lp_row->setHidden(false);
    lp_tree->invisibleRootItem()->takeChildren();
    // Backwards in building order a row comes after all its descendants and is the last child
    // its parent has left, so each deletion is of a leaf.
    for (auto l_row = m_folderRows.rbegin(); l_row != m_folderRows.rend(); ++l_row)
    {
        if (QTreeWidgetItem* lp_parent = (*l_row)->parent())
            lp_parent->takeChild(lp_parent->childCount() - 1);
        delete *l_row;
    }
    m_folderRows.clear();
}

void ShareForm::showEvent(QShowEvent* ip_event)
{
    QWidget::showEvent(ip_event);
    if (eventToolBar)
        eventToolBar->RemoveEvent(mp_ui->folderTree);
}
