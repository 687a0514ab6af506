// The results side of the search page: rows made from the messages of results, a slice of
// rows per turn of the event loop, and the filter.
#include <QLineEdit>
#include <QTabWidget>
#include <QTreeWidget>
#include <algorithm>
#include <string_view>
#include <tuple>

#include "forms/SearchForm.h"
#include "forms/SearchResultListItem.h"
#include "forms/SearchResultsForm.h"
#include "shares/SharedFoldersManager.h"
#include "store/Data.h"
#include "stream/NumberText.h"
#include "stream/PathNames.h"

namespace
{
// Rows between two looks at the clock.
constexpr std::size_t g_rowsPerClockLook = 32;

QTreeWidgetItem* RowOf(ItemPtr i_node)
{
    return i_node.AsPointer<QTreeWidgetItem>();
}

ItemPtr NewNode(char const* i_type, QTreeWidgetItem* ip_row)
{
    return d.GetType(i_type)->GetItem(Value(ip_row));
}
} // namespace

void SearchForm::OnUserSearchResults(ItemPtr i_searchResults)
{
    ItemPtr const l_request = i_searchResults["search_request"];
    if (!l_request)
        return;
    auto* lp_form = l_request["search_results_widget"].AsPointer<SearchResultsForm>();
    if (!lp_form)
    {
        if (!l_request.IsConnected("wishlist_search"))
            return;
        std::string const l_text = l_request["search_request_text"].AsString();
        ItemPtr const l_wish = d.GetType("wish_list_item")->HasItem(l_text);
        if (!l_wish || !l_wish.IsConnected("wish_list_item_enabled"))
            return;
        lp_form = CreateSearchForm(l_request.AsUInt(), l_text, true);
        if (!lp_form)
            return;
    }

    // Behind the messages still waiting, so that a user's first message makes its row.
    m_pending.push_back({lp_form, i_searchResults.Get(), {}});
    if (m_sliceTimer.isActive())
        return;
    if (!m_turnClock.isValid())
        StartTurn();
    RunSlices();
}

void SearchForm::StartTurn()
{
    m_turnClock.start();
    m_turnEndTimer.start();
}

void SearchForm::OnNextSlice()
{
    StartTurn();
    RunSlices();
}

void SearchForm::RunSlices()
{
    while (!m_pending.empty() && m_turnClock.elapsed() < s_sliceMilliseconds)
    {
        Pending& l_pending = m_pending.front();
        if (!l_pending.mp_form)
        {
            m_pending.pop_front();
            continue;
        }
        if (!AddRows(l_pending))
            break;
        SearchResultsForm* lp_form = l_pending.mp_form;
        m_pending.pop_front();
        FinishMessage(lp_form);
    }
    if (!m_pending.empty())
        m_sliceTimer.start();
}

bool SearchForm::AddRows(Pending& io_pending)
{
    if (io_pending.m_next == 0 && io_pending.m_results.empty())
        SortedResults(io_pending);
    ItemPtr const l_widget = d.GetType("search_results_widget")->HasItem(Value(static_cast<QWidget*>(io_pending.mp_form.data())));
    QStringList const l_terms = SearchResultsForm::FilterTerms(io_pending.mp_form->filterEdit()->text());
    while (io_pending.m_next < io_pending.m_results.size())
    {
        OnSearchResult(l_widget, io_pending.m_results[io_pending.m_next++], io_pending.mp_form, l_terms);
        if (io_pending.m_next % g_rowsPerClockLook == 0 && m_turnClock.elapsed() >= s_sliceMilliseconds)
            break;
    }
    return io_pending.m_next == io_pending.m_results.size();
}

void SearchForm::SortedResults(Pending& io_pending)
{
    // By folder and name rather than by address, so that the folders of one message come in
    // the same order every time.
    Type* lp_folderType = d.GetType("search_result_file_folder");
    Type* lp_nameType = d.GetType("search_result_file_name");
    std::vector<std::tuple<std::string_view, std::string_view, Item*>> l_keyed;
    for (Item* lp_result : io_pending.mp_results->ConnectedOfType(d.GetType("search_result")))
    {
        Item* lp_folder = lp_result->GetItem(lp_folderType);
        Item* lp_name = lp_result->GetItem(lp_nameType);
        l_keyed.emplace_back(lp_folder ? lp_folder->AsView() : std::string_view(),
                             lp_name ? lp_name->AsView() : std::string_view(), lp_result);
    }
    std::sort(l_keyed.begin(), l_keyed.end());
    io_pending.m_results.reserve(l_keyed.size());
    for (auto const& l_entry : l_keyed)
        io_pending.m_results.push_back(std::get<2>(l_entry));
}

