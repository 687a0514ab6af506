#pragma once

#include "store/OneOrMany.h"

class Type;

// The item types the server link reads and writes. The core ones (users, rooms and their
// attributes) belong to the link alone. The dial-back request, address and search types are
// shared with the peer side, which fills or reads them too: whichever side comes first
// declares them, the other finds them in place.
void DeclareServerSchema();

// A type or relation that may already exist; if it does, it must have been declared alike.
Type* DeclareTypeOnce(char const* i_name, bool i_isRoot, bool i_isNull, bool i_autoCreate);
void RelateOnce(Type* ip_left, Type* ip_right, OneOrMany i_typeFrom, OneOrMany i_typeTo, bool i_owning);
// RelateOnce in the reading of the schema tables: types by name, then what each left item
// holds and what each right item holds.
void RelateOnceByName(char const* i_left, char const* i_right, OneOrMany i_leftHolds, OneOrMany i_rightHolds,
                      bool i_owning = false);
