#include "store/ItemIndex.h"

#include <functional>

#include "store/Item.h"

namespace
{
std::size_t HashText(std::string_view i_text) { return std::hash<std::string_view>()(i_text); }

// Addresses are multiples of 16 with little spread in their low bits: mix before masking.
std::size_t HashAddress(Item const* ip_item)
{
    auto l_bits = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(ip_item));
    l_bits ^= l_bits >> 33;
    l_bits *= 0xff51afd7ed558ccdULL;
    l_bits ^= l_bits >> 33;
    return static_cast<std::size_t>(l_bits);
}

constexpr std::size_t s_smallest = 8;
} // namespace

ItemIndex::~ItemIndex()
{
    for (std::size_t l_slot = 0; l_slot < m_capacity; ++l_slot)
        if (mp_slots[l_slot])
            Item::Destroy(mp_slots[l_slot]);
    delete[] mp_slots;
}

std::size_t ItemIndex::Hash(Item* ip_item) const
{
    return m_byValue ? HashText(ip_item->AsView()) : HashAddress(ip_item);
}

Item* ItemIndex::Find(std::string_view i_value) const
{
    if (m_size == 0)
        return nullptr;
    for (std::size_t l_slot = Home(HashText(i_value));; l_slot = Home(l_slot + 1))
    {
        Item* lp_item = mp_slots[l_slot];
        if (!lp_item)
            return nullptr;
        if (lp_item->AsView() == i_value)
            return lp_item;
    }
}

void ItemIndex::Insert(Item* ip_item)
{
    // At most three quarters full, so that a probe meets an empty slot soon.
    if ((m_size + 1) * 4 > m_capacity * 3)
        Rehash(m_capacity ? m_capacity * 2 : s_smallest);
    Place(ip_item);
    ++m_size;
    if (mp_lowest && ip_item < mp_lowest)
        mp_lowest = ip_item;
}

void ItemIndex::Place(Item* ip_item)
{
    std::size_t l_slot = Home(Hash(ip_item));
    while (mp_slots[l_slot])
        l_slot = Home(l_slot + 1);
    mp_slots[l_slot] = ip_item;
}

void ItemIndex::Erase(Item* ip_item)
{
    if (m_size == 0)
        return;
    std::size_t l_slot = Home(Hash(ip_item));
    while (mp_slots[l_slot] != ip_item)
    {
        if (!mp_slots[l_slot])
            return;
        l_slot = Home(l_slot + 1);
    }
    // Shift back the items of the run that follows, so that no probe ever stops early at the
    // hole: an item moves into the hole when its home does not lie between the hole and it.
    std::size_t l_hole = l_slot;
    for (std::size_t l_next = Home(l_hole + 1); mp_slots[l_next]; l_next = Home(l_next + 1))
    {
        std::size_t const l_home = Home(Hash(mp_slots[l_next]));
        bool const l_homeAfterHole = l_hole <= l_next ? (l_hole < l_home && l_home <= l_next)
                                                      : (l_hole < l_home || l_home <= l_next);
        if (l_homeAfterHole)
            continue;
        mp_slots[l_hole] = mp_slots[l_next];
        l_hole = l_next;
    }
    mp_slots[l_hole] = nullptr;
    --m_size;
    if (ip_item == mp_lowest)
        mp_lowest = nullptr;
    // Give memory back after mass removal, such as a sweep of an unshared folder.
    if (m_capacity > s_smallest && m_size * 8 < m_capacity)
        Rehash(m_capacity / 2);
}

void ItemIndex::Rehash(std::size_t i_capacity)
{
    Item** lp_old = mp_slots;
    std::size_t const l_oldCapacity = m_capacity;
    mp_slots = new Item*[i_capacity]();
    m_capacity = i_capacity;
    for (std::size_t l_slot = 0; l_slot < l_oldCapacity; ++l_slot)
        if (lp_old[l_slot])
            Place(lp_old[l_slot]);
    delete[] lp_old;
}

Item* ItemIndex::Lowest() const
{
    if (!mp_lowest)
        for (Item* lp_item : *this)
            if (!mp_lowest || lp_item < mp_lowest)
                mp_lowest = lp_item;
    return mp_lowest;
}
