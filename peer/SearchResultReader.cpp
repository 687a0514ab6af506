#include "peer/SearchResultReader.h"

#include "store/Data.h"
#include "store/EventDelivery.h"
#include "store/Log.h"
#include "stream/PathNames.h"
#include "stream/ToString.h"

#include <QString>

#include <utility>

namespace
{
// Connects the item of that value, unless a listener took either end away meanwhile.
void ConnectValue(Item* ip_item, char const* i_typeName, std::string const& i_value)
{
    Item* lp_value = d.GetType(i_typeName)->GetItem(i_value);
    if (lp_value && !ip_item->IsRemoved() && !lp_value->IsRemoved())
        ip_item->Connect(lp_value);
}
} // namespace

SearchResultReader::SearchResultReader(std::uint64_t i_maxResultsPerSearch)
    : m_maxResultsPerSearch(i_maxResultsPerSearch)
{
}

SearchResultReader::Result SearchResultReader::Read(MemStream& i_body, std::string const& i_connectionUser,
                                                    ItemPtr& o_results)
{
    o_results = ItemPtr();
    std::string l_user;
    std::uint32_t l_ticket = 0;
    if (!i_body.Read(l_user) || l_user != i_connectionUser || !i_body.Read(l_ticket))
        return Result::Bad;
    // Results of a search that was closed are refused here, before their records are looked at.
    std::string const l_ticketText = ToString(l_ticket);
    Item* lp_request = d.GetType("search_request")->HasItem(l_ticketText).Get();
    if (!lp_request)
        return Result::Dropped;
    Answer l_answer;
    if (!ReadAnswer(i_body, l_answer))
        return Result::Bad;

    // Listeners may remove items while the results are made: keep removed items readable
    // until the end, so that the checks for removal below never touch freed memory.
    EventDelivery::Walk const l_walk;
    Result const l_result = Store(lp_request, l_ticketText, l_answer, i_connectionUser, o_results);
    m_seenChanges = Changes();
    return l_result;
}

bool SearchResultReader::ReadAnswer(MemStream& i_body, Answer& o_answer)
{
    std::uint32_t l_count = 0;
    if (!i_body.Read(l_count) || l_count > g_maxReadLength)
        return false;
    for (std::uint32_t l_index = 0; l_index < l_count; ++l_index)
    {
        FileInfo l_file;
        if (!l_file.Read(i_body))
            return false;
        o_answer.m_files.push_back(std::move(l_file));
    }
    // A sender may stop after its records; what is missing keeps its default. The table of
    // attribute names that may follow is not used.
    std::uint8_t l_freeSlot = 0;
    if (!i_body.Read(l_freeSlot))
        return true;
    o_answer.m_freeSlot = l_freeSlot != 0;
    if (i_body.Read(o_answer.m_speed))
        i_body.Read(o_answer.m_queueLength);
    return true;
}

SearchResultReader::Result SearchResultReader::Store(Item* ip_request, std::string const& i_ticket,
                                                     Answer const& i_answer, std::string const& i_user,
                                                     ItemPtr& o_results)
{
    Tally& l_tally = TallyOf(ip_request, i_ticket);
    Item* lp_results = d.GetType("search_results")->NewItem();
    if (!lp_results)
        return Result::Dropped;
    Type* lp_nameType = d.GetType("search_result_file_name");
    Type* lp_folderType = d.GetType("search_result_file_folder");
    Item* lp_user = d.GetType("user")->HasItem(i_user).Get();
    bool l_passedOver = false;
    for (FileInfo const& l_file : i_answer.m_files)
    {
        if (lp_results->IsRemoved() || ip_request->IsRemoved())
            break;
        std::string const l_name = GetFileName(l_file.GetName());
        std::string const l_folder = GetFolder(l_file.GetName());
        Item* lp_name = lp_nameType->HasItem(l_name).Get();
        Item* lp_folder = lp_folderType->HasItem(l_folder).Get();
        if (lp_name && lp_folder && IsListedFor(lp_name, lp_folder, lp_user, lp_results))
            continue;
        if (l_tally.m_results >= m_maxResultsPerSearch)
        {
            l_passedOver = true;
            continue;
        }
        lp_name = lp_nameType->GetItem(l_name);
        lp_folder = lp_folderType->GetItem(l_folder);
        if (!lp_name || !lp_folder)
            continue;
        AddResult(lp_results, l_file, lp_name, lp_folder);
        ++l_tally.m_results;
    }

    if (l_passedOver && !l_tally.m_reported)
    {
        l_tally.m_reported = true;
        Log(QStringLiteral("Peer Messenger"), 1,
            QStringLiteral("Search %1 holds %2 results already: further results from user %3 are passed over")
                .arg(QString::fromStdString(i_ticket))
                .arg(l_tally.m_results)
                .arg(QString::fromStdString(i_user)),
            ip_request);
    }

    if (lp_results->IsRemoved() || ip_request->IsRemoved())
        return Result::Dropped;
    if (!lp_results->IsConnected("search_result"))
    {
        lp_results->Remove();
        return Result::Dropped;
    }
    ip_request->Connect(lp_results);
    if (Item* lp_userItem = d.GetType("user")->GetItem(i_user); lp_userItem && !lp_results->IsRemoved())
        lp_results->Connect(lp_userItem);
    ConnectValue(lp_results, "search_results_user_available", i_answer.m_freeSlot ? "yes" : "no");
    ConnectValue(lp_results, "search_results_user_speed", ToString(i_answer.m_speed));
    ConnectValue(lp_results, "search_results_uploads_in_queue", ToString(i_answer.m_queueLength));
    if (lp_results->IsRemoved())
        return Result::Dropped;
    o_results = lp_results;
    return Result::Accepted;
}

