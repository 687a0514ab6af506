#pragma once

#include <map>
#include <string>

// How many entries of a group stand in each status, kept up to date as statuses change, so
// that a group's overall status and the counts under a tree cost nothing to read.
class TransferTally
{
public:
    void Add(std::string const& i_status, int i_count = 1);
    void Remove(std::string const& i_status) { Add(i_status, -1); }

    // The group's status, first rule that fits: one running (that word), one queued, all
    // complete, one denied, one aborted; otherwise empty.
    std::string Aggregate() const;

    int Count(std::string const& i_status) const;
    int Total() const { return m_total; }
    // Entries whose transfer is under way, whatever its step.
    int Active() const;
    int Failed() const;

private:
    std::map<std::string, int> m_counts;
    int m_total = 0;
};
