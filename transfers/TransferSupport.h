#pragma once

#include <QString>

#include <optional>
#include <string>

#include "store/ItemPtr.h"
#include "store/Value.h"

class QTcpSocket;

// Ends the connection at once with a reset. A close would first deliver what is still buffered
// on this side, and a peer that reads slowly or not at all would keep the connection, and the
// system's buffers behind it, for as long as it liked after the transfer was given up.
void ResetConnection(QTcpSocket& io_socket);

// A line of the transfer queue's log, with the user it concerns where one is known.
void TransferLog(int i_level, QString const& i_text, ItemPtr i_user = ItemPtr());

// Connects the holder to the item of that value and removes the item it replaces once nothing
// else holds it, so that values a peer sends again and again do not pile up.
void ReplaceValue(ItemPtr i_holder, char const* i_typeName, Value const& i_value);

// The number a text of decimal digits stands for; none for anything else, a sign included, or
// for a number beyond 64 bits. Saved and received texts are read with it, never asserted on.
std::optional<long long> DecimalOf(std::string const& i_text);
