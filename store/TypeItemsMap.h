#pragma once

#include <algorithm>
#include <utility>
#include <vector>

#include "store/ItemSet.h"

class Type;

// What one item is connected to, by the other item's type. An item touches few types, so a
// vector kept in type order costs less memory and fewer allocations than a tree, and reads the
// same: entries are pairs of type and set, in ascending order of the type.
class TypeItemsMap
{
public:
    using Entry = std::pair<Type*, ItemSet>;
    using const_iterator = std::vector<Entry>::const_iterator;
    using iterator = std::vector<Entry>::iterator;

    bool empty() const { return m_entries.empty(); }
    std::size_t size() const { return m_entries.size(); }
    const_iterator begin() const { return m_entries.begin(); }
    const_iterator end() const { return m_entries.end(); }
    iterator begin() { return m_entries.begin(); }
    iterator end() { return m_entries.end(); }

    iterator find(Type* ip_type)
    {
        auto l_it = LowerBound(ip_type);
        return l_it != m_entries.end() && l_it->first == ip_type ? l_it : m_entries.end();
    }
    const_iterator find(Type* ip_type) const { return const_cast<TypeItemsMap*>(this)->find(ip_type); }
    std::size_t count(Type* ip_type) const { return find(ip_type) != end() ? 1 : 0; }

    ItemSet& operator[](Type* ip_type)
    {
        auto l_it = LowerBound(ip_type);
        if (l_it == m_entries.end() || l_it->first != ip_type)
            l_it = m_entries.insert(l_it, Entry(ip_type, ItemSet()));
        return l_it->second;
    }
    void erase(iterator i_it) { m_entries.erase(i_it); }

private:
    iterator LowerBound(Type* ip_type)
    {
        return std::lower_bound(m_entries.begin(), m_entries.end(), ip_type,
                                [](Entry const& i_entry, Type* ip_key) { return i_entry.first < ip_key; });
    }

    std::vector<Entry> m_entries;
};
