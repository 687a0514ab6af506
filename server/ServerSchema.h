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
