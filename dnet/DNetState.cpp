#include "dnet/DNetState.h"

#include "store/Data.h"
#include "store/Log.h"

ItemPtr GetDNetValue(char const* i_key)
{
    return d.GetType("dnet_global")->HasItem(i_key)["dnet_value"];
}

void SetDNetValue(char const* i_key, Value const& i_value)
{
    ItemPtr const l_key = d.GetType("dnet_global")->GetItem(i_key);
    l_key += d.GetType("dnet_value")->GetItem(i_value);
}

void ClearDNetValue(char const* i_key)
{
    if (ItemPtr const l_key = d.GetType("dnet_global")->HasItem(i_key))
        l_key.Disconnect("dnet_value");
}

void DNetLog(int i_level, QString const& i_text)
{
    Log(QStringLiteral("Distributed Network"), i_level, i_text);
}
