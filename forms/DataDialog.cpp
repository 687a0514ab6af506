#include "forms/DataDialog.h"

#include <QScrollBar>

#include "forms/DataItemListModel.h"
#include "forms/DataTreeModel.h"
#include "store/Data.h"
#include "ui_DataDialog.h"

namespace
{
enum TypeColumn
{
    TypeNameColumn,
    TypeKindColumn,
    TypeCountColumn
};
} // namespace

DataDialog::DataDialog(Data* ip_data, QWidget* ip_parent)
    : QDialog(ip_parent), mp_data(ip_data), mp_ui(std::make_unique<Ui::DataDialog>())
{
    mp_ui->setupUi(this);
    setAttribute(Qt::WA_DeleteOnClose);
    mp_ui->typeSplitter->setSizes({300, width() - 300});
    mp_ui->typeSplitter->setStretchFactor(0, 0);
    mp_ui->typeSplitter->setStretchFactor(1, 1);
    mp_ui->typeList->header()->setSectionResizeMode(QHeaderView::ResizeToContents);

    mp_itemModel = new DataItemListModel(this);
    mp_ui->itemList->setModel(mp_itemModel);
    mp_treeModel = new DataTreeModel(this);
    mp_ui->itemDataTree->setModel(mp_treeModel);
    // The tree's one column is the clicked item's connections; a header would only number it.
    mp_ui->itemDataTree->setHeaderHidden(true);

    for (auto const& [l_name, lp_type] : mp_data->Types())
        ShowCount(lp_type, lp_type->ItemCount());
    mp_ui->typeList->setSortingEnabled(true);
    mp_ui->typeList->sortByColumn(TypeNameColumn, Qt::AscendingOrder);

    connect(mp_ui->typeList, &QTreeWidget::itemSelectionChanged, this, &DataDialog::OnTypeItemSelectionChanged);
    connect(mp_ui->itemList, &QListView::clicked, this, &DataDialog::OnItemClicked);
    connect(mp_ui->itemDataTree, &QTreeView::expanded, this, &DataDialog::OnDataSubItemExpanded);
    QScrollBar* lp_scrollBar = mp_ui->itemDataTree->verticalScrollBar();
    connect(lp_scrollBar, &QScrollBar::valueChanged, this, &DataDialog::FetchChildrenInSight);
    connect(lp_scrollBar, &QScrollBar::rangeChanged, this, &DataDialog::FetchChildrenInSight);

    m_countTimer.setSingleShot(true);
    m_countTimer.setInterval(0);
    connect(&m_countTimer, &QTimer::timeout, this, &DataDialog::ShowChangedCounts);
    mp_data->m_itemAddedEvent.Add(MakeHandler(&DataDialog::OnItemAdded));
    mp_data->m_itemRemovedEvent.Add(MakeHandler(&DataDialog::OnItemRemoved));
}

DataDialog::~DataDialog()
{
    RemoveDataHandlers();
}

void DataDialog::CountChanged(Type* ip_type)
{
    // Resizing the columns to the new text costs more than the event itself, so the counts of
    // a burst of events are written once, before the next paint.
    m_changedCounts.insert(ip_type);
    if (!m_countTimer.isActive())
        m_countTimer.start();
}

void DataDialog::ShowChangedCounts()
{
    for (Type* lp_type : m_changedCounts)
        ShowCount(lp_type, lp_type->ItemCount());
    m_changedCounts.clear();
}

void DataDialog::ShowCount(Type* ip_type, std::size_t i_count)
{
    QTreeWidgetItem*& lp_row = m_typeRows[ip_type];
    if (!lp_row)
    {
        lp_row = new QTreeWidgetItem(mp_ui->typeList);
        lp_row->setText(TypeNameColumn, QString::fromStdString(ip_type->GetName()));
        lp_row->setText(TypeKindColumn, ip_type->IsNull() ? QStringLiteral("null   ") : QStringLiteral("value   "));
    }
    lp_row->setText(TypeCountColumn, QString::number(i_count));
}

void DataDialog::ClearItemDataTree()
{
    mp_clickedItem = nullptr;
    mp_treeModel->Clear();
}

void DataDialog::OnTypeItemSelectionChanged()
{
    QList<QTreeWidgetItem*> const l_selected = mp_ui->typeList->selectedItems();
    if (l_selected.isEmpty())
        return;
    ClearItemDataTree();
    mp_selectedType = mp_data->FindType(l_selected.front()->text(TypeNameColumn).toStdString());
    mp_itemModel->Show(mp_selectedType);
}

void DataDialog::OnItemClicked(QModelIndex const& i_index)
{
    Item* lp_item = mp_itemModel->ItemAt(i_index.row());
    if (!lp_item)
        return;
    mp_treeModel->Clear();
    mp_clickedItem = lp_item;
    AddItemSubnodes(mp_treeModel->SetTop(lp_item), {lp_item->GetType()});
}

void DataDialog::AddItemSubnodes(QModelIndex const& i_node, std::set<Type*> const& i_types)
{
    mp_treeModel->AddItemSubnodes(i_node, i_types);
    mp_ui->itemDataTree->expand(i_node);
}

void DataDialog::OnDataSubItemExpanded(QModelIndex const& i_index)
{
    if (mp_treeModel->TakeUnloaded(i_index))
    {
        QPersistentModelIndex const l_node(i_index);
        AddItemSubnodes(l_node, {mp_treeModel->ItemOf(l_node)->GetType()});
        if (l_node.isValid())
            mp_ui->itemDataTree->selectionModel()->setCurrentIndex(l_node, QItemSelectionModel::ClearAndSelect);
    }
    FetchChildrenInSight();
}

void DataDialog::FetchChildrenInSight()
{
    // Fetching lays the view out again, which reports a new scroll range: that must not fetch
    // inside this walk.
    if (m_fetching)
        return;
    m_fetching = true;
    QTreeView* lp_view = mp_ui->itemDataTree;
    int const l_bottom = lp_view->viewport()->height();
    for (bool l_fetched = true; l_fetched;)
    {
        l_fetched = false;
        for (QModelIndex const& l_node : mp_treeModel->NodesWithPending())
        {
            if (!lp_view->isExpanded(l_node))
                continue;
            // The last child made, or the node itself when the removal of items took them all.
            int const l_children = mp_treeModel->rowCount(l_node);
            QRect const l_last =
                lp_view->visualRect(l_children > 0 ? mp_treeModel->index(l_children - 1, 0, l_node) : l_node);
            if (l_last.isValid() && l_last.bottom() >= 0 && l_last.top() <= l_bottom)
            {
                mp_treeModel->fetchMore(l_node);
                l_fetched = true;
            }
        }
    }
    m_fetching = false;
}

void DataDialog::OnItemAdded(Item* ip_item)
{
    // An earlier listener of the same event may have removed it already.
    if (ip_item->IsRemoved())
        return;
    CountChanged(ip_item->GetType());
    if (ip_item->GetType() == mp_selectedType)
        mp_itemModel->Add(ip_item);
}

void DataDialog::OnItemRemoved(Item* ip_item)
{
    // Counted once the item has left its type's index, which is after its removal is announced.
    CountChanged(ip_item->GetType());
    if (ip_item->GetType() == mp_selectedType)
        mp_itemModel->Remove(ip_item);
    if (ip_item == mp_clickedItem)
        ClearItemDataTree();
    mp_treeModel->RemoveItem(ip_item);
}
