#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "store/ConnectionGroup.h"
#include "store/ItemRange.h"
#include "store/ItemSet.h"
#include "store/OneOrMany.h"

class Type;

// A node of the graph. Its connections are held at both ends, grouped by the other item's
// type; a group exists only while it holds an item. The value's bytes follow the item in the
// same allocation, so an item is made and destroyed only through its type.
class Item
{
public:
    // The connection groups of one item, in ascending order of their type's address.
    class Groups
    {
    public:
        Groups(ConnectionGroup const* ip_begin, std::size_t i_count) : mp_begin(ip_begin), mp_end(ip_begin + i_count) {}
        ConnectionGroup const* begin() const { return mp_begin; }
        ConnectionGroup const* end() const { return mp_end; }
        std::size_t size() const { return static_cast<std::size_t>(mp_end - mp_begin); }

    private:
        ConnectionGroup const* mp_begin;
        ConnectionGroup const* mp_end;
    };

    Item(Item const&) = delete;
    Item& operator=(Item const&) = delete;

    Type* GetType() const { return mp_type; }

    Item* Connect(Item* ip_other);
    void Disconnect(Item* ip_other);
    void Disconnect(char const* i_typeName);
    bool IsConnected(Item* ip_other) const;
    bool IsConnected(char const* i_typeName) const;
    bool IsConnected(Type* ip_type) const { return FindGroup(ip_type) != nullptr; }
    bool IsDisconnectedFromAll() const { return m_groupCount == 0; }
    void GetConnectedItems(std::map<Type*, ItemSet>& o_items) const;
    Groups ConnectedItems() const { return Groups(GroupArray(), m_groupCount); }
    // The connected items of one type, in address order; empty when there are none. The range
    // is valid until this item's connections change.
    ItemRange ConnectedOfType(Type* ip_type) const;

    Item* GetItem(char const* i_typeName) const;
    Item* HasItem(char const* i_typeName) const { return GetItem(i_typeName); }
    Item* GetItem(Type* ip_type) const;
    void GetItems(char const* i_typeName, ItemSet& o_items) const;
    void GetItems(Type* ip_type, ItemSet& o_items) const;

    Item* NewItem(char const* i_typeName);
    void Remove();

    // Set by Remove; the memory stays valid until the outermost event delivery has ended.
    bool IsRemoved() const { return m_state == State::Removed; }

    char const* AsCStr() const { return m_valueSize ? reinterpret_cast<char const*>(this + 1) : ""; }
    std::string_view AsView() const { return std::string_view(AsCStr(), m_valueSize); }
    std::string AsString() const { return std::string(AsView()); }
    int AsInt() const;
    unsigned int AsUInt() const;
    long long AsInt64() const;
    std::uintptr_t AsAddress() const; // the address an item of a live object was keyed by

    template <class T>
    T* AsPointer() const
    {
        return reinterpret_cast<T*>(AsAddress());
    }

private:
    friend class Type;
    friend class Data;
    friend class ItemIndex;
    friend class DataSaver;

    static Item* Create(Type* ip_type, std::string_view i_value);
    static void Destroy(Item* ip_item);
    Item(Type* ip_type, std::uint32_t i_valueSize) : mp_type(ip_type), m_valueSize(i_valueSize) {}
    ~Item();

    bool EitherRemoved(Item const* ip_other) const { return IsRemoved() || ip_other->IsRemoved(); }
    ConnectionGroup* FindGroup(Type* ip_type) const;
    ConnectionGroup* GroupArray() const;
    void SetGroupArray(ConnectionGroup* ip_groups);
    void ConnectThisEnd(Item* ip_other, OneOrMany i_howMany);
    void DisconnectThisEnd(Item* ip_other);

    enum class State : std::uint8_t
    {
        Alive,
        Removing,
        Removed
    };

    Type* mp_type;
    // Most items are connected to one type only (a name, a size, a word held by one file): the
    // one group is held here. From two on, this holds the address of an array of groups sorted
    // by type, whose capacity is the power of two at or above the count.
    alignas(ConnectionGroup) unsigned char m_groups[sizeof(ConnectionGroup)];
    std::uint32_t m_valueSize;
    // The item's id in the data file being built; read only while a file is built.
    std::int32_t m_saveId = 0;
    std::uint16_t m_groupCount = 0;
    State m_state = State::Alive;
    // Reached by the current or the last sweep when equal to the graph's sweep epoch; a new
    // item counts as reached, so that a sweep never removes what was made while it ran.
    bool m_sweepMark = false;
};
