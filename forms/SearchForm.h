#pragma once

#include <QElapsedTimer>
#include <QPointer>
#include <QStringList>
#include <QTimer>
#include <QWidget>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "forms/RemoteFile.h"
#include "store/DataHandler.h"
#include "store/ItemPtr.h"

namespace Ui
{
class SearchForm;
}
class Item;
class QLineEdit;
class QTabWidget;
class QTreeWidget;
class SearchResultsForm;

// The "Search" page: the line to type a search in, one tab of results per search, and the wish
// list of searches that repeat by themselves. Each tab is tied to its searches by a
// `search_results_widget` item keyed by the tab's address, and each row to what it shows by a
// node item keyed by the row's address.
class SearchForm : public QWidget, public DataHandler
{
    Q_OBJECT
public:
    // How long one turn of the event loop may spend on results before the rest waits for the
    // next turn: a peer may send thousands of records in one message, and many messages
    // arrive in one turn.
    static constexpr int s_sliceMilliseconds = 20;

    explicit SearchForm(QWidget* ip_parent = nullptr);
    ~SearchForm() override;

    // After the data file is loaded: types, actions, signals and the saved wish list.
    void Init();

    QLineEdit* SearchEdit() const;
    QTabWidget* TabControl() const;
    QTreeWidget* WishList() const;
    // The tab showing the search with this ticket; null when there is none.
    static SearchResultsForm* FormOfRequest(unsigned int i_req);
    // Results still waiting for their rows, in messages.
    std::size_t PendingMessages() const { return m_pending.size(); }

    // The files the download action would fetch from the current tab's selection:
    // `download_search_results_file` or `download_search_results_folder`.
    std::vector<RemoteFile> Downloads(std::string const& i_action) const;

    void OnWishListItemAdded(Item* ip_item);
    void OnWishListItemRemoved(Item* ip_item);

public slots:
    void OnSearchRequest(unsigned int i_req, std::string const& i_search, bool i_wishListSearch);
    void OnSearchEntered();
    void OnTabCloseRequested(int i_tabIndex);
    void OnActionBarTriggered(std::string i_action);
    void OnUserSearchResults(ItemPtr i_searchResults);
    void OnSearchResultsContextMenuRequested(QPoint const& i_point);
    void OnFilterTextChanged(QString i_text);
    void OnWishListItemCheckStateChanged(int i_state);

protected:
    bool eventFilter(QObject* ip_watched, QEvent* ip_event) override;
    void showEvent(QShowEvent* ip_event) override;

private:
    bool m_splitterPlaced = false;
    // One message of results whose rows are not all made yet.
    struct Pending
    {
        QPointer<SearchResultsForm> mp_form;
        Item* mp_results;
        std::vector<Item*> m_results; // filled when the first row is made
        std::size_t m_next = 0;
    };

    void DeclareTypes();
    void DeclareActions();
    void SetUpWishList();
    void SetUpKeys();
    SearchResultsForm* CreateSearchForm(unsigned int i_req, std::string const& i_search, bool i_wishList);
    // The message's results in the order their rows are made.
    static void SortedResults(Pending& io_pending);
    // Makes rows until all of the message are made or the turn's time is used up; true when done.
    bool AddRows(Pending& io_pending);
    void OnSearchResult(ItemPtr i_widget, ItemPtr i_result, SearchResultsForm* ip_form, QStringList const& i_terms);
    void StartTurn();
    void RunSlices();
    void OnNextSlice();
    void FinishMessage(SearchResultsForm* ip_form);
    void OnSearchResultsRemoved(Item* ip_results);
    SearchResultsForm* CurrentForm() const;
    SearchResultsForm* KeyedForm() const;
    void Expand(SearchResultsForm* ip_form, char const* i_type, QString const& i_text);
    void Order(SearchResultsForm* ip_form, int i_column);
    void ToggleWishList(SearchResultsForm* ip_form);
    void SetAllWishListBoxes(bool i_checked);
    void RemoveSelectedWishListItems();

    std::unique_ptr<Ui::SearchForm> mp_ui;
    std::deque<Pending> m_pending;
    // Time spent on results in this turn of the event loop; invalid once the turn is over.
    QElapsedTimer m_turnClock;
    QTimer m_turnEndTimer;
    QTimer m_sliceTimer;
};
