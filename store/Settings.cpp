#include "store/Settings.h"

#include "store/Data.h"

namespace
{
void Set(char const* i_keyType, char const* i_key, Value const& i_value)
{
    ItemPtr l_key = d.GetType(i_keyType)->GetItem(i_key);
    l_key += d.GetType("global_value")->GetItem(i_value);
}

ItemPtr Get(char const* i_keyType, char const* i_key)
{
    return d.GetType(i_keyType)->HasItem(i_key)["global_value"];
}
} // namespace

void SetGlobal(char const* i_key, Value const& i_value) { Set("global", i_key, i_value); }
void SetVGlobal(char const* i_key, Value const& i_value) { Set("vglobal", i_key, i_value); }
ItemPtr GetGlobalValue(char const* i_key) { return Get("global", i_key); }
ItemPtr GetVGlobalValue(char const* i_key) { return Get("vglobal", i_key); }
std::string GetGlobal(char const* i_key) { return GetGlobalValue(i_key).AsString(); }

void SetGlobalIfUnset(char const* i_key, Value const& i_value)
{
    if (!GetGlobalValue(i_key))
        SetGlobal(i_key, i_value);
}
