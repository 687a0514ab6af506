#include "forms/SearchForm.h"

#include <QApplication>
#include <QMenu>
#include <QMouseEvent>
#include <QShortcut>
#include <QTabBar>

#include <utility>

#include "forms/SearchResultListItem.h"
#include "forms/SearchResultsForm.h"
#include "forms/UserMenuOptions.h"
#include "peer/PeerMessenger.h"
#include "server/Server.h"
#include "server/ServerSchema.h"
#include "shell/ActionSetToolBar.h"
#include "shell/EventToolBar.h"
#include "shell/FocusWidget.h"
#include "shell/SizeManager.h"
#include "store/Data.h"
#include "ui_SearchForm.h"

namespace
{
ItemPtr WidgetItemOf(SearchResultsForm* ip_form)
{
    return d.GetType("search_results_widget")->HasItem(Value(static_cast<QWidget*>(ip_form)));
}

QString WidgetKey(SearchResultsForm* ip_form)
{
    return QString::fromStdString(Value(static_cast<QWidget*>(ip_form)).Str());
}
} // namespace

SearchForm::SearchForm(QWidget* ip_parent) : QWidget(ip_parent), mp_ui(std::make_unique<Ui::SearchForm>())
{
    mp_ui->setupUi(this);
    // Both fire at the next turn of the event loop.
    m_sliceTimer.setSingleShot(true);
    m_sliceTimer.setInterval(0);
    connect(&m_sliceTimer, &QTimer::timeout, this, &SearchForm::OnNextSlice);
    m_turnEndTimer.setSingleShot(true);
    m_turnEndTimer.setInterval(0);
    connect(&m_turnEndTimer, &QTimer::timeout, this, [this] { m_turnClock.invalidate(); });
}

SearchForm::~SearchForm() = default;

QLineEdit* SearchForm::SearchEdit() const
{
    return mp_ui->searchEdit;
}

QTabWidget* SearchForm::TabControl() const
{
    return mp_ui->searchTabControl;
}

QTreeWidget* SearchForm::WishList() const
{
    return mp_ui->wishList;
}

void SearchForm::Init()
{
    connect(gp_server, &Server::SearchRequested, this, &SearchForm::OnSearchRequest);
    connect(peerMessenger, &PeerMessenger::SearchResults, this, &SearchForm::OnUserSearchResults);
    if (actionBar)
        connect(actionBar, &ActionSetToolBar::ActionTriggered, this, &SearchForm::OnActionBarTriggered);
    connect(mp_ui->searchTabControl, &QTabWidget::tabCloseRequested, this, &SearchForm::OnTabCloseRequested);
    connect(mp_ui->searchEdit, &QLineEdit::returnPressed, this, &SearchForm::OnSearchEntered);

    DeclareTypes();
    DeclareActions();
    // The sizes are set when the page is first shown: before that the splitter has no width,
    // and a results side of 0 pixels would stay collapsed.
    mp_ui->searchSplitter->setCollapsible(0, false);
    mp_ui->searchSplitter->setStretchFactor(0, 1);
    mp_ui->searchSplitter->setStretchFactor(1, 0);
    SetUpWishList();
    SetUpKeys();
}

void SearchForm::showEvent(QShowEvent* ip_event)
{
    QWidget::showEvent(ip_event);
    if (std::exchange(m_splitterPlaced, true))
        return;
    QList<int> const l_sizes{qMax(0, mp_ui->searchSplitter->width() - 200), 200};
    mp_ui->searchSplitter->setSizes(l_sizes);
    // Registered here rather than at start-up: only a shown splitter has a width to store.
    if (sizeManager)
        sizeManager->RegisterSplitter(QStringLiteral("wish_list_splitter"), mp_ui->searchSplitter, l_sizes);
}

