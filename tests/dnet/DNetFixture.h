#pragma once

#include <QByteArrayList>
#include <QCoreApplication>

#include <algorithm>
#include <memory>
#include <utility>

#include "dnet/DNetManager.h"
#include "peer/PeerMessenger.h"
#include "server/ServerTestSupport.h"
#include "support/FreePort.h"
#include "support/ScriptedPeer.h"
#include "support/TestPorts.h"

// Alice's server link, peer messenger and tree manager, wired as the main window wires them,
// against a loopback central server. The other clients of the tree are played by hand: each a
// ScriptedPeer that alice dials as a possible parent (bob, carol), or that dials alice as her
// child (dan, erin).
class DNetTest : public ServerTest
{
protected:
    static constexpr quint32 s_loopback = 0x7f000001;

    void SetUp() override
    {
        ServerTest::SetUp();
        SetGlobal("listening_port", FreePort());
        SetLogSink([this](QString const& i_area, int i_level, QString const& i_text, ItemPtr)
                   { if (i_area == QLatin1String("Distributed Network")) m_lines << QByteArray::number(i_level) + '|' + i_text.toUtf8(); });
        mp_messenger = std::make_unique<PeerMessenger>();
        QObject::connect(mp_server.get(), &Server::Connected, mp_messenger.get(), &PeerMessenger::OnConnectedToServer);
        mp_dnet = std::make_unique<DNetManager>();
        mp_dnet->Attach(mp_server.get(), mp_messenger.get());
        QObject::connect(mp_dnet.get(), &DNetManager::DNetSearchRequest, mp_dnet.get(),
                         [this](std::string const& i_user, quint32 i_token, std::string const& i_text)
                         { m_searches << QByteArray::fromStdString(i_user) + '|' + QByteArray::number(i_token) + '|' + QByteArray::fromStdString(i_text); });
        mp_messenger->DataLoaded();
    }
    void TearDown() override
    {
        mp_dnet.reset();
        mp_messenger.reset();
        ServerTest::TearDown();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

    // Logs in; a client without a parent says so first.
    void LogIn()
    {
        ServerTest::LogIn();
        EXPECT_EQ(Report(), "no parent");
    }

    // ---- bodies of D frames, code byte first
    static QByteArray Level(qint32 i_level) { return QByteArray(1, 4) + Body(static_cast<quint32>(i_level)).Bytes(); }
    static QByteArray Leader(QByteArray const& i_name) { return QByteArray(1, 5) + Body(0).Str(i_name).Bytes().mid(4); }
    static QByteArray Search(QByteArray const& i_user, quint32 i_token, QByteArray const& i_text)
    {
        return QByteArray(1, 3) + Body(49).Str(i_user).U32(i_token).Str(i_text).Bytes();
    }
    static QByteArray Depth(quint32 i_depth) { return QByteArray(1, 7) + Body(i_depth).Bytes(); }
    static QByteArray Framed(QByteArray const& i_body) { return PeerLink::Framed(i_body); }

    // Server message 102 naming each peer with its port on the loopback.
    void NameParents(QList<std::pair<QByteArray, quint16>> const& i_parents)
    {
        Body l_body(102);
        l_body.U32(static_cast<quint32>(i_parents.size()));
        for (auto const& [l_name, l_port] : i_parents)
            l_body.Str(l_name).U32(s_loopback).U32(l_port);
        mp_central->Send(l_body);
    }
    // Names the peer in a 102 and takes alice's "D" attempt at its listener: a candidate.
    std::unique_ptr<PeerLink> Candidate(ScriptedPeer& i_peer, QByteArray const& i_name)
    {
        std::size_t const l_before = Count("dnet_parent_candidate");
        NameParents({{i_name, i_peer.ListenPort()}});
        std::unique_ptr<PeerLink> lp_link = i_peer.Accept();
        bool const l_greeted = lp_link && lp_link->TakeFirstFrame() == PeerLink::GreetingFrame("alice", "D").mid(4);
        EXPECT_TRUE(l_greeted && WaitFor([&] { return Count("dnet_parent_candidate") == l_before + 1; })) << i_name.toStdString();
        return l_greeted ? std::move(lp_link) : nullptr;
    }
    // A candidate that sends a search at once and so becomes the parent.
    std::unique_ptr<PeerLink> Parent(ScriptedPeer& i_peer, QByteArray const& i_name, QByteArray const& i_before = {})
    {
        std::unique_ptr<PeerLink> lp_link = Candidate(i_peer, i_name);
        if (lp_link)
            lp_link->SendRaw(i_before + Framed(Search("sam", 1, "first")));
        EXPECT_TRUE(WaitFor([&] { return ParentName() == i_name; })) << i_name.toStdString();
        return lp_link;
    }
    // The peer dials alice's listener with a "D" greeting, i_after in the same write.
    std::unique_ptr<PeerLink> Child(ScriptedPeer& i_peer, QByteArray const& i_name, QByteArray const& i_after = {})
    {
        Item* lp_before = User(i_name)["dnet_child"];
        std::unique_ptr<PeerLink> lp_link = i_peer.Dial(mp_messenger->ListeningPort());
        if (lp_link)
            lp_link->SendRaw(PeerLink::GreetingFrame(i_name, "D") + i_after);
        EXPECT_TRUE(lp_link && WaitFor([&] { Item* lp_now = User(i_name)["dnet_child"]; return lp_now && lp_now != lp_before; }));
        return lp_link;
    }

    // The next report about the tree on the server's wire, as text; other messages are skipped.
    QByteArray Report(int i_timeoutMs = 3000)
    {
        for (;;)
        {
            QByteArray const l_body = mp_central->Next(i_timeoutMs);
            if (l_body.isEmpty())
                return "none";
            Fields l_fields(l_body);
            switch (l_fields.U32())
            {
            case 71: return l_fields.U8() == 0 ? "has parent" : "no parent";
            case 100: return "can parent " + QByteArray::number(l_fields.U8());
            case 126: return "level " + QByteArray::number(static_cast<qint32>(l_fields.U32()));
            case 127: return "leader " + l_fields.Str();
            case 129: return "depth " + QByteArray::number(l_fields.U8());
            default: break;
            }
        }
    }
    QByteArrayList Reports(int i_count)
    {
        QByteArrayList l_reports;
        while (i_count-- > 0)
            l_reports << Report();
        return l_reports;
    }
    bool NoReport() { return Report(300) == "none"; }

    static ItemPtr User(QByteArray const& i_name) { return d.GetType("user")->GetItem(i_name.toStdString()); }
    static std::size_t Count(char const* i_type) { return d.GetType(i_type)->ItemCount(); }
    static QByteArray Own(char const* i_key)
    {
        ItemPtr const l_value = d.GetType("dnet_global")->HasItem(i_key)["dnet_value"];
        return l_value ? QByteArray::fromStdString(l_value.AsString()) : QByteArray("unset");
    }
    static QByteArray ParentName() { return Own("dnet_parent_user"); }
    bool Logged(QByteArray const& i_line) const { return m_lines.contains(i_line); }
    qsizetype LinesWith(QByteArray const& i_text) const
    {
        return std::count_if(m_lines.begin(), m_lines.end(), [&](QByteArray const& i_line) { return i_line.contains(i_text); });
    }
    bool WaitLogged(QByteArray const& i_line) { return WaitFor([&] { return Logged(i_line); }); }

    ScriptedPeer m_bob;
    ScriptedPeer m_carol;
    ScriptedPeer m_dan;
    ScriptedPeer m_erin;
    std::unique_ptr<PeerMessenger> mp_messenger;
    std::unique_ptr<DNetManager> mp_dnet;
    QByteArrayList m_lines; // "level|text" of the area of the tree
    QByteArrayList m_searches; // "user|token|text" of each DNetSearchRequest
};
