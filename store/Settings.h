#pragma once

#include <string>

#include "store/ItemPtr.h"
#include "store/Value.h"

// The settings idiom: a `global` (saved) or `vglobal` (this run only) key item holding one
// `global_value` item, shared by every key with the same text.
void SetGlobal(char const* i_key, Value const& i_value);
void SetVGlobal(char const* i_key, Value const& i_value);
// The default of a setting: kept only while nothing, such as the data file, has set the key.
void SetGlobalIfUnset(char const* i_key, Value const& i_value);
ItemPtr GetGlobalValue(char const* i_key); // null when the key is unset
ItemPtr GetVGlobalValue(char const* i_key);
std::string GetGlobal(char const* i_key);  // empty when the key is unset
