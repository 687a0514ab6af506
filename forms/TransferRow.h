#pragma once

#include <QTreeWidgetItem>

#include <string>

#include "forms/TransferTally.h"

class Item;
class QProgressBar;
class TransferTree;

// A row of a transfers tree: a user, a folder of a user, or one entry. Besides its texts it
// keeps the figures it was last drawn from, so that a group adds up its entries by the one
// that changed instead of walking them all.
class TransferRow : public QTreeWidgetItem
{
public:
    enum class Level
    {
        User,
        Folder,
        File
    };

    // Sizes are a peer's word: a group of them can add up beyond 64 bits.
    using Bytes = __int128;

    // What an entry adds to its groups' progress, or a group's sum of them.
    struct Sums
    {
        Bytes m_done = 0;
        Bytes m_left = 0;
        Bytes m_total = 0;
        int m_counted = 0;

        Sums& operator+=(Sums const& i_other);
        Sums& operator-=(Sums const& i_other);
    };

    TransferRow(TransferTree const* ip_tree, Level i_level, Item* ip_entry = nullptr);

    Level GetLevel() const { return m_level; }
    Item* Entry() const { return mp_entry; }
    TransferRow* Group() const { return static_cast<TransferRow*>(parent()); }

    // Tooltips are made when asked for: they read the graph as it stands then.
    QVariant data(int i_column, int i_role) const override;

    // A file row's figures, as last reported.
    std::string m_status;
    long long m_size = 0;
    long long m_position = 0;
    long long m_speed = 0;
    Sums m_contribution;

    // A group's figures: the sums of its entries, and the speed of the entry that last moved.
    Sums m_sums;
    TransferTally m_tally;
    long long m_lastSpeed = 0;

    bool m_dirty = false;
    // Made at the first progress; the tree deletes it with the row.
    QProgressBar* mp_bar = nullptr;

private:
    TransferTree const* mp_tree;
    Level m_level;
    Item* mp_entry;
};
