#include "store/ItemPtr.h"

#include "store/Require.h"

Item* ItemPtr::Checked(char const* i_call) const
{
    TW_REQUIRE(mp_item != nullptr, i_call, "null ItemPtr");
    return mp_item;
}

Item* ItemPtr::operator->() const { return Checked("ItemPtr::operator->"); }

ItemPtr ItemPtr::Connect(ItemPtr i_other) const
{
    return Checked("ItemPtr::Connect")->Connect(ItemPtr(i_other).Checked("ItemPtr::Connect argument"));
}

void ItemPtr::Disconnect(ItemPtr i_other) const
{
    Checked("ItemPtr::Disconnect")->Disconnect(i_other.Checked("ItemPtr::Disconnect argument"));
}

void ItemPtr::Disconnect(char const* i_typeName) const { Checked("ItemPtr::Disconnect")->Disconnect(i_typeName); }

bool ItemPtr::IsConnected(ItemPtr i_other) const
{
    return Checked("ItemPtr::IsConnected")->IsConnected(i_other.Checked("ItemPtr::IsConnected argument"));
}

bool ItemPtr::IsConnected(char const* i_typeName) const
{
    return Checked("ItemPtr::IsConnected")->IsConnected(i_typeName);
}

bool ItemPtr::IsDisconnectedFromAll() const
{
    return Checked("ItemPtr::IsDisconnectedFromAll")->IsDisconnectedFromAll();
}

ItemPtr ItemPtr::GetItem(char const* i_typeName) const { return Checked("ItemPtr::GetItem")->GetItem(i_typeName); }

ItemPtr ItemPtr::HasItem(char const* i_typeName) const
{
    return mp_item ? mp_item->GetItem(i_typeName) : nullptr;
}

ItemSet ItemPtr::GetItems(char const* i_typeName) const
{
    ItemSet l_items;
    if (mp_item)
        mp_item->GetItems(i_typeName, l_items);
    return l_items;
}

void ItemPtr::GetItems(char const* i_typeName, ItemSet& o_items) const
{
    if (mp_item)
        mp_item->GetItems(i_typeName, o_items);
    else
        o_items.clear();
}

ItemPtr ItemPtr::NewItem(char const* i_typeName) const { return Checked("ItemPtr::NewItem")->NewItem(i_typeName); }

void ItemPtr::Remove() const { Checked("ItemPtr::Remove")->Remove(); }