void SearchForm::DeclareTypes()
{
    d.NewType("search_results_widget", true, false, true);
    d.NewType("expand_folders", false, false, true);
    d.NewType("expand_users", false, false, true);
    d.NewType("search_results_user_node", false, false, true);
    d.NewType("search_results_folder_node", false, false, true);
    d.NewType("search_result_node", false, false, true);
    d.NewType("wish_list_node", true, false, true);
    d.NewType("wish_list_node_checkbox", true, false, true);

    // As (left, right, what a left item holds, what a right item holds, owning).
    RelateOnceByName("search_results_widget", "search_request", Many, One, false);
    RelateOnceByName("search_results_widget", "wish_list_item", One, One, false);
    RelateOnceByName("search_results_widget", "expand_folders", One, Many, false);
    RelateOnceByName("search_results_widget", "expand_users", One, Many, false);
    RelateOnceByName("search_results_widget", "search_results_user_node", Many, One, true);
    RelateOnceByName("search_results_user_node", "user", One, Many, false);
    RelateOnceByName("search_results_user_node", "search_results_folder_node", Many, One, true);
    RelateOnceByName("search_results_folder_node", "search_result_file_folder", One, Many, false);
    RelateOnceByName("search_result_node", "search_result", One, One, false);
    RelateOnceByName("search_result_node", "search_results_folder_node", One, Many, false);
    RelateOnceByName("wish_list_item", "wish_list_node", One, One, false);
    RelateOnceByName("wish_list_node", "wish_list_node_checkbox", One, One, false);

    ListenItemRemoved("wish_list_item", &SearchForm::OnWishListItemRemoved);
    ListenItemRemoved("search_results", &SearchForm::OnSearchResultsRemoved);
}

void SearchForm::DeclareActions()
{
    if (!actionBar)
        return;
    // The two download actions join the set once downloads can be queued.
    std::string const l_search = ":/icons/search_icon";
    std::string const l_transfer = ":/icons/transfer_icon";
    actionBar->AddSetAction("search_results", "download_search_results_file", "Download File", l_transfer, false);
    actionBar->AddSetAction("search_results", "download_search_results_folder", "Download Folder", l_transfer, false);
    actionBar->AddSetAction("search_results", "order_by_available", "Order by Available", l_search, false);
    actionBar->AddSetAction("search_results", "order_by_fastest", "Order by Fastest", l_search, false);
    actionBar->AddSetAction("search_results", "expand_folders", "Expand Folders", l_search, false);
    actionBar->AddSetAction("search_results", "expand_users", "Expand Users", l_search, false);
    actionBar->AddSetAction("search_results", "add_remove_wishlist", "Add to Wishlist", ":/icons/wishlist_icon", false);
}

void SearchForm::SetUpKeys()
{
    auto const l_shortcut = [this](QKeySequence const& i_key, QWidget* ip_on, Qt::ShortcutContext i_context, auto i_call) {
        connect(new QShortcut(i_key, ip_on, nullptr, nullptr, i_context), &QShortcut::activated, this, i_call);
    };
    // Within a tab of results, Ctrl+F finds among them; elsewhere on the page it finds on the
    // network, as it does from every other page.
    l_shortcut(QKeySequence(Qt::CTRL | Qt::Key_F), this, Qt::WidgetWithChildrenShortcut, [this] {
        SearchResultsForm* lp_form = CurrentForm();
        if (lp_form && lp_form->isAncestorOf(QApplication::focusWidget()))
            lp_form->filterEdit()->setFocus(Qt::ShortcutFocusReason);
        else
        {
            mp_ui->searchEdit->setFocus(Qt::ShortcutFocusReason);
            mp_ui->searchEdit->selectAll();
        }
    });
    l_shortcut(QKeySequence(Qt::CTRL | Qt::Key_L), this, Qt::WidgetWithChildrenShortcut, [this] {
        mp_ui->searchEdit->setFocus(Qt::ShortcutFocusReason);
        mp_ui->searchEdit->selectAll();
    });
    l_shortcut(QKeySequence(Qt::Key_Delete), mp_ui->wishList, Qt::WidgetShortcut, [this] { RemoveSelectedWishListItems(); });
    mp_ui->searchTabControl->tabBar()->installEventFilter(this);
}

