#pragma once

#include <cstdint>
#include <string>
#include <type_traits>

// The key of an item: always a byte string, made from text, a number or a live object's address.
class Value
{
public:
    Value(char const* i_text) : m_value(i_text ? i_text : "") {}
    Value(std::string i_text) : m_value(std::move(i_text)) {}
    Value(int i_number);
    Value(unsigned int i_number);
    Value(long long i_number);

    // An address is written as unsigned decimal text of its full width, so that it survives
    // the trip back through AsPointer on 64-bit systems.
    template <class T>
        requires(!std::is_same_v<std::remove_cv_t<T>, char>)
    Value(T* ip_object) : Value(reinterpret_cast<std::uintptr_t>(ip_object), AddressTag{})
    {
    }

    std::string const& Str() const { return m_value; }

private:
    struct AddressTag
    {
    };
    Value(std::uintptr_t i_address, AddressTag);

    std::string m_value;
};
