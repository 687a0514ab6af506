#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>

class Item;

// A run of item pointers kept in address order inside a larger group of connections.
struct ItemChunk
{
    static constexpr std::uint32_t s_capacity = 126; // with the count, one 1 KiB block
    std::uint32_t m_size = 0;
    Item* mp_items[s_capacity];
};

// A read-only view of items in address order: one contiguous run, or a list of chunks. It is
// valid until the group it shows changes, so a walk that may change the graph copies first.
class ItemRange
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
        const_iterator(Item* const* ip_at, Item* const* ip_end, ItemChunk* const* ip_next, ItemChunk* const* ip_last)
            : mp_at(ip_at), mp_end(ip_end), mp_next(ip_next), mp_last(ip_last)
        {
            Settle();
        }

        Item* operator*() const { return *mp_at; }
        const_iterator& operator++()
        {
            ++mp_at;
            Settle();
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
        // Moves on to the next chunk at the end of a run; past the last one the iterator is
        // the end iterator, whose position is null.
        void Settle()
        {
            while (mp_at == mp_end)
            {
                if (mp_next == mp_last)
                {
                    mp_at = mp_end = nullptr;
                    return;
                }
                mp_at = (*mp_next)->mp_items;
                mp_end = mp_at + (*mp_next)->m_size;
                ++mp_next;
            }
        }

        Item* const* mp_at = nullptr;
        Item* const* mp_end = nullptr;
        ItemChunk* const* mp_next = nullptr;
        ItemChunk* const* mp_last = nullptr;
    };
    using iterator = const_iterator;
    using value_type = Item*;

    ItemRange() = default;
    ItemRange(Item* const* ip_begin, std::size_t i_size) : mp_begin(ip_begin), mp_end(ip_begin + i_size), m_size(i_size) {}
    ItemRange(ItemChunk* const* ip_chunks, std::size_t i_chunks, std::size_t i_size)
        : mp_chunks(ip_chunks), mp_chunksEnd(ip_chunks + i_chunks), m_size(i_size)
    {
    }

    const_iterator begin() const { return const_iterator(mp_begin, mp_end, mp_chunks, mp_chunksEnd); }
    const_iterator end() const { return const_iterator(); }
    std::size_t size() const { return m_size; }
    bool empty() const { return m_size == 0; }
    Item* front() const { return *begin(); }

private:
    Item* const* mp_begin = nullptr;
    Item* const* mp_end = nullptr;
    ItemChunk* const* mp_chunks = nullptr;
    ItemChunk* const* mp_chunksEnd = nullptr;
    std::size_t m_size = 0;
};
