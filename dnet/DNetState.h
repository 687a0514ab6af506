#pragma once

#include <QString>

#include "store/ItemPtr.h"
#include "store/Value.h"

// The client's own tree state: `dnet_global` keys, each holding one `dnet_value`, as the
// settings do with `global`.
ItemPtr GetDNetValue(char const* i_key); // null when the key holds no value
void SetDNetValue(char const* i_key, Value const& i_value);
void ClearDNetValue(char const* i_key);

// One line of the log area of the tree.
void DNetLog(int i_level, QString const& i_text);
