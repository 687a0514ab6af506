#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string_view>

class Item;

// The items of one type, which it owns: its destructor destroys every item still in it. An
// open-addressing hash set of item pointers, found by value for a type with values (the value
// is held once, by the item itself) and by address for a null type. Walking it visits the
// items in no particular order and must not overlap a change of the index.
class ItemIndex
{
public:
    class const_iterator
    {
    public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = Item*;
        using difference_type = std::ptrdiff_t;
        using pointer = Item* const*;
        using reference = Item* const&;

        const_iterator() = default;
        const_iterator(Item* const* ip_at, Item* const* ip_end) : mp_at(ip_at), mp_end(ip_end) { Skip(); }
        Item* operator*() const { return *mp_at; }
        const_iterator& operator++()
        {
            ++mp_at;
            Skip();
            return *this;
        }
        const_iterator operator++(int)
        {
            const_iterator l_before = *this;
            ++*this;
            return l_before;
        }
        bool operator==(const_iterator const& i_other) const { return mp_at == i_other.mp_at; }

    private:
        void Skip()
        {
            while (mp_at != mp_end && !*mp_at)
                ++mp_at;
        }
        Item* const* mp_at = nullptr;
        Item* const* mp_end = nullptr;
    };

    explicit ItemIndex(bool i_byValue) : m_byValue(i_byValue) {}
    ~ItemIndex();
    ItemIndex(ItemIndex const&) = delete;
    ItemIndex& operator=(ItemIndex const&) = delete;

    Item* Find(std::string_view i_value) const;
    void Insert(Item* ip_item);
    void Erase(Item* ip_item);
    std::size_t Size() const { return m_size; }
    // The item of lowest address, or null when there is none.
    Item* Lowest() const;

    const_iterator begin() const { return const_iterator(mp_slots, mp_slots + m_capacity); }
    const_iterator end() const { return const_iterator(mp_slots + m_capacity, mp_slots + m_capacity); }

private:
    std::size_t Hash(Item* ip_item) const;
    std::size_t Home(std::size_t i_hash) const { return i_hash & (m_capacity - 1); }
    void Rehash(std::size_t i_capacity);
    void Place(Item* ip_item);

    bool m_byValue;
    Item** mp_slots = nullptr;
    std::size_t m_capacity = 0; // zero or a power of two
    std::size_t m_size = 0;
    mutable Item* mp_lowest = nullptr; // kept while known; recomputed after it goes
};
