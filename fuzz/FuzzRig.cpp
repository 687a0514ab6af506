#include "FuzzRig.h"

#include <sys/socket.h>

#include <cerrno>
#include <unordered_set>
#include <vector>

#include <QCoreApplication>
#include <QDir>
#include <QTemporaryDir>
#include <QThreadPool>
#include <QtEndian>

#include "dnet/DNetManager.h"
#include "peer/PeerMessenger.h"
#include "server/Server.h"
#include "shares/SharedFoldersManager.h"
#include "store/Data.h"
#include "store/DataSaver.h"
#include "store/EventDelivery.h"
#include "store/Log.h"
#include "store/Settings.h"
#include "transfers/TransferQueueManager.h"

// Addresses and ports come from the fuzz input, and the code under test dials them: a user's
// address from the server, a dial-back request, a possible parent. Nothing of that may leave
// the process, so every connect fails at once, as an unreachable network would make it.
extern "C" int connect(int, sockaddr const*, socklen_t)
{
    errno = ENETUNREACH;
    return -1;
}

// Every target starts from the process-wide objects, made before its first input.
extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    FuzzRig::Init();
    return 0;
}

namespace
{
std::unordered_set<Item*>& KeptItems()
{
    static std::unordered_set<Item*> s_kept;
    return s_kept;
}

// Until the graph is kept, while the process-wide objects are made, nothing is removed.
bool g_graphKept = false;

void SetSettings()
{
    SetGlobal("username", "fuzzer");
    SetGlobal("password", "secret");
    SetGlobal("use_upnp", "no");
    SetGlobal("listening_port", 2235);
    SetGlobal("upload_speed", 1000);
    // Bytes a peer uploads land here, never in the home folder of whoever runs the fuzzer.
    static QTemporaryDir const s_downloads(QDir::tempPath() + QStringLiteral("/tidewick-fuzz-XXXXXX"));
    SetGlobal("download_folder", s_downloads.path().toStdString());
}

// A few shared files, indexed by the shares manager's own tokenizer, for searches to find.
void ShareFixedFiles(SharedFoldersManager& io_shares)
{
    ItemPtr const l_share = d.GetType("shared_folder")->GetItem(Value("/music"));
    l_share += d.GetType("shared_public")->GetGlobalNullItem();
    struct Entry
    {
        char const* mp_folder;
        char const* mp_name;
        long long m_size;
    };
    for (Entry const& l_entry : {Entry{"/music/b", "a.mp3", 5}, Entry{"/music/b", "xby.mp3", 6},
                                 Entry{"/music/b", "Bye.txt", 7}, Entry{"/music/live", "Live At The Hall.flac", 8},
                                 Entry{"/music/live", "b-side (live).mp3", 9}, Entry{"/music", "readme", 0}})
    {
        ItemPtr const l_folder = d.GetType("shared_file_folder")->GetItem(Value(l_entry.mp_folder));
        l_share += l_folder;
        ItemPtr const l_file = l_folder.NewItem("shared_file");
        l_file += d.GetType("shared_file_name")->GetItem(Value(l_entry.mp_name));
        l_file += d.GetType("shared_file_size")->GetItem(Value(l_entry.m_size));
        io_shares.TokenizeSharedFile(l_file);
    }
}

void Quiet(QtMsgType, QMessageLogContext const&, QString const&)
{
}

// Every item the last input made goes; the kept ones stay, with whatever it connected to them.
void RemoveNewItems()
{
    if (!g_graphKept)
        return;
    std::vector<Item*> l_new;
    for (auto const& l_entry : d.Types())
        for (Item* lp_item : l_entry.second->GetItems())
            if (!KeptItems().count(lp_item))
                l_new.push_back(lp_item);
    // Removing one item may remove others of the list: all stay readable until the walk ends.
    EventDelivery::Walk const l_walk;
    for (Item* lp_item : l_new)
        if (!lp_item->IsRemoved())
            lp_item->Remove();
}
} // namespace

Server& FuzzRig::Init()
{
    static Server* sp_server = []
    {
        static int s_argc = 1;
        static char s_name[] = "tidewick-fuzz";
        static char* s_argv[] = {s_name, nullptr};
        new QCoreApplication(s_argc, s_argv);
        qInstallMessageHandler(Quiet);
        SetLogSink([](QString const&, int, QString const&, ItemPtr) {});
        // The settings types first, as the main window declares them, then the server link's.
        new DataSaver();
        Type* lp_value = d.NewType("global_value", false, false, true);
        d.NewType("global", true, false, true)->RelateToType(lp_value, Many, One, false);
        d.NewType("vglobal", true, false, true)->RelateToType(lp_value, Many, One, false);
        auto* lp_server = new Server();
        Server::CreateData();
        SetSettings();
        // The managers once, so that their types exist before the graph is kept.
        {
            FuzzRig l_first;
            ShareFixedFiles(l_first.Shares());
            // The search whose results a peer may send.
            if (lp_server->FileSearch("fuzz", false) != s_searchTicket)
                qFatal("The first search did not get the expected ticket");
        }
        KeepGraph();
        return lp_server;
    }();
    return *sp_server;
}