SearchResultReader::Tally& SearchResultReader::TallyOf(Item* ip_request, std::string const& i_ticket)
{
    if (std::array<std::uint64_t, 3> const l_now = Changes(); l_now != m_seenChanges)
    {
        // Someone else changed searches or results: forget the searches that went, count the
        // others again when next needed. Addresses of removed items are compared, never used.
        Type* lp_requestType = d.GetType("search_request");
        for (auto l_it = m_tallies.begin(); l_it != m_tallies.end();)
        {
            if (lp_requestType->HasItem(l_it->second.m_ticket).Get() != l_it->first)
                l_it = m_tallies.erase(l_it);
            else
                (l_it++)->second.m_counted = false;
        }
    }
    Tally& l_tally = m_tallies[ip_request];
    if (l_tally.m_ticket != i_ticket)
        l_tally = Tally{i_ticket};
    if (!l_tally.m_counted)
    {
        Type* lp_resultType = d.GetType("search_result");
        l_tally.m_results = 0;
        for (Item* lp_results : ip_request->ConnectedOfType(d.GetType("search_results")))
            l_tally.m_results += lp_results->ConnectedOfType(lp_resultType).size();
        l_tally.m_counted = true;
    }
    return l_tally;
}

std::array<std::uint64_t, 3> SearchResultReader::Changes() const
{
    return {d.GetType("search_request")->ChangeCount(), d.GetType("search_results")->ChangeCount(),
            d.GetType("search_result")->ChangeCount()};
}

bool SearchResultReader::IsListedFor(Item* ip_name, Item* ip_folder, Item* ip_user, Item* ip_results) const
{
    Type* lp_resultType = d.GetType("search_result");
    Type* lp_resultsType = d.GetType("search_results");
    ItemRange const l_byName = ip_name->ConnectedOfType(lp_resultType);
    ItemRange const l_byFolder = ip_folder->ConnectedOfType(lp_resultType);
    // Walk the shorter list; a common name or a folder of many files can hold thousands.
    bool const l_fromName = l_byName.size() <= l_byFolder.size();
    Item* lp_other = l_fromName ? ip_folder : ip_name;
    for (Item* lp_result : l_fromName ? l_byName : l_byFolder)
    {
        if (!lp_result->IsConnected(lp_other))
            continue;
        // A path repeated inside one message counts as listed too.
        Item* lp_owner = lp_result->GetItem(lp_resultsType);
        if (lp_owner && (lp_owner == ip_results || (ip_user && lp_owner->IsConnected(ip_user))))
            return true;
    }
    return false;
}

void SearchResultReader::AddResult(Item* ip_results, FileInfo const& i_file, Item* ip_name, Item* ip_folder)
{
    Item* lp_result = d.GetType("search_result")->NewItem();
    if (!lp_result)
        return;
    for (auto const& [l_code, l_value] : i_file.GetAttributes().GetAttributes())
    {
        switch (l_code)
        {
        case 0:
            ConnectValue(lp_result, "bitrate", ToString(l_value));
            break;
        case 1:
            ConnectValue(lp_result, "length_seconds", ToString(l_value));
            break;
        case 2:
            ConnectValue(lp_result, "bitrate_mode", l_value != 0 ? "vbr" : "cbr");
            break;
        default:
            break;
        }
    }
    for (Item* lp_other : {ip_results, ip_name, ip_folder})
        if (!lp_result->IsRemoved() && !lp_other->IsRemoved())
            lp_result->Connect(lp_other);
    ConnectValue(lp_result, "search_result_file_size", ToString(i_file.GetSize()));
}
