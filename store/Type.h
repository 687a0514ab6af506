#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "store/ConnectionInfo.h"
#include "store/Event.h"
#include "store/ItemIndex.h"
#include "store/ItemSet.h"
#include "store/RelationInfo.h"
#include "store/Value.h"

class Data;
class Item;
class ItemPtr;

// A named kind of item, with the relations it may have towards other types.
class Type
{
public:
    Event<Item*> m_itemAddedEvent;
    Event<Item*> m_itemRemovedEvent;
    Event<ConnectionInfo> m_connectionEvent;
    Event<ConnectionInfo> m_disconnectionEvent;

    std::string const& GetName() const { return m_name; }
    char const* Name() const { return m_name.c_str(); }
    bool IsRoot() const { return m_isRoot; }
    bool IsNull() const { return m_isNull; }
    bool IsAutoCreate() const { return m_autoCreate; }
    Data* GetData() const { return mp_data; }

    void RelateToType(Type* ip_other, OneOrMany i_typeFrom, OneOrMany i_typeTo, bool i_owning);
    bool IsRelated(Type* ip_other) const { return m_relations.count(ip_other) > 0; }
    RelationInfo const& GetRelation(Type* ip_other) const;
    void GetRelatedTypes(std::map<Type*, RelationInfo>& o_relations) const { o_relations = m_relations; }
    std::map<Type*, RelationInfo> const& Relations() const { return m_relations; }

    Item* NewItem(Value const& i_value);
    Item* NewItem();
    Item* GetGlobalNullItem();
    Item* GetItem(Value const& i_value);
    ItemPtr operator[](Value const& i_value);
    ItemPtr HasItem(Value const& i_value) const;
    ItemSet GetItems() const;
    void GetItems(ItemSet& o_items) const;
    std::size_t ItemCount() const { return m_items.Size(); }
    // Every item of the type in place, in no particular order; the graph must not change
    // during the walk. The hot paths (sweep, save, joins over a whole type) walk this.
    ItemIndex const& Items() const { return m_items; }
    // Grows with every item made or removed and every connection made or undone at one of
    // its items: equal counts mean nothing of the type changed in between.
    std::uint64_t ChangeCount() const { return m_changes; }

    ~Type() = default;
    Type(Type const&) = delete;
    Type& operator=(Type const&) = delete;

private:
    friend class Data;
    friend class Item;
    friend class DataSaver;
    Type(Data* ip_data, std::string i_name, bool i_isRoot, bool i_isNull, bool i_autoCreate);
    Item* CreateItem(std::string_view i_value);
    void Forget(Item* ip_item);

    Data* mp_data;
    std::string m_name;
    bool m_isRoot;
    bool m_isNull;
    bool m_autoCreate;
    std::map<Type*, RelationInfo> m_relations;
    ItemIndex m_items;
    std::uint64_t m_changes = 0;
    bool m_sweepVisited = false; // on the current path of a sweep's mark walk
    // The ids its items have in the data file being built, first and past the last; both zero
    // when none of them is written. Read only while a file is built.
    std::int32_t m_saveFirstId = 0;
    std::int32_t m_saveEndId = 0;
};
