#include "store/ConnectionGroup.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>

namespace
{
// An array is the form up to this many items (1 KiB of pointers); past it the group becomes
// chunks, and it goes back to an array only when it has shrunk well below, so that a group
// near the edge does not change form at every connection.
constexpr std::uint32_t s_maxSorted = 128;
constexpr std::size_t s_backToSorted = 32;

// Arrays grow by half rather than double once past a few items: most groups stop growing
// early (a file's words, a word's few files), and a doubled array would leave up to half of
// its slots empty for good.
std::uint32_t GrownCapacity(std::uint32_t i_capacity)
{
    std::uint32_t const l_grown = i_capacity < 8 ? i_capacity * 2 : (i_capacity + i_capacity / 2 + 1) & ~1u;
    return std::min(l_grown, s_maxSorted);
}
} // namespace

// A sorted array with its size and capacity in front of the pointers, in one allocation.
struct ConnectionGroup::Array
{
    std::uint32_t m_size;
    std::uint32_t m_capacity;

    // The pointers follow this header without a gap: it is 8 bytes, a pointer's alignment.
    Item** Begin() { return reinterpret_cast<Item**>(this + 1); }
    Item** End() { return Begin() + m_size; }

    static Array* Allocate(std::uint32_t i_capacity)
    {
        auto* lp_array = static_cast<Array*>(::operator new(sizeof(Array) + i_capacity * sizeof(Item*)));
        lp_array->m_size = 0;
        lp_array->m_capacity = i_capacity;
        return lp_array;
    }

    static Array* Resize(Array* ip_array, std::uint32_t i_capacity)
    {
        Array* lp_array = Allocate(i_capacity);
        lp_array->m_size = std::min(ip_array->m_size, i_capacity);
        std::memcpy(lp_array->Begin(), ip_array->Begin(), lp_array->m_size * sizeof(Item*));
        Free(ip_array);
        return lp_array;
    }

    static void Free(Array* ip_array) { ::operator delete(ip_array); }
};


struct ConnectionGroup::Chunks
{
    std::size_t m_size = 0;
    std::vector<ItemChunk*> m_chunks;

    ~Chunks()
    {
        for (ItemChunk* lp_chunk : m_chunks)
            delete lp_chunk;
    }

    // The chunk whose run an item belongs in: the last one that starts at or below it.
    std::size_t ChunkFor(Item* ip_item) const
    {
        auto l_it = std::upper_bound(m_chunks.begin(), m_chunks.end(), ip_item,
                                     [](Item* ip_key, ItemChunk* ip_chunk) { return ip_key < ip_chunk->mp_items[0]; });
        return l_it == m_chunks.begin() ? 0 : static_cast<std::size_t>(l_it - m_chunks.begin()) - 1;
    }
};

std::size_t ConnectionGroup::Size() const
{
    switch (GetForm())
    {
    case Single:
        return 1;
    case Sorted:
        return GetArray()->m_size;
    default:
        return GetChunks()->m_size;
    }
}

bool ConnectionGroup::Contains(Item* ip_item) const
{
    switch (GetForm())
    {
    case Single:
        return mp_slot == ip_item;
    case Sorted:
        return std::binary_search(GetArray()->Begin(), GetArray()->End(), ip_item);
    default:
    {
        Chunks const* lp_chunks = GetChunks();
        ItemChunk const* lp_chunk = lp_chunks->m_chunks[lp_chunks->ChunkFor(ip_item)];
        return std::binary_search(lp_chunk->mp_items, lp_chunk->mp_items + lp_chunk->m_size, ip_item);
    }
    }
}

Item* ConnectionGroup::First() const
{
    switch (GetForm())
    {
    case Single:
        return mp_slot;
    case Sorted:
        return *GetArray()->Begin();
    default:
        return GetChunks()->m_chunks.front()->mp_items[0];
    }
}

ItemRange ConnectionGroup::Items() const
{
    switch (GetForm())
    {
    case Single:
        return ItemRange(&mp_slot, 1);
    case Sorted:
        return ItemRange(GetArray()->Begin(), GetArray()->m_size);
    default:
        return ItemRange(GetChunks()->m_chunks.data(), GetChunks()->m_chunks.size(), GetChunks()->m_size);
    }
}

