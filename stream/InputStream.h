#pragma once

#include "stream/StreamReadable.h"

#include <QtEndian>

#include <cstdint>
#include <list>
#include <map>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

// The largest string length or element count a reader accepts: what comes from a peer is
// never allowed to make us allocate more than this on its word alone.
inline constexpr std::uint32_t g_maxReadLength = 0x20000;

// The abstract byte reader, and the reads of the wire primitives and containers on top of it.
// Every read returns false at the first thing it cannot read; nothing is rolled back, so the
// caller stops parsing that message.
class InputStream
{
public:
    virtual ~InputStream() = default;

    // Fills the whole target, or reads nothing and returns false.
    virtual bool ReadBuffer(void* o_target, unsigned long i_length) = 0;

    // A length-prefixed string; its text ends at the first zero byte, though all its bytes
    // are consumed.
    bool Read(std::string& o_text);

    bool Read(StreamReadable& o_record) { return o_record.Read(*this); }

    // A little-endian integer; for a bool, any non-zero byte is true.
    template <class T>
        requires std::is_integral_v<T>
    bool Read(T& o_value)
    {
        if constexpr (std::is_same_v<T, bool>)
        {
            unsigned char l_byte = 0;
            if (!ReadBuffer(&l_byte, 1))
                return false;
            o_value = l_byte != 0;
        }
        else
        {
            T l_value;
            if (!ReadBuffer(&l_value, sizeof l_value))
                return false;
            o_value = qFromLittleEndian(l_value);
        }
        return true;
    }

    template <class T, class A>
    bool Read(std::list<T, A>& o_list)
    {
        return ReadElements<T>(o_list, [&o_list](T&& i_element) { o_list.push_back(std::move(i_element)); });
    }

    template <class T, class A>
    bool Read(std::vector<T, A>& o_list)
    {
        return ReadElements<T>(o_list, [&o_list](T&& i_element) { o_list.push_back(std::move(i_element)); });
    }

    template <class T, class C, class A>
    bool Read(std::set<T, C, A>& o_set)
    {
        return ReadElements<T>(o_set, [&o_set](T&& i_element) { o_set.insert(std::move(i_element)); });
    }

    template <class K, class V>
    bool Read(std::pair<K, V>& o_pair)
    {
        return Read(o_pair.first) && Read(o_pair.second);
    }

    // A later entry with a key already read replaces the earlier one.
    template <class K, class V, class C, class A>
    bool Read(std::map<K, V, C, A>& o_map)
    {
        return ReadElements<std::pair<K, V>>(o_map, [&o_map](std::pair<K, V>&& i_entry)
                            { o_map.insert_or_assign(std::move(i_entry.first), std::move(i_entry.second)); });
    }

private:
    bool ReadCount(std::uint32_t& o_count);

    // Clears the target, then reads one element at a time: the target grows only with
    // elements whose bytes were really there, whatever count the stream announced.
    template <class ELEMENT, class CONTAINER, class ADD>
    bool ReadElements(CONTAINER& o_container, ADD const& i_add)
    {
        o_container.clear();
        std::uint32_t l_count = 0;
        if (!ReadCount(l_count))
            return false;
        for (std::uint32_t l_index = 0; l_index < l_count; ++l_index)
        {
            ELEMENT l_element{};
            if (!Read(l_element))
                return false;
            i_add(std::move(l_element));
        }
        return true;
    }
};
