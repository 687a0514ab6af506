#include "forms/DataValueText.h"

#include <algorithm>

QString ShownValue(std::string_view i_value)
{
    // Four bytes at most per character: a prefix of this many bytes holds more characters than
    // are shown, so a sequence cut at its end never reaches the screen.
    constexpr std::size_t l_bytesRead = 4 * s_shownValueLength + 4;
    std::size_t const l_bytes = std::min(i_value.size(), l_bytesRead);
    QString l_text = QString::fromUtf8(i_value.data(), static_cast<qsizetype>(l_bytes));
    if (l_text.size() <= s_shownValueLength && l_bytes == i_value.size())
        return l_text;
    qsizetype l_cut = s_shownValueLength;
    if (l_text.at(l_cut - 1).isHighSurrogate())
        --l_cut;
    l_text.truncate(l_cut);
    return l_text + QChar(0x2026);
}
