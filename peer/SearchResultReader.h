#pragma once

#include "peer/FileInfo.h"
#include "peer/PeerLimits.h"
#include "store/ItemPtr.h"
#include "stream/MemStream.h"

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

class Item;
class Type;

// Turns the inflated body of a search result message into a search_results item under the
// search it answers. It keeps, per open search, how many results the search holds, so that
// the bound on results costs nothing per message while nobody else changes them.
class SearchResultReader
{
public:
    enum class Result
    {
        Accepted, // o_results is the new search_results item
        Dropped,  // nothing for an open search of ours, or nothing new: the connection stays
        Bad       // the peer's message is wrong: the connection goes
    };

    explicit SearchResultReader(std::uint64_t i_maxResultsPerSearch = PeerLimits::s_maxResultsPerSearch);

    Result Read(MemStream& i_body, std::string const& i_connectionUser, ItemPtr& o_results);

private:
    // What the body holds behind the ticket. The fields after the records may be missing; they
    // then count as no free slot, speed 0 and an empty queue.
    struct Answer
    {
        std::vector<FileInfo> m_files;
        bool m_freeSlot = false;
        std::uint32_t m_speed = 0;
        std::uint32_t m_queueLength = 0;
    };

    struct Tally
    {
        std::string m_ticket; // tells a reused address from the search it was counted for
        std::uint64_t m_results = 0;
        bool m_counted = false;
        bool m_reported = false; // the line about passed over results is written once per search
    };

    static bool ReadAnswer(MemStream& i_body, Answer& o_answer);
    Result Store(Item* ip_request, std::string const& i_ticket, Answer const& i_answer, std::string const& i_user,
                 ItemPtr& o_results);
    Tally& TallyOf(Item* ip_request, std::string const& i_ticket);
    std::array<std::uint64_t, 3> Changes() const;
    bool IsListedFor(Item* ip_name, Item* ip_folder, Item* ip_user, Item* ip_results) const;
    void AddResult(Item* ip_results, FileInfo const& i_file, Item* ip_name, Item* ip_folder);

    std::uint64_t m_maxResultsPerSearch;
    std::map<Item*, Tally> m_tallies;
    // The change counts of the request, results and result types after the last message: if
    // they moved, someone else changed results and the tallies are counted again.
    std::array<std::uint64_t, 3> m_seenChanges{};
};