bool ConnectionGroup::Insert(Item* ip_item)
{
    Form const l_form = GetForm();
    if (l_form == Single)
    {
        if (mp_slot == ip_item)
            return false;
        Array* lp_array = Array::Allocate(2);
        lp_array->Begin()[0] = std::min(mp_slot, ip_item);
        lp_array->Begin()[1] = std::max(mp_slot, ip_item);
        lp_array->m_size = 2;
        SetArray(lp_array);
        return true;
    }
    if (l_form == Sorted)
    {
        Array* lp_array = GetArray();
        Item** lp_at = lp_array->End();
        if (ip_item <= lp_at[-1])
        {
            lp_at = std::lower_bound(lp_array->Begin(), lp_array->End(), ip_item);
            if (*lp_at == ip_item)
                return false;
        }
        if (lp_array->m_size == lp_array->m_capacity)
        {
            if (lp_array->m_capacity < s_maxSorted)
            {
                std::size_t const l_index = static_cast<std::size_t>(lp_at - lp_array->Begin());
                lp_array = Array::Resize(lp_array, GrownCapacity(lp_array->m_capacity));
                SetArray(lp_array);
                lp_at = lp_array->Begin() + l_index;
            }
            else
            {
                // Too large to keep moving whole: cut it into two chunks and insert there.
                auto* lp_chunks = new Chunks;
                std::uint32_t const l_half = lp_array->m_size / 2;
                for (std::uint32_t l_from : {0u, l_half})
                {
                    auto* lp_chunk = new ItemChunk;
                    lp_chunk->m_size = (l_from == 0 ? l_half : lp_array->m_size - l_half);
                    std::memcpy(lp_chunk->mp_items, lp_array->Begin() + l_from, lp_chunk->m_size * sizeof(Item*));
                    lp_chunks->m_chunks.push_back(lp_chunk);
                }
                lp_chunks->m_size = lp_array->m_size;
                Array::Free(lp_array);
                SetChunks(lp_chunks);
                return Insert(ip_item);
            }
        }
        std::memmove(lp_at + 1, lp_at, static_cast<std::size_t>(lp_array->End() - lp_at) * sizeof(Item*));
        *lp_at = ip_item;
        ++lp_array->m_size;
        return true;
    }

    Chunks* lp_chunks = GetChunks();
    // New items mostly come above every item held: the last chunk, recently written, takes
    // them without a search through the others, which are cold.
    std::size_t l_index = lp_chunks->m_chunks.size() - 1;
    ItemChunk* lp_chunk = lp_chunks->m_chunks[l_index];
    Item** lp_at = lp_chunk->mp_items + lp_chunk->m_size;
    if (ip_item <= lp_chunk->mp_items[lp_chunk->m_size - 1])
    {
        l_index = lp_chunks->ChunkFor(ip_item);
        lp_chunk = lp_chunks->m_chunks[l_index];
        lp_at = std::lower_bound(lp_chunk->mp_items, lp_chunk->mp_items + lp_chunk->m_size, ip_item);
        if (lp_at != lp_chunk->mp_items + lp_chunk->m_size && *lp_at == ip_item)
            return false;
    }
    if (lp_chunk->m_size == ItemChunk::s_capacity)
    {
        auto* lp_next = new ItemChunk;
        bool const l_appending = l_index + 1 == lp_chunks->m_chunks.size() && lp_at == lp_chunk->mp_items + lp_chunk->m_size;
        if (l_appending)
        {
            // Items mostly arrive in rising addresses: start a fresh chunk instead of leaving
            // two half-empty ones behind.
            lp_next->mp_items[0] = ip_item;
            lp_next->m_size = 1;
            lp_chunks->m_chunks.push_back(lp_next);
            ++lp_chunks->m_size;
            return true;
        }
        std::uint32_t const l_half = ItemChunk::s_capacity / 2;
        lp_next->m_size = ItemChunk::s_capacity - l_half;
        std::memcpy(lp_next->mp_items, lp_chunk->mp_items + l_half, lp_next->m_size * sizeof(Item*));
        lp_chunk->m_size = l_half;
        lp_chunks->m_chunks.insert(lp_chunks->m_chunks.begin() + static_cast<std::ptrdiff_t>(l_index) + 1, lp_next);
        if (ip_item >= lp_next->mp_items[0])
            lp_chunk = lp_next;
        lp_at = std::lower_bound(lp_chunk->mp_items, lp_chunk->mp_items + lp_chunk->m_size, ip_item);
    }
    std::memmove(lp_at + 1, lp_at, static_cast<std::size_t>(lp_chunk->mp_items + lp_chunk->m_size - lp_at) * sizeof(Item*));
    *lp_at = ip_item;
    ++lp_chunk->m_size;
    ++lp_chunks->m_size;
    return true;
}

