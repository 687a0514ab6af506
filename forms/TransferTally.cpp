#include "forms/TransferTally.h"

void TransferTally::Add(std::string const& i_status, int i_count)
{
    auto l_found = m_counts.try_emplace(i_status, 0).first;
    l_found->second += i_count;
    m_total += i_count;
    if (l_found->second == 0)
        m_counts.erase(l_found);
}

int TransferTally::Count(std::string const& i_status) const
{
    auto const l_found = m_counts.find(i_status);
    return l_found == m_counts.end() ? 0 : l_found->second;
}

std::string TransferTally::Aggregate() const
{
    for (char const* lp_running : {"downloading", "uploading"})
        if (Count(lp_running) > 0)
            return lp_running;
    if (Count("queued") > 0)
        return "queued";
    if (m_total > 0 && Count("complete") == m_total)
        return "complete";
    for (char const* lp_ended : {"denied", "aborted"})
        if (Count(lp_ended) > 0)
            return lp_ended;
    return std::string();
}

int TransferTally::Active() const
{
    return Count("downloading") + Count("uploading") + Count("requesting") + Count("connecting") +
           Count("waiting for offset");
}

int TransferTally::Failed() const
{
    return Count("denied") + Count("aborted") + Count("local error");
}