bool SearchForm::eventFilter(QObject* ip_watched, QEvent* ip_event)
{
    QTabBar* lp_bar = mp_ui->searchTabControl->tabBar();
    if (ip_watched == lp_bar && ip_event->type() == QEvent::MouseButtonRelease)
    {
        auto* lp_mouse = static_cast<QMouseEvent*>(ip_event);
        int const l_index = lp_bar->tabAt(lp_mouse->position().toPoint());
        if (lp_mouse->button() == Qt::MiddleButton && l_index >= 0)
        {
            OnTabCloseRequested(l_index);
            return true;
        }
    }
    return QWidget::eventFilter(ip_watched, ip_event);
}

void SearchForm::OnSearchEntered()
{
    // Sent as typed: blanks and case are the searcher's to choose, and an empty line too.
    std::string const l_text = mp_ui->searchEdit->text().toUtf8().toStdString();
    gp_server->FileSearch(l_text, false);
    mp_ui->searchEdit->clear();
}

void SearchForm::OnSearchRequest(unsigned int i_req, std::string const& i_search, bool i_wishListSearch)
{
    // A wish list search gets its tab with its first result.
    if (!i_wishListSearch)
        CreateSearchForm(i_req, i_search, false);
}

SearchResultsForm* SearchForm::CreateSearchForm(unsigned int i_req, std::string const& i_search, bool i_wishList)
{
    ItemPtr const l_request = d.GetType("search_request")->HasItem(Value(i_req));
    ItemPtr l_wish;
    if (i_wishList)
    {
        l_wish = d.GetType("wish_list_item")->HasItem(i_search);
        if (!l_wish)
            return nullptr;
        // One tab across all the repetitions of a wish list search.
        if (ItemPtr const l_widget = l_wish["search_results_widget"])
        {
            if (l_request)
                l_widget += l_request;
            return l_widget.AsPointer<SearchResultsForm>();
        }
    }

    QTabWidget* lp_tabs = mp_ui->searchTabControl;
    auto* lp_form = new SearchResultsForm(lp_tabs);
    QString const l_icon = i_wishList ? QStringLiteral(":/icons/wishlist_icon") : QStringLiteral(":/icons/search_icon");
    QString const l_title = QString::fromUtf8(i_search);
    // "&" would otherwise mark a shortcut letter and vanish from the tab.
    lp_tabs->addTab(lp_form, QIcon(l_icon), QString(l_title).replace(QLatin1Char('&'), QStringLiteral("&&")));
    lp_tabs->setTabToolTip(lp_tabs->indexOf(lp_form), QStringLiteral("0 users, 0 files"));

    ItemPtr const l_widget = d.GetType("search_results_widget")->GetItem(Value(static_cast<QWidget*>(lp_form)));
    if (l_request)
        l_widget += l_request;
    if (i_wishList)
    {
        l_widget += l_wish;
        if (eventToolBar)
            eventToolBar->AddEvent(l_title, l_icon, lp_form);
    }

    if (actionBar)
    {
        actionBar->RegisterWidget(lp_form, QStringLiteral("search_results"));
        actionBar->AddWidgetKey(lp_form, QStringLiteral("widget"), WidgetKey(lp_form));
        if (i_wishList)
            actionBar->SetWidgetActionText(lp_form, QStringLiteral("add_remove_wishlist"), QStringLiteral("Remove from Wish List"));
        actionBar->SetWidgetActionText(lp_form, QStringLiteral("order_by_available"), QStringLiteral("Order by Available [on]"));
        actionBar->SetWidgetActionText(lp_form, QStringLiteral("order_by_fastest"), QStringLiteral("Order by Fastest"));
        actionBar->SetWidgetActionText(lp_form, QStringLiteral("expand_folders"), QStringLiteral("Expand Folders [on]"));
        actionBar->SetWidgetActionText(lp_form, QStringLiteral("expand_users"), QStringLiteral("Expand Users [on]"));
    }
    l_widget += d.GetType("expand_folders")->GetItem("yes");
    l_widget += d.GetType("expand_users")->GetItem("yes");
    lp_form->SetSortingParamters(SearchResultListItem::FreeColumn, Qt::DescendingOrder);

    // FocusWidget, since focus given to a widget on a hidden tab is lost.
    if (!i_wishList)
        FocusWidget(lp_form->searchResults());

    QTreeWidget* lp_tree = lp_form->searchResults();
    if (sizeManager)
        sizeManager->RegisterTreeWidget(QStringLiteral("search_results"), lp_tree);
    lp_tree->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(lp_tree, &QWidget::customContextMenuRequested, this, &SearchForm::OnSearchResultsContextMenuRequested);
    connect(lp_form->filterEdit(), &QLineEdit::textChanged, this, &SearchForm::OnFilterTextChanged);
    QLineEdit* lp_filter = lp_form->filterEdit();
    connect(new QShortcut(QKeySequence(Qt::Key_Escape), lp_filter, nullptr, nullptr, Qt::WidgetShortcut),
            &QShortcut::activated, lp_filter, &QLineEdit::clear);
    return lp_form;
}

