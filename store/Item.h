#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "store/ItemSet.h"
#include "store/OneOrMany.h"
#include "store/TypeItemsMap.h"

class Type;

// A node of the graph. Its connections are held at both ends, by the other item's type; an
// entry exists only while its set is not empty.
class Item
{
public:
    Type* GetType() const { return mp_type; }

    Item* Connect(Item* ip_other);
    void Disconnect(Item* ip_other);
    void Disconnect(char const* i_typeName);
    bool IsConnected(Item* ip_other) const;
    bool IsConnected(char const* i_typeName) const;
    bool IsConnected(Type* ip_type) const;
    bool IsDisconnectedFromAll() const { return m_typeItemsMap.empty(); }
    void GetConnectedItems(std::map<Type*, ItemSet>& o_items) const
    {
        o_items = std::map<Type*, ItemSet>(m_typeItemsMap.begin(), m_typeItemsMap.end());
    }
    TypeItemsMap const& ConnectedItems() const { return m_typeItemsMap; }

    Item* GetItem(char const* i_typeName) const;
    Item* HasItem(char const* i_typeName) const { return GetItem(i_typeName); }
    Item* GetItem(Type* ip_type) const;
    void GetItems(char const* i_typeName, ItemSet& o_items) const;
    void GetItems(Type* ip_type, ItemSet& o_items) const;
    ItemSet const* ConnectedOfType(Type* ip_type) const;

    Item* NewItem(char const* i_typeName);
    void Remove();

    // Set by Remove; the memory stays valid until the outermost event delivery has ended.
    bool IsRemoved() const { return m_state == State::Removed; }

    char const* AsCStr() const { return m_value.c_str(); }
    std::string const& AsString() const { return m_value; }
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
    Item(Type* ip_type, std::string i_value) : mp_type(ip_type), m_value(std::move(i_value)) {}
    ~Item() = default;

    void ConnectThisEnd(Item* ip_other, OneOrMany i_howMany);
    void DisconnectThisEnd(Item* ip_other);

    Type* mp_type;
    std::string m_value;
    TypeItemsMap m_typeItemsMap;
    enum class State : unsigned char
    {
        Alive,
        Removing,
        Removed
    };
    State m_state = State::Alive;
};
