#pragma once

#include <string>
#include <type_traits>

// The decimal text of a whole number, with a sign if negative. Such texts become item keys,
// so the form must never depend on the locale.
template <class T>
    requires(std::is_integral_v<T> && !std::is_same_v<T, bool> && !std::is_same_v<T, char>)
std::string ToString(T i_value)
{
    return std::to_string(i_value);
}
