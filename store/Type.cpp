#include "store/Type.h"

#include <algorithm>
#include <vector>

#include "store/Data.h"
#include "store/Item.h"
#include "store/ItemPtr.h"
#include "store/Require.h"

Type::Type(Data* ip_data, std::string i_name, bool i_isRoot, bool i_isNull, bool i_autoCreate)
    : mp_data(ip_data), m_name(std::move(i_name)), m_isRoot(i_isRoot), m_isNull(i_isNull),
      m_autoCreate(i_autoCreate), m_items(!i_isNull)
{
}

void Type::RelateToType(Type* ip_other, OneOrMany i_typeFrom, OneOrMany i_typeTo, bool i_owning)
{
    TW_REQUIRE(!IsRelated(ip_other) && !ip_other->IsRelated(this), "RelateToType: pair already related",
               (m_name + " / " + ip_other->m_name).c_str());
    m_relations[ip_other] = RelationInfo{i_typeFrom, i_typeTo, i_owning, false};
    // A type related to itself keeps the owning side's view.
    if (ip_other != this)
        ip_other->m_relations[this] = RelationInfo{i_typeTo, i_typeFrom, false, i_owning};
}

RelationInfo const& Type::GetRelation(Type* ip_other) const
{
    auto l_it = m_relations.find(ip_other);
    TW_REQUIRE(l_it != m_relations.end(), "GetRelation: types are not related",
               (m_name + " / " + ip_other->m_name).c_str());
    return l_it->second;
}

Item* Type::CreateItem(std::string_view i_value)
{
    Item* lp_item = Item::Create(this, i_value);
    lp_item->m_sweepMark = mp_data->m_sweepEpoch;
    m_items.Insert(lp_item);
    ++m_changes;
    // A listener may remove the new item at once; then the rest hear nothing and get null.
    EventDelivery::Walk l_walk;
    Item* lp_arg = lp_item;
    m_itemAddedEvent.Notify(lp_arg);
    if (lp_item->IsRemoved())
        return nullptr;
    mp_data->m_itemAddedEvent.Notify(lp_arg);
    return lp_item->IsRemoved() ? nullptr : lp_item;
}

void Type::Forget(Item* ip_item)
{
    m_items.Erase(ip_item);
    ++m_changes;
}

Item* Type::NewItem(Value const& i_value)
{
    TW_REQUIRE(!m_isNull, "NewItem(Value) on a null type", m_name.c_str());
    if (Item* lp_item = m_items.Find(i_value.Str()))
        return lp_item;
    return CreateItem(i_value.Str());
}

Item* Type::NewItem()
{
    TW_REQUIRE(m_isNull, "NewItem() on a type with values", m_name.c_str());
    return CreateItem(std::string_view());
}

Item* Type::GetGlobalNullItem()
{
    TW_REQUIRE(m_isNull, "GetGlobalNullItem on a type with values", m_name.c_str());
    if (Item* lp_lowest = m_items.Lowest())
        return lp_lowest;
    return NewItem();
}

Item* Type::GetItem(Value const& i_value)
{
    TW_REQUIRE(!m_isNull, "GetItem(Value) on a null type", m_name.c_str());
    if (Item* lp_item = m_items.Find(i_value.Str()))
        return lp_item;
    return m_autoCreate ? CreateItem(i_value.Str()) : nullptr;
}

ItemPtr Type::operator[](Value const& i_value)
{
    return GetItem(i_value);
}

ItemPtr Type::HasItem(Value const& i_value) const
{
    TW_REQUIRE(!m_isNull, "HasItem(Value) on a null type", m_name.c_str());
    return m_items.Find(i_value.Str());
}

ItemSet Type::GetItems() const
{
    ItemSet l_items;
    GetItems(l_items);
    return l_items;
}

void Type::GetItems(ItemSet& o_items) const
{
    std::vector<Item*> l_sorted(m_items.begin(), m_items.end());
    std::sort(l_sorted.begin(), l_sorted.end());
    o_items = ItemSet(l_sorted.begin(), l_sorted.end());
}
