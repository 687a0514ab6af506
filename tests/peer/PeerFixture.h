#pragma once

#include <QByteArrayList>
#include <QCoreApplication>
#include <QDateTime>
#include <QTime>

#include <memory>
#include <vector>

#include "peer/PeerMessenger.h"
#include "server/ServerTestSupport.h"
#include "support/ScriptedPeer.h"
#include "support/TestPorts.h"

// The server link's fixture with a peer messenger of alice beside it, and bob, a peer played by
// hand. Every signal of the messenger is written to m_events as "name|arg|arg"; sockets handed
// over belong to the test.
class PeerTest : public ServerTest
{
protected:
    static constexpr quint32 s_loopback = 0x7f000001;

    static int FreePort()
    {
        QTcpServer l_probe;
        l_probe.listen(QHostAddress::AnyIPv4, 0);
        return l_probe.serverPort();
    }

    void SetUp() override
    {
        ServerTest::SetUp();
        SetGlobal("listening_port", FreePort());
        SetLogSink([this](QString const& i_area, int i_level, QString const& i_text, ItemPtr)
                   { if (i_area == QLatin1String("Peer Messenger")) m_lines << QByteArray::number(i_level) + '|' + i_text.toUtf8(); });
        Restart();
    }
    void TearDown() override
    {
        mp_messenger.reset();
        m_handed.clear();
        ServerTest::TearDown();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

    // A new messenger, wired as the main window wires it, after the data was loaded.
    void Restart()
    {
        mp_messenger.reset();
        mp_messenger = std::make_unique<PeerMessenger>();
        PeerMessenger* lp_m = mp_messenger.get();
        QObject::connect(mp_server.get(), &Server::Connected, lp_m, &PeerMessenger::OnConnectedToServer);
        QObject::connect(mp_server.get(), &Server::IndirectPeerConnectionFailure, lp_m, &PeerMessenger::OnIndirectPeerConnectionFailure);
        auto const l_record = [this, lp_m](auto i_signal, char const* i_name)
        { QObject::connect(lp_m, i_signal, lp_m, [this, i_name](auto const&... i_args) { Record(i_name, i_args...); }); };
        l_record(&PeerMessenger::FileConnectionAccepted, "FileConnectionAccepted");
        l_record(&PeerMessenger::FileConnectionRequested, "FileConnectionRequested");
        l_record(&PeerMessenger::DNetConnectionAccepted, "DNetConnectionAccepted");
        l_record(&PeerMessenger::DNetConnectionRequested, "DNetConnectionRequested");
        l_record(&PeerMessenger::UserShare, "5");
        l_record(&PeerMessenger::SearchResults, "9");
        l_record(&PeerMessenger::SharedFilesInFolderRequested, "36");
        l_record(&PeerMessenger::FileTransferRequested, "40");
        l_record(&PeerMessenger::FileTransferResponse, "41");
        l_record(&PeerMessenger::QueueUploadRequested, "43");
        l_record(&PeerMessenger::DownloadPlaceInLine, "44");
        l_record(&PeerMessenger::UploadFailed, "46");
        l_record(&PeerMessenger::UploadDenied, "50");
        mp_messenger->DataLoaded();
    }

    // Logs in; the messenger then tells the server its port.
    void LogIn()
    {
        ServerTest::LogIn();
        EXPECT_EQ(mp_central->TakeBody(2), Body(2).U32(mp_messenger->ListeningPort()).Bytes());
    }
    // The token of the next indirect request on the central server's wire, for that user and type.
    quint32 TakeIndirect(QByteArray const& i_user, QByteArray const& i_type)
    {
        QByteArray const l_body = mp_central->TakeBody(18);
        EXPECT_EQ(l_body.mid(8), Body(0).Str(i_user).Str(i_type).Bytes().mid(4));
        return Fields(l_body.mid(4)).U32();
    }

    // Bob dials the messenger, which has taken the socket once this returns.
    std::unique_ptr<PeerLink> DialIn()
    {
        std::size_t const l_before = Count("uninitialized_socket");
        std::unique_ptr<PeerLink> lp_link = m_bob.Dial(mp_messenger->ListeningPort());
        EXPECT_TRUE(lp_link && WaitFor([&] { return Count("uninitialized_socket") == l_before + 1; }));
        return lp_link;
    }
    // A messaging connection greeted as i_user; its new peer_socket item goes to o_item.
    std::unique_ptr<PeerLink> OpenFrom(QByteArray const& i_user, ItemPtr* o_item = nullptr)
    {
        ItemSet const l_before = User(i_user).GetItems("peer_socket");
        std::unique_ptr<PeerLink> lp_link = DialIn();
        lp_link->SendGreeting(i_user, "P");
        EXPECT_TRUE(WaitFor([&] { return User(i_user).GetItems("peer_socket").size() == l_before.size() + 1; }));
        for (Item* lp_item : User(i_user).GetItems("peer_socket"))
            if (o_item && !l_before.count(lp_item))
                *o_item = lp_item;
        return lp_link;
    }
    // Bob accepts the messenger's direct attempt of this type; null unless it greets as alice.
    std::unique_ptr<PeerLink> AcceptGreeting(QByteArray const& i_type)
    {
        std::unique_ptr<PeerLink> lp_link = m_bob.Accept();
        bool const l_greeted = lp_link && lp_link->TakeFirstFrame() == PeerLink::GreetingFrame("alice", i_type).mid(4);
        EXPECT_TRUE(l_greeted) << i_type.toStdString();
        return l_greeted ? std::move(lp_link) : nullptr;
    }
    // The file name of the next message 43 on the link.
    static QByteArray TakeQueued(PeerLink& i_link)
    {
        std::optional<Fields> l_message = i_link.Take(43, 3000);
        return l_message ? l_message->Str() : QByteArray();
    }
    // Sends a message 43 behind what was sent and waits for its signal: all before it was handled.
    void Settle(PeerLink& i_link, QByteArray const& i_user = "bob")
    {
        i_link.Send(Body(43).Str("marker"));
        EXPECT_TRUE(WaitFor([&] { return m_events.contains("43|" + i_user + "|marker"); }));
    }
    bool WaitLogged(QByteArray const& i_line) { return WaitFor([&] { return m_lines.contains(i_line); }); }

    static ItemPtr User(QByteArray const& i_name) { return d.GetType("user")->GetItem(i_name.toStdString()); }
    static std::size_t Count(char const* i_type) { return d.GetType(i_type)->ItemCount(); }
    static void SetAddress(QByteArray const& i_user, quint16 i_port)
    {
        User(i_user) += d.GetType("user_address")->GetItem(Value(s_loopback));
        User(i_user) += d.GetType("user_port")->GetItem(Value(static_cast<int>(i_port)));
    }
    // Items of connection making, none of which may outlive it.
    static std::size_t Leftovers()
    {
        std::size_t l_count = 0;
        for (char const* lp_type : {"uninitialized_socket", "connect_to_peer_request", "connect_to_peer_request_socket",
                                    "indirect_connect_to_peer_request", "peer_connection_request", "peer_connection_request_socket"})
            l_count += Count(lp_type);
        return l_count;
    }
    // Gives the holder a time item i_seconds before now. Called early in a second (EarlyInASecond),
    // a sweep right after reads the age as i_seconds and a fraction.
    static void Age(ItemPtr i_holder, char const* i_timeType, int i_seconds)
    {
        QString const l_text = QDateTime::currentDateTime().addSecs(-i_seconds).toString(Qt::TextDate);
        i_holder += d.GetType(i_timeType)->GetItem(Value(l_text.toStdString()));
    }
    static void EarlyInASecond() { ASSERT_TRUE(WaitFor([] { return QTime::currentTime().msec() < 500; }, 1100)); }
    static QList<qsizetype> EveryByte(qsizetype i_size)
    {
        QList<qsizetype> l_cuts;
        for (qsizetype l_at = 1; l_at < i_size; ++l_at)
            l_cuts << l_at;
        return l_cuts;
    }

    template <class... Args>
    void Record(char const* i_name, Args const&... i_args)
    {
        QByteArrayList l_fields{i_name};
        (l_fields.append(Text(i_args)), ...);
        m_events << l_fields.join('|');
    }
    QByteArray Text(std::string const& i_text) { return QByteArray::fromStdString(i_text); }
    template <class T>
        requires std::is_arithmetic_v<T>
    QByteArray Text(T i_value) { return QByteArray::number(i_value); }
    QByteArray Text(ItemPtr const&) { return "results"; }
    QByteArray Text(AttributeTranslationTable const& i_table) { return QByteArray::number(i_table.size()); }
    QByteArray Text(QTcpSocket* ip_socket) { return m_handed.emplace_back(ip_socket), "socket"; }
    QByteArray Text(FileInfoMap const& i_share)
    {
        QByteArrayList l_files;
        for (auto const& [l_folder, l_set] : i_share)
            for (FileInfo const& l_file : l_set)
                l_files << QByteArray::fromStdString(l_folder + ":" + l_file.GetName());
        return l_files.join(',');
    }

    ScriptedPeer m_bob;
    std::unique_ptr<PeerMessenger> mp_messenger;
    std::vector<std::unique_ptr<QTcpSocket>> m_handed;
    QByteArrayList m_lines; // "level|text" of the area "Peer Messenger"
    QByteArrayList m_events;
};