void FuzzRig::KeepGraph()
{
    g_graphKept = true;
    KeptItems().clear();
    for (auto const& l_entry : d.Types())
        for (Item* lp_item : l_entry.second->GetItems())
            KeptItems().insert(lp_item);
}

FuzzRig::FuzzRig()
{
    Server& l_server = GetServer();
    mp_messenger = std::make_unique<PeerMessenger>();
    QObject::connect(&l_server, &Server::Connected, mp_messenger.get(), &PeerMessenger::OnConnectedToServer);
    QObject::connect(&l_server, &Server::IndirectPeerConnectionFailure, mp_messenger.get(),
                     &PeerMessenger::OnIndirectPeerConnectionFailure);
    mp_dnet = std::make_unique<DNetManager>();
    mp_dnet->Attach(&l_server, mp_messenger.get());
    mp_shares = std::make_unique<SharedFoldersManager>();
    mp_transfers = std::make_unique<TransferQueueManager>();
    // A download the peer may offer, accept, refuse or connect for; made anew for each input,
    // so that no input leaves it in a state the next one would start from.
    mp_transfers->AddDownload(s_peer, "a.mp3", "music\\b", 5);
}

FuzzRig::~FuzzRig()
{
    mp_transfers.reset();
    mp_shares.reset();
    mp_dnet.reset();
    mp_messenger.reset();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    // A socket that no owner took away is still the rig's.
    for (QPointer<FuzzSocket> const& lp_socket : m_sockets)
        delete lp_socket.data();
    RemoveNewItems();
    // An input may have changed a setting, as a loaded data file does.
    SetSettings();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

Server& FuzzRig::GetServer()
{
    return *gp_server;
}

FuzzSocket* FuzzRig::Socket(QByteArray i_bytes)
{
    auto* lp_socket = new FuzzSocket(std::move(i_bytes));
    m_sockets.append(lp_socket);
    return lp_socket;
}

FuzzSocket* FuzzRig::Accept(QByteArray i_bytes)
{
    // As the listener hands a new connection over: watched, and an item of its own until its
    // first frame says what it is.
    FuzzSocket* lp_socket = Socket(std::move(i_bytes));
    PeerMessenger* lp_messenger = mp_messenger.get();
    QObject::connect(lp_socket, &QTcpSocket::readyRead, lp_messenger, &PeerMessenger::OnSocketReadyToRead);
    QObject::connect(lp_socket, &QTcpSocket::errorOccurred, lp_messenger, &PeerMessenger::OnSocketError);
    QObject::connect(lp_socket, &QTcpSocket::disconnected, lp_messenger, &PeerMessenger::OnSocketClosed);
    d.GetType("uninitialized_socket")->NewItem(Value(static_cast<QTcpSocket*>(lp_socket)));
    Deliver(lp_socket);
    return lp_socket;
}

FuzzSocket* FuzzRig::AcceptMessaging(char const* i_user, QByteArray i_bytes)
{
    MemStream l_greeting;
    l_greeting.Write(static_cast<std::uint8_t>(1));
    l_greeting.Write(std::string(i_user));
    l_greeting.Write(std::string("P"));
    l_greeting.Write(static_cast<std::uint32_t>(0));
    QByteArray const l_body(l_greeting.GetReadBuffer(), l_greeting.GetPendingReadLength());
    return Accept(Frame(l_body) + i_bytes);
}

void FuzzRig::Deliver(FuzzSocket* ip_socket)
{
    QPointer<FuzzSocket> const lp_socket(ip_socket);
    emit ip_socket->readyRead();
    // A connection's frames past one turn's share, and compressed bodies inflated by a worker,
    // come back through posted events: delivered until a round moves nothing on.
    qint64 l_left = -1;
    for (int l_still = 0; l_still < 2;)
    {
        QThreadPool::globalInstance()->waitForDone();
        QCoreApplication::sendPostedEvents();
        qint64 const l_now = lp_socket ? lp_socket->bytesAvailable() : 0;
        l_still = l_now == l_left || l_now == 0 ? l_still + 1 : 0;
        l_left = l_now;
    }
}

QByteArray FuzzRig::Frame(QByteArray const& i_body)
{
    QByteArray l_frame(4, '\0');
    qToLittleEndian(static_cast<quint32>(i_body.size()), l_frame.data());
    return l_frame + i_body;
}