SearchResultsForm* SearchForm::FormOfRequest(unsigned int i_req)
{
    return d.GetType("search_request")->HasItem(Value(i_req))["search_results_widget"].AsPointer<SearchResultsForm>();
}

void SearchForm::OnTabCloseRequested(int i_tabIndex)
{
    auto* lp_form = qobject_cast<SearchResultsForm*>(mp_ui->searchTabControl->widget(i_tabIndex));
    ItemPtr const l_widget = WidgetItemOf(lp_form);
    if (!lp_form || !l_widget)
        return;
    std::erase_if(m_pending, [lp_form](Pending const& i_pending) { return i_pending.mp_form == lp_form; });
    ItemSet const l_requests = l_widget.GetItems("search_request");
    // The node items of the rows go with the widget item, which owns them.
    l_widget.Remove();
    mp_ui->searchTabControl->removeTab(i_tabIndex);
    delete lp_form;
    for (Item* lp_request : l_requests)
    {
        ItemPtr(lp_request).GetItems("search_results").Remove();
        lp_request->Remove();
    }
    d.RemoveDisconnectedItems();
}

SearchResultsForm* SearchForm::CurrentForm() const
{
    return qobject_cast<SearchResultsForm*>(mp_ui->searchTabControl->currentWidget());
}

SearchResultsForm* SearchForm::KeyedForm() const
{
    if (!actionBar)
        return nullptr;
    ItemPtr const l_widget = d.GetType("search_results_widget")->HasItem(actionBar->GetKey(QStringLiteral("widget")).toStdString());
    auto* lp_form = l_widget.AsPointer<SearchResultsForm>();
    return lp_form && mp_ui->searchTabControl->indexOf(lp_form) >= 0 ? lp_form : nullptr;
}

void SearchForm::OnActionBarTriggered(std::string i_action)
{
    if (i_action == "expand_folders" || i_action == "expand_users")
    {
        if (SearchResultsForm* lp_form = KeyedForm())
            Expand(lp_form, i_action.c_str(),
                   i_action == "expand_folders" ? QStringLiteral("Expand Folders") : QStringLiteral("Expand Users"));
    }
    else if (i_action == "order_by_available" || i_action == "order_by_fastest")
    {
        if (SearchResultsForm* lp_form = KeyedForm())
            Order(lp_form, i_action == "order_by_available" ? SearchResultListItem::FreeColumn : SearchResultListItem::SpeedColumn);
    }
    else if (i_action == "add_remove_wishlist")
    {
        if (SearchResultsForm* lp_form = CurrentForm())
            ToggleWishList(lp_form);
    }
    else if (i_action == "download_search_results_file" || i_action == "download_search_results_folder")
        AddDownloads(Downloads(i_action));
    else if (i_action == "remove_wish_list_item")
        RemoveSelectedWishListItems();
    else if (i_action == "enable_all_wish_list_items" || i_action == "disable_all_wish_list_items")
        SetAllWishListBoxes(i_action == "enable_all_wish_list_items");
}

