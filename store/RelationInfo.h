#pragma once

#include "store/OneOrMany.h"

// A relation as seen from one type towards another.
struct RelationInfo
{
    OneOrMany m_typeFrom = One; // how many items of this type one item of the other may hold
    OneOrMany m_typeTo = One;   // how many items of the other type one item of this may hold
    bool m_owns = false;
    bool m_ownedBy = false;
};
