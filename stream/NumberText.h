#pragma once

#include <QString>

#include <string>

// Whether bit i_bit of the value is set, counting from 1 for the lowest bit.
bool GetBit(unsigned int i_value, int i_bit);

// Digits grouped by "," in threes from the right; 0 and below give the empty text.
QString CommafyNumber(long long i_value);

// A duration as days, hours, minutes and seconds without spaces, e.g. "1h1m1s"; the days only
// when there are any, and the hours when there are days or hours.
std::string FormatSeconds(long i_seconds);
