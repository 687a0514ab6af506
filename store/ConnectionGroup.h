#pragma once

#include <cstddef>
#include <cstdint>

#include "store/ItemRange.h"

class Item;
class Type;

// The items of one type that one item is connected to, in address order. Most groups hold a
// single item (every One relation, most attributes), which is kept inline. More items go to
// one sorted array; a group that grows large, such as a word of the share index held by
// thousands of files, goes to a list of sorted chunks, so that an insertion moves at most one
// chunk. The group is a plain value that its item moves around with memcpy and frees with
// Release: it has no destructor of its own.
class ConnectionGroup
{
public:
    explicit ConnectionGroup(Type* ip_type, Item* ip_first)
        : mp_type(ip_type), mp_slot(ip_first)
    {
    }

    Type* GetType() const { return mp_type; }
    bool IsEmpty() const { return mp_slot == nullptr; } // only after Erase took the last item
    std::size_t Size() const;
    bool Contains(Item* ip_item) const;
    Item* First() const;
    ItemRange Items() const;

    // False when the item was there already, or was not there to erase. A group that erases
    // its last item is empty and must be released and dropped by its owner.
    bool Insert(Item* ip_item);
    bool Erase(Item* ip_item);
    void Release();

private:
    struct Array;
    struct Chunks;
    enum Form : std::uintptr_t
    {
        Single = 0,
        Sorted = 1,
        Chunked = 2
    };
    static constexpr std::uintptr_t s_formMask = 3;

    std::uintptr_t Bits() const { return reinterpret_cast<std::uintptr_t>(mp_slot); }
    Form GetForm() const { return static_cast<Form>(Bits() & s_formMask); }
    Array* GetArray() const { return reinterpret_cast<Array*>(Bits() & ~s_formMask); }
    Chunks* GetChunks() const { return reinterpret_cast<Chunks*>(Bits() & ~s_formMask); }
    void SetArray(Array* ip_array) { mp_slot = reinterpret_cast<Item*>(reinterpret_cast<std::uintptr_t>(ip_array) | Sorted); }
    void SetChunks(Chunks* ip_chunks)
    {
        mp_slot = reinterpret_cast<Item*>(reinterpret_cast<std::uintptr_t>(ip_chunks) | Chunked);
    }

    Type* mp_type;
    // The item itself in the single form; otherwise the storage's address with the form in
    // its two low bits (items and storage are at least 8-byte aligned).
    Item* mp_slot;
};
