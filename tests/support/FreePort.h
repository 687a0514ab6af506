#pragma once

#include <QtGlobal>

// A TCP port on which nothing is bound now, for a client that a test starts to listen on. It
// is drawn below the range the system hands out to dialling sockets, so that no outgoing
// connection takes it in the meantime, and one process never gets the same port twice.
// 0 when none was found.
quint16 FreePort();
