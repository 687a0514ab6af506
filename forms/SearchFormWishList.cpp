// The wish list of the search page: one row per wish list item, with a box that enables it.
#include <QCheckBox>
#include <QHeaderView>
#include <QTreeWidget>

#include "forms/SearchForm.h"
#include "forms/SearchResultsForm.h"
#include "shell/ActionSetToolBar.h"
#include "store/Data.h"

namespace
{
ItemPtr Enabled()
{
    return d.GetType("wish_list_item_enabled")->GetGlobalNullItem();
}

void ShowEnabled(QTreeWidgetItem* ip_row, bool i_enabled)
{
    ip_row->setText(0, i_enabled ? QStringLiteral("Y") : QString());
}
} // namespace

void SearchForm::SetUpWishList()
{
    QTreeWidget* lp_list = WishList();
    lp_list->setColumnWidth(0, 20);
    lp_list->header()->setStretchLastSection(true);
    for (Item* lp_item : g("wish_list_item"))
        OnWishListItemAdded(lp_item);
    if (actionBar)
    {
        std::string const l_icon = ":/icons/wishlist_icon";
        actionBar->AddSetAction("wish_list", "remove_wish_list_item", "Remove Wish List Search", l_icon, false);
        actionBar->AddSetAction("wish_list", "enable_all_wish_list_items", "Enable All Wish List Searches", l_icon, false);
        actionBar->AddSetAction("wish_list", "disable_all_wish_list_items", "Disable All Wish List Searches", l_icon, false);
        actionBar->RegisterWidget(lp_list, QStringLiteral("wish_list"));
    }
    lp_list->setSortingEnabled(true);
    lp_list->sortByColumn(1, Qt::AscendingOrder);
}

void SearchForm::OnWishListItemAdded(Item* ip_item)
{
    ItemPtr const l_item(ip_item);
    bool const l_enabled = l_item.IsConnected(Enabled());
    auto* lp_row = new QTreeWidgetItem();
    lp_row->setText(1, QString::fromUtf8(l_item.AsString()));
    ShowEnabled(lp_row, l_enabled);
    lp_row->setTextAlignment(0, Qt::AlignCenter);
    WishList()->addTopLevelItem(lp_row);
    auto* lp_box = new QCheckBox();
    // The box stands over the column's "Y", which is there for sorting and screen readers.
    lp_box->setAutoFillBackground(true);
    lp_box->setChecked(l_enabled);
    WishList()->setItemWidget(lp_row, 0, lp_box);

    ItemPtr const l_node = d.GetType("wish_list_node")->GetItem(Value(lp_row));
    l_item += l_node;
    l_node += d.GetType("wish_list_node_checkbox")->GetItem(Value(static_cast<QObject*>(lp_box)));
    connect(lp_box, &QCheckBox::stateChanged, this, &SearchForm::OnWishListItemCheckStateChanged);
}

void SearchForm::OnWishListItemCheckStateChanged(int i_state)
{
    ItemPtr const l_node = d.GetType("wish_list_node_checkbox")->HasItem(Value(sender()))["wish_list_node"];
    ItemPtr const l_item = l_node["wish_list_item"];
    if (!l_item || (i_state != Qt::Checked && i_state != Qt::Unchecked))
        return;
    if (i_state == Qt::Checked)
        l_item += Enabled();
    else
        l_item -= Enabled();
    ShowEnabled(l_node.AsPointer<QTreeWidgetItem>(), i_state == Qt::Checked);
}

void SearchForm::OnWishListItemRemoved(Item* ip_item)
{
    ItemPtr const l_node = ItemPtr(ip_item)["wish_list_node"];
    if (!l_node)
        return;
    ItemPtr const l_box = l_node["wish_list_node_checkbox"];
    delete l_node.AsPointer<QTreeWidgetItem>();
    if (l_box)
        l_box.Remove();
    l_node.Remove();
}

void SearchForm::ToggleWishList(SearchResultsForm* ip_form)
{
    ItemPtr const l_widget = d.GetType("search_results_widget")->HasItem(Value(static_cast<QWidget*>(ip_form)));
    ItemSet const l_requests = l_widget.GetItems("search_request");
    if (l_requests.empty())
        return;
    // The oldest request names the search: all of a tab's have the same text.
    ItemPtr const l_request = l_requests.SortNumeric(true).front();
    std::string const l_text = l_request["search_request_text"].AsString();
    ItemPtr const l_wish = d.GetType("wish_list_item")->HasItem(l_text);
    if (l_request.IsConnected("wishlist_search"))
    {
        if (l_wish)
            l_wish.Remove();
        return;
    }
    if (l_wish)
        return;
    ItemPtr const l_new = d.GetType("wish_list_item")->GetItem(l_text);
    l_new += Enabled();
    OnWishListItemAdded(l_new);
}

void SearchForm::SetAllWishListBoxes(bool i_checked)
{
    QTreeWidget* lp_list = WishList();
    for (int l_row = 0; l_row < lp_list->topLevelItemCount(); ++l_row)
        if (auto* lp_box = qobject_cast<QCheckBox*>(lp_list->itemWidget(lp_list->topLevelItem(l_row), 0)))
            lp_box->setChecked(i_checked);
}

void SearchForm::RemoveSelectedWishListItems()
{
    // The items first: each removal deletes its row.
    ItemSet l_items;
    for (QTreeWidgetItem* lp_row : WishList()->selectedItems())
        if (Item* lp_item = d.GetType("wish_list_node")->HasItem(Value(lp_row))["wish_list_item"])
            l_items.insert(lp_item);
    l_items.Remove();
}
