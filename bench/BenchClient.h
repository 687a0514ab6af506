#pragma once

#include <QHostAddress>
#include <QTcpServer>

#include "peer/PeerMessenger.h"
#include "server/Server.h"
#include "store/Data.h"
#include "store/DataSaver.h"
#include "store/Settings.h"

// The client's graph as the main window builds it up to the peer messenger, for benchmarks
// that drive the managers without a window: the data saver, the settings types, the server
// link (never connected) and the messenger, with a user name, no port mapping and a free
// listening port. The caller loads nothing; it emits the load when its own managers exist.
inline void SetUpBenchClient(char const* i_userName)
{
    new DataSaver();
    Type* lp_value = d.NewType("global_value", false, false, true);
    for (char const* lp_keyType : {"global", "vglobal"})
        d.NewType(lp_keyType, true, false, true)->RelateToType(lp_value, Many, One, false);
    new Server();
    Server::CreateData();
    new PeerMessenger();
    QTcpServer l_probe;
    l_probe.listen(QHostAddress::LocalHost, 0);
    SetGlobal("username", i_userName);
    SetGlobal("use_upnp", "no");
    SetGlobal("listening_port", Value(static_cast<int>(l_probe.serverPort())));
}