void SearchForm::Expand(SearchResultsForm* ip_form, char const* i_type, QString const& i_text)
{
    ItemPtr const l_widget = WidgetItemOf(ip_form);
    bool const l_expand = l_widget[i_type].AsString() != "yes";
    l_widget.Disconnect(i_type);
    l_widget += d.GetType(i_type)->GetItem(l_expand ? "yes" : "no");
    if (actionBar)
        actionBar->SetWidgetActionText(ip_form, QString::fromLatin1(i_type),
                                       i_text + (l_expand ? QStringLiteral(" [on]") : QStringLiteral(" [off]")));
    bool const l_folders = std::string_view(i_type) == "expand_folders";
    QTreeWidget* lp_tree = ip_form->searchResults();
    for (int l_user = 0; l_user < lp_tree->topLevelItemCount(); ++l_user)
    {
        QTreeWidgetItem* lp_user = lp_tree->topLevelItem(l_user);
        if (!l_folders)
            lp_user->setExpanded(l_expand);
        else
            for (int l_folder = 0; l_folder < lp_user->childCount(); ++l_folder)
                lp_user->child(l_folder)->setExpanded(l_expand);
    }
}

void SearchForm::Order(SearchResultsForm* ip_form, int i_column)
{
    bool const l_available = i_column == SearchResultListItem::FreeColumn;
    if (actionBar)
    {
        actionBar->SetWidgetActionText(ip_form, QStringLiteral("order_by_available"),
                                       l_available ? QStringLiteral("Order by Available [on]") : QStringLiteral("Order by Available"));
        actionBar->SetWidgetActionText(ip_form, QStringLiteral("order_by_fastest"),
                                       l_available ? QStringLiteral("Order by Fastest") : QStringLiteral("Order by Fastest [on]"));
    }
    ip_form->SetSortingParamters(i_column, Qt::DescendingOrder);
    ip_form->Sort();
}

std::vector<RemoteFile> SearchForm::Downloads(std::string const& i_action) const
{
    SearchResultsForm* lp_form = CurrentForm();
    if (!lp_form)
        return {};
    if (i_action == "download_search_results_file")
        return lp_form->SelectedFiles();
    if (i_action == "download_search_results_folder")
        return lp_form->SelectedFolders();
    return {};
}

void SearchForm::OnSearchResultsContextMenuRequested(QPoint const& i_point)
{
    auto* lp_tree = qobject_cast<QTreeWidget*>(sender());
    if (!lp_tree && CurrentForm())
        lp_tree = CurrentForm()->searchResults();
    auto* lp_row = lp_tree ? static_cast<SearchResultListItem*>(lp_tree->itemAt(i_point)) : nullptr;
    if (!lp_row)
        return;
    // The name from the graph, byte for byte: the row's text is its decoded form.
    ItemPtr const l_user =
        d.GetType("search_results_user_node")->HasItem(Value(static_cast<QTreeWidgetItem*>(lp_row->UserRow())))["user"];
    if (!l_user)
        return;
    QMenu l_menu;
    for (auto const& [l_action, l_text] : {std::pair{"download_search_results_file", "Download File"},
                                           std::pair{"download_search_results_folder", "Download Folder"}})
        connect(l_menu.addAction(QIcon(QStringLiteral(":/icons/transfer_icon")), QString::fromLatin1(l_text)),
                &QAction::triggered, this, [this, l_action] { AddDownloads(Downloads(l_action)); });
    l_menu.addSeparator();
    new UserMenuOptions(&l_menu, l_user.AsString(), &l_menu);
    l_menu.exec(lp_tree->viewport()->mapToGlobal(i_point));
}
