#pragma once

#include <cstdint>
#include <string>

#include "store/Item.h"
#include "store/ItemSet.h"

// A non-owning handle of one item, copied by value. It dangles once its item is removed, so
// whoever keeps one drops it on the item's removal. Queries on a null handle give null or zero.
class ItemPtr
{
public:
    ItemPtr(Item* ip_item = nullptr) : mp_item(ip_item) {}

    Item* Get() const { return mp_item; }
    Item* operator->() const;
    operator Item*() const { return mp_item; }
    explicit operator bool() const { return mp_item != nullptr; }
    bool IsNull() const { return mp_item == nullptr; }

    char const* AsCStr() const { return mp_item ? mp_item->AsCStr() : ""; }
    std::string AsString() const { return mp_item ? mp_item->AsString() : std::string(); }
    int AsInt() const { return mp_item ? mp_item->AsInt() : 0; }
    unsigned int AsUInt() const { return mp_item ? mp_item->AsUInt() : 0; }
    long long AsInt64() const { return mp_item ? mp_item->AsInt64() : 0; }
    template <class T>
    T* AsPointer() const
    {
        return mp_item ? mp_item->AsPointer<T>() : nullptr;
    }

    ItemPtr Connect(ItemPtr i_other) const;
    ItemPtr operator+=(ItemPtr i_other) const { return Connect(i_other); }
    void Disconnect(ItemPtr i_other) const;
    void operator-=(ItemPtr i_other) const { Disconnect(i_other); }
    void Disconnect(char const* i_typeName) const;
    bool IsConnected(ItemPtr i_other) const;
    bool IsConnected(char const* i_typeName) const;
    bool IsDisconnectedFromAll() const;

    ItemPtr GetItem(char const* i_typeName) const;
    ItemPtr HasItem(char const* i_typeName) const;
    ItemPtr operator[](char const* i_typeName) const { return HasItem(i_typeName); }
    ItemSet GetItems(char const* i_typeName) const;
    void GetItems(char const* i_typeName, ItemSet& o_items) const;

    ItemPtr NewItem(char const* i_typeName) const;
    void Remove() const;


private:
    Item* Checked(char const* i_call) const;

    Item* mp_item;
};
