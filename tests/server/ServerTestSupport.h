#pragma once

#include <gtest/gtest.h>

#include <QSignalSpy>
#include <QStringList>

#include <memory>

#include "server/Server.h"
#include "store/Data.h"
#include "store/DataSaver.h"
#include "store/Log.h"
#include "store/Settings.h"
#include "support/LoopbackCentral.h"
#include "support/WaitFor.h"

// A fresh Server per test and a loopback listener that stands in for the central server, on the
// process's one graph, whose types are declared once; what a test put into the graph is removed
// after it.
class ServerTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        mp_server->SetAddress(QStringLiteral("127.0.0.1"), m_central.Port());
        for (auto const& [lp_key, lp_value] : {std::pair{"username", "alice"}, {"password", "secret"}, {"use_upnp", "no"}, {"listening_port", "2235"}})
            SetGlobal(lp_key, lp_value);
        SetLogSink([this](QString const& i_area, int i_level, QString const& i_text, ItemPtr)
                   { m_log << QStringLiteral("%1|%2|%3").arg(i_area).arg(i_level).arg(i_text); });
        QObject::connect(mp_server.get(), &Server::WishListWait, mp_server.get(), [this](unsigned int i_value) { m_markerSeen = i_value; });
    }
    void TearDown() override
    {
        mp_server.reset();
        SetLogSink(nullptr);
        for (auto const& l_entry : d.Types())
            l_entry.second->GetItems().Remove();
    }

    // The central side of the Server's next connection becomes mp_central.
    bool AcceptClient(int i_timeoutMs = 5000)
    {
        mp_central = m_central.Accept(i_timeoutMs);
        return mp_central != nullptr;
    }
    void AnswerLogin(bool i_success = true)
    {
        mp_central = m_central.AnswerLogin(i_success);
        ASSERT_TRUE(mp_central);
    }
    void LogIn()
    {
        mp_server->Connect();
        AnswerLogin();
        ASSERT_TRUE(WaitFor([this] { return mp_server->IsConnected(); }));
    }
    bool NothingSent() { return mp_central->Next(200).isEmpty(); }
    // Sends the bytes and a marker message after them, and returns once the marker was handled.
    void SendAndSettle(QByteArray const& i_bytes)
    {
        quint32 const l_marker = ++m_markerSent;
        mp_central->SendRaw(i_bytes + Body(104).U32(l_marker).Frame());
        ASSERT_TRUE(WaitFor([this, l_marker] { return m_markerSeen == l_marker; }));
    }
    void SendAndSettle(Body const& i_body) { SendAndSettle(i_body.Frame()); }

    static ItemPtr User(char const* i_name) { return d.GetType("user")->HasItem(i_name); }
    static ItemPtr Room(char const* i_name) { return d.GetType("room")->HasItem(i_name); }
    static bool Has(ItemPtr i_item, char const* i_type) { return i_item && i_item.IsConnected(i_type); }

    // Settings first, as the main window declares them, then the server link's schema; once,
    // before the first Server.
    static bool DeclareTypes()
    {
        static bool const s_declared = []
        {
            new DataSaver();
            Type* lp_value = d.NewType("global_value", false, false, true);
            d.NewType("global", true, false, true)->RelateToType(lp_value, Many, One, false);
            Server::CreateData();
            return true;
        }();
        return s_declared;
    }

    bool const m_typesDeclared = DeclareTypes();
    LoopbackCentral m_central;
    std::unique_ptr<RawClient> mp_central;
    std::unique_ptr<Server> mp_server = std::make_unique<Server>();
    QSignalSpy m_connected{mp_server.get(), &Server::Connected};
    QSignalSpy m_disconnected{mp_server.get(), &Server::Disconnected};
    QSignalSpy m_failed{mp_server.get(), &Server::ConnectionFailed};
    QStringList m_log; // "area|level|text"
    quint32 m_markerSent = 1000;
    quint32 m_markerSeen = 0;
};
