#include "store/ItemSet.h"

#include <algorithm>
#include <iterator>
#include <map>

#include "store/Data.h"
#include "store/Require.h"

namespace
{
// Byte-wise, unsigned, locale-free order: upper case before lower case, then by length.
struct ByteOrder
{
    bool operator()(std::string const& i_a, std::string const& i_b) const
    {
        return std::lexicographical_compare(
            i_a.begin(), i_a.end(), i_b.begin(), i_b.end(),
            [](char i_x, char i_y) { return static_cast<unsigned char>(i_x) < static_cast<unsigned char>(i_y); });
    }
};

template <class Key, class Compare = std::less<Key>>
std::list<Item*> Flatten(std::map<Key, ItemSet, Compare> const& i_groups, bool i_ascending)
{
    std::list<Item*> l_result;
    for (auto const& l_group : i_groups)
        for (Item* lp_item : l_group.second)
        {
            if (i_ascending)
                l_result.push_back(lp_item);
            else
                l_result.push_front(lp_item);
        }
    return l_result;
}

bool ConnectedToAny(Item* ip_item, ItemSet const& i_others)
{
    for (ConnectionGroup const& l_group : ip_item->ConnectedItems())
        for (Item* lp_other : l_group.Items())
            if (i_others.count(lp_other))
                return true;
    return false;
}
} // namespace

ItemSet::operator ItemPtr() const
{
    TW_REQUIRE(size() <= 1, "ItemSet to ItemPtr: more than one item", "");
    return empty() ? ItemPtr() : ItemPtr(*begin());
}

void ItemSet::Add(ItemSet const& i_other) { insert(i_other.begin(), i_other.end()); }

ItemSet ItemSet::operator+(ItemSet const& i_other) const
{
    ItemSet l_result = *this;
    l_result.Add(i_other);
    return l_result;
}

ItemSet ItemSet::Common(ItemSet const& i_other) const
{
    ItemSet l_result;
    std::set_intersection(begin(), end(), i_other.begin(), i_other.end(),
                          std::inserter(l_result, l_result.end()));
    return l_result;
}

ItemSet ItemSet::Connected(ItemSet const& i_other) const
{
    ItemSet l_result;
    if (size() < i_other.size())
    {
        for (Item* lp_item : *this)
            if (ConnectedToAny(lp_item, i_other))
                l_result.insert(lp_item);
        return l_result;
    }
    // Walk the other side's connections and keep those that lie in this set.
    for (Item* lp_other : i_other)
        for (ConnectionGroup const& l_group : lp_other->ConnectedItems())
            for (Item* lp_item : l_group.Items())
                if (count(lp_item))
                    l_result.insert(lp_item);
    return l_result;
}

ItemSet ItemSet::NotConnected(ItemSet const& i_other) const
{
    ItemSet l_result;
    for (Item* lp_item : *this)
        if (!ConnectedToAny(lp_item, i_other))
            l_result.insert(lp_item);
    return l_result;
}

// The graph a set's items live in; the global one for an empty set.
static Data& DataOf(ItemSet const& i_items)
{
    return i_items.empty() ? d : *(*i_items.begin())->GetType()->GetData();
}

// Being connected to some item of a type is having a group of that type, so these ask each
// item of the set instead of copying the whole type.
ItemSet ItemSet::Connected(char const* i_typeName) const
{
    Type* lp_type = DataOf(*this).GetType(i_typeName);
    ItemSet l_result;
    for (Item* lp_item : *this)
        if (lp_item->IsConnected(lp_type))
            l_result.insert(l_result.end(), lp_item);
    return l_result;
}

ItemSet ItemSet::NotConnected(char const* i_typeName) const
{
    Type* lp_type = DataOf(*this).GetType(i_typeName);
    ItemSet l_result;
    for (Item* lp_item : *this)
        if (!lp_item->IsConnected(lp_type))
            l_result.insert(l_result.end(), lp_item);
    return l_result;
}

ItemSet ItemSet::Connected(char const* i_typeName, Value const& i_value) const
{
    ItemPtr const l_target = DataOf(*this).GetType(i_typeName)->HasItem(i_value);
    return l_target ? Connected(ItemSet{l_target.Get()}) : ItemSet();
}

ItemSet ItemSet::NotConnected(char const* i_typeName, Value const& i_value) const
{
    ItemPtr const l_target = DataOf(*this).GetType(i_typeName)->HasItem(i_value);
    return l_target ? NotConnected(ItemSet{l_target.Get()}) : ItemSet();
}

ItemSet ItemSet::GetItems(char const* i_typeName) const
{
    ItemSet l_result;
    for (Item* lp_item : *this)
    {
        ItemRange const l_items = lp_item->ConnectedOfType(lp_item->GetType()->GetData()->GetType(i_typeName));
        l_result.insert(l_items.begin(), l_items.end());
    }
    return l_result;
}

void ItemSet::Disconnect(char const* i_typeName) const
{
    for (Item* lp_item : *this)
        lp_item->Disconnect(i_typeName);
}

void ItemSet::Remove() const
{
    for (Item* lp_item : *this)
        lp_item->Remove();
}

std::list<Item*> ItemSet::SortAlphabetic(bool i_ascending) const
{
    std::map<std::string, ItemSet, ByteOrder> l_groups;
    for (Item* lp_item : *this)
        l_groups[lp_item->AsString()].insert(lp_item);
    return Flatten(l_groups, i_ascending);
}

std::list<Item*> ItemSet::SortAlphabeticBy(char const* i_typeName, bool i_ascending) const
{
    std::map<std::string, ItemSet, ByteOrder> l_groups;
    for (Item* lp_item : *this)
        if (Item* lp_key = lp_item->HasItem(i_typeName))
            l_groups[lp_key->AsString()].insert(lp_item);
    return Flatten(l_groups, i_ascending);
}

std::list<Item*> ItemSet::SortNumeric(bool i_ascending) const
{
    std::map<long long, ItemSet> l_groups;
    for (Item* lp_item : *this)
        l_groups[lp_item->AsInt64()].insert(lp_item);
    return Flatten(l_groups, i_ascending);
}

std::list<Item*> ItemSet::SortNumericBy(char const* i_typeName, bool i_ascending) const
{
    std::map<long long, ItemSet> l_groups;
    for (Item* lp_item : *this)
        if (Item* lp_key = lp_item->HasItem(i_typeName))
            l_groups[lp_key->AsInt64()].insert(lp_item);
    return Flatten(l_groups, i_ascending);
}