void SearchForm::FinishMessage(SearchResultsForm* ip_form)
{
    ip_form->Sort();
    QTreeWidget* lp_tree = ip_form->searchResults();
    int l_files = 0;
    for (int l_user = 0; l_user < lp_tree->topLevelItemCount(); ++l_user)
        for (int l_folder = 0; l_folder < lp_tree->topLevelItem(l_user)->childCount(); ++l_folder)
            l_files += lp_tree->topLevelItem(l_user)->child(l_folder)->childCount();
    QTabWidget* lp_tabs = TabControl();
    lp_tabs->setTabToolTip(lp_tabs->indexOf(ip_form),
                           QStringLiteral("%1 users, %2 files").arg(lp_tree->topLevelItemCount()).arg(l_files));
}

void SearchForm::OnSearchResult(ItemPtr i_widget, ItemPtr i_result, SearchResultsForm* ip_form, QStringList const& i_terms)
{
    ItemPtr const l_results = i_result["search_results"];
    ItemPtr const l_user = l_results["user"];
    ItemPtr const l_folder = i_result["search_result_file_folder"];
    if (!l_user || !l_folder)
        return;

    // An existing row keeps what the user's first message said.
    ItemPtr l_userNode = d.GetItem(i_widget, l_user, "search_results_user_node");
    bool const l_newUser = !l_userNode;
    if (l_newUser)
    {
        auto* lp_row = new SearchResultListItem(ip_form->searchResults());
        lp_row->SetUser(QString::fromUtf8(l_user.AsString()), l_results["search_results_user_available"].AsString() == "yes",
                        l_results["search_results_uploads_in_queue"].AsUInt(), l_results["search_results_user_speed"].AsUInt());
        l_userNode = NewNode("search_results_user_node", lp_row);
        i_widget += l_userNode;
        l_userNode += l_user;
    }
    QTreeWidgetItem* lp_userRow = RowOf(l_userNode);

    ItemPtr l_folderNode = d.GetItem(l_userNode, l_folder, "search_results_folder_node");
    bool const l_newFolder = !l_folderNode;
    if (l_newFolder)
    {
        auto* lp_row = new SearchResultListItem(lp_userRow);
        lp_row->SetFolder(QString::fromUtf8(ReversePathname(l_folder.AsString())));
        l_folderNode = NewNode("search_results_folder_node", lp_row);
        l_userNode += l_folderNode;
        l_folderNode += l_folder;
    }
    QTreeWidgetItem* lp_folderRow = RowOf(l_folderNode);

    auto* lp_row = new SearchResultListItem(lp_folderRow);
    lp_row->SetFile(QString::fromUtf8(i_result["search_result_file_name"].AsString()),
                    CommafyNumber(i_result["search_result_file_size"].AsInt64()),
                    SharedFoldersManager::GetFileItemDisplayString(i_result));
    ItemPtr const l_resultNode = NewNode("search_result_node", lp_row);
    l_resultNode += i_result;
    l_resultNode += l_folderNode;

    // Rows the user folded stay folded: only new rows take the tab's expansion.
    if (l_newUser && i_widget["expand_users"].AsString() == "yes")
        lp_userRow->setExpanded(true);
    if (l_newFolder && i_widget["expand_folders"].AsString() == "yes")
        lp_folderRow->setExpanded(true);
    ip_form->FilterNewRow(lp_row, i_terms);
}

void SearchForm::OnSearchResultsRemoved(Item* ip_results)
{
    std::erase_if(m_pending, [ip_results](Pending const& i_pending) { return i_pending.mp_results == ip_results; });
}

void SearchForm::OnFilterTextChanged(QString i_text)
{
    for (QObject* lp_object = sender(); lp_object; lp_object = lp_object->parent())
        if (auto* lp_form = qobject_cast<SearchResultsForm*>(lp_object))
        {
            lp_form->ApplyFilter(SearchResultsForm::FilterTerms(i_text));
            return;
        }
}
