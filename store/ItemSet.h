#pragma once

#include <list>
#include <set>
#include <string>

#include "store/NodePool.h"

class Item;
class ItemPtr;

// A set of items ordered by address: its order is arbitrary between runs, so callers that
// need an order sort.
class ItemSet : public std::set<Item*, std::less<Item*>, PoolAllocator<Item*>>
{
public:
    using Base = std::set<Item*, std::less<Item*>, PoolAllocator<Item*>>;
    using Base::Base;

    operator ItemPtr() const; // the single item, or null; more than one is a programming error

    void Add(ItemSet const& i_other);
    ItemSet operator+(ItemSet const& i_other) const;
    ItemSet Common(ItemSet const& i_other) const;
    ItemSet Connected(ItemSet const& i_other) const;
    ItemSet NotConnected(ItemSet const& i_other) const;
    ItemSet Connected(char const* i_typeName) const;
    ItemSet NotConnected(char const* i_typeName) const;
    ItemSet Connected(char const* i_typeName, class Value const& i_value) const;
    ItemSet NotConnected(char const* i_typeName, class Value const& i_value) const;
    ItemSet GetItems(char const* i_typeName) const;
    void Disconnect(char const* i_typeName) const;
    void Remove() const;

    std::list<Item*> SortAlphabetic(bool i_ascending) const;
    std::list<Item*> SortAlphabeticBy(char const* i_typeName, bool i_ascending) const;
    std::list<Item*> SortNumeric(bool i_ascending) const;
    std::list<Item*> SortNumericBy(char const* i_typeName, bool i_ascending) const;
};
