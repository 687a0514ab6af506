#include "stream/NumberText.h"

#include "stream/ToString.h"

bool GetBit(unsigned int i_value, int i_bit)
{
    if (i_bit < 1 || i_bit > 32)
        return false;
    return (i_value >> (i_bit - 1)) & 1u;
}

QString CommafyNumber(long long i_value)
{
    std::string l_text;
    for (int l_digits = 0; i_value > 0; i_value /= 10)
    {
        if (l_digits > 0 && l_digits % 3 == 0)
            l_text.insert(l_text.begin(), ',');
        l_text.insert(l_text.begin(), static_cast<char>('0' + i_value % 10));
        ++l_digits;
    }
    return QString::fromLatin1(l_text);
}

std::string FormatSeconds(long i_seconds)
{
    long const l_hours = i_seconds / 3600;
    long const l_days = l_hours / 24;
    std::string l_text;
    if (l_days != 0)
        l_text += ToString<long long>(l_days) + "d";
    if (l_days != 0 || l_hours % 24 != 0)
        l_text += ToString<long long>(l_hours % 24) + "h";
    l_text += ToString<long long>(i_seconds / 60 % 60) + "m";
    l_text += ToString<long long>(i_seconds % 60) + "s";
    return l_text;
}