bool ConnectionGroup::Erase(Item* ip_item)
{
    Form const l_form = GetForm();
    if (l_form == Single)
    {
        if (mp_slot != ip_item)
            return false;
        mp_slot = nullptr;
        return true;
    }
    if (l_form == Sorted)
    {
        Array* lp_array = GetArray();
        Item** lp_at = std::lower_bound(lp_array->Begin(), lp_array->End(), ip_item);
        if (lp_at == lp_array->End() || *lp_at != ip_item)
            return false;
        std::memmove(lp_at, lp_at + 1, static_cast<std::size_t>(lp_array->End() - lp_at - 1) * sizeof(Item*));
        --lp_array->m_size;
        if (lp_array->m_size == 1)
        {
            mp_slot = lp_array->Begin()[0];
            Array::Free(lp_array);
        }
        else if (lp_array->m_size * 4 <= lp_array->m_capacity)
            SetArray(Array::Resize(lp_array, lp_array->m_capacity / 2));
        return true;
    }

    Chunks* lp_chunks = GetChunks();
    std::size_t const l_index = lp_chunks->ChunkFor(ip_item);
    ItemChunk* lp_chunk = lp_chunks->m_chunks[l_index];
    Item** lp_end = lp_chunk->mp_items + lp_chunk->m_size;
    Item** lp_at = std::lower_bound(lp_chunk->mp_items, lp_end, ip_item);
    if (lp_at == lp_end || *lp_at != ip_item)
        return false;
    std::memmove(lp_at, lp_at + 1, static_cast<std::size_t>(lp_end - lp_at - 1) * sizeof(Item*));
    --lp_chunk->m_size;
    --lp_chunks->m_size;
    if (lp_chunks->m_size <= s_backToSorted)
    {
        Array* lp_array = Array::Allocate(static_cast<std::uint32_t>(std::max<std::size_t>(2, s_backToSorted)));
        for (Item* lp_item : Items())
            lp_array->Begin()[lp_array->m_size++] = lp_item;
        delete lp_chunks;
        SetArray(lp_array);
        return true;
    }
    // A chunk that runs low is merged into a neighbour that has room, so that mass removal
    // does not leave many nearly empty chunks behind.
    if (lp_chunk->m_size == 0)
    {
        delete lp_chunk;
        lp_chunks->m_chunks.erase(lp_chunks->m_chunks.begin() + static_cast<std::ptrdiff_t>(l_index));
    }
    else if (lp_chunk->m_size < ItemChunk::s_capacity / 4 && lp_chunks->m_chunks.size() > 1)
    {
        std::size_t const l_low = l_index + 1 < lp_chunks->m_chunks.size() ? l_index : l_index - 1;
        ItemChunk* lp_lower = lp_chunks->m_chunks[l_low];
        ItemChunk* lp_upper = lp_chunks->m_chunks[l_low + 1];
        if (lp_lower->m_size + lp_upper->m_size <= ItemChunk::s_capacity * 3 / 4)
        {
            std::memcpy(lp_lower->mp_items + lp_lower->m_size, lp_upper->mp_items, lp_upper->m_size * sizeof(Item*));
            lp_lower->m_size += lp_upper->m_size;
            delete lp_upper;
            lp_chunks->m_chunks.erase(lp_chunks->m_chunks.begin() + static_cast<std::ptrdiff_t>(l_low) + 1);
        }
    }
    return true;
}

void ConnectionGroup::Release()
{
    Form const l_form = GetForm();
    if (l_form == Sorted)
        Array::Free(GetArray());
    else if (l_form == Chunked)
        delete GetChunks();
    mp_slot = nullptr;
}
