#pragma once

#include <QString>
#include <string_view>

// An item's value as the data browser shows it: bytes that are not UTF-8 become replacement
// characters, and a long value is cut to s_shownValueLength characters and an ellipsis, so that
// a huge value costs no more than a short one to show.
constexpr qsizetype s_shownValueLength = 200;
QString ShownValue(std::string_view i_value);
