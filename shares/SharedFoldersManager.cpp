#include "shares/SharedFoldersManager.h"

#include "dnet/DNetManager.h"
#include "peer/PeerMessenger.h"
#include "server/Server.h"
#include "server/ServerSchema.h"
#include "store/Data.h"
#include "store/DataSaver.h"
#include "store/Log.h"
#include "store/Settings.h"
#include "stream/NumberText.h"
#include "stream/PathNames.h"

SharedFoldersManager* sharedFoldersManager = nullptr;

namespace
{
void DeclareShareSchema()
{
    DeclareTypeOnce("shared_folder", true, false, true);
    DeclareTypeOnce("shared_file", false, true, true);
    DeclareTypeOnce("shared_file_name", false, false, true);
    DeclareTypeOnce("shared_file_lowercase_name", false, false, true);
    DeclareTypeOnce("shared_file_folder", false, false, true);
    DeclareTypeOnce("shared_file_folder_lowercase_name", false, false, true);
    DeclareTypeOnce("shared_file_size", false, false, true);
    DeclareTypeOnce("shared_public", false, true, true);
    DeclareTypeOnce("shared_userlist", false, true, true);
    DeclareTypeOnce("is_scanned", false, true, true);
    DeclareTypeOnce("user_share", true, true, true);
    DeclareTypeOnce("user_share_loaded", false, true, true);
    DeclareTypeOnce("user_share_folder", false, true, true);
    DeclareTypeOnce("user_share_folder_name", false, false, true);
    DeclareTypeOnce("user_share_file", false, true, true);
    DeclareTypeOnce("user_share_file_name", false, false, true);
    DeclareTypeOnce("user_share_file_size", false, false, true);
    DeclareTypeOnce("search_token", false, false, true);
    DeclareTypeOnce("unshared", false, true, true);

    RelateOnceByName("shared_folder", "shared_file_folder", Many, Many);
    RelateOnceByName("shared_file", "shared_file_folder", One, Many);
    RelateOnceByName("shared_file_folder", "shared_file_folder_lowercase_name", One, Many);
    RelateOnceByName("shared_file", "shared_file_name", One, Many);
    RelateOnceByName("shared_file_name", "shared_file_lowercase_name", One, Many);
    RelateOnceByName("shared_file", "shared_file_size", One, Many);
    RelateOnceByName("shared_folder", "shared_public", One, Many);
    RelateOnceByName("shared_folder", "shared_userlist", One, Many);
    RelateOnceByName("shared_folder", "user_list_group", Many, Many);
    RelateOnceByName("user_share", "user", One, One);
    RelateOnceByName("user_share", "user_share_loaded", One, Many);
    RelateOnceByName("user_share", "user_share_folder", Many, One);
    RelateOnceByName("user_share_folder", "user_share_folder_name", One, Many);
    RelateOnceByName("user_share_folder", "user_share_file", Many, One);
    RelateOnceByName("user_share_file", "user_share_file_name", One, Many);
    RelateOnceByName("user_share_file", "user_share_file_size", One, Many);
    RelateOnceByName("search_token", "shared_file", Many, Many);
    for (char const* lp_attribute : {"mpeg_version", "channel_mode", "audio_frequency", "bitrate_mode", "bitrate", "is_scanned"})
        RelateOnceByName("shared_file", lp_attribute, One, Many);
    for (char const* lp_attribute : {"bitrate_mode", "bitrate", "length_seconds"})
        RelateOnceByName("user_share_file", lp_attribute, One, Many);
    RelateOnceByName("user", "unshared", One, Many);

    // The data file keeps the user's choices and the MP3 scan results, not the share itself:
    // every other file and the whole token index are rebuilt at each start.
    for (char const* lp_type : {"shared_folder", "is_scanned", "unshared"})
        dataSaver->m_savedTypes.insert(lp_type);
    dataSaver->AddSavedByConnectionType("shared_public", "shared_folder");
    dataSaver->AddSavedByConnectionType("shared_userlist", "shared_folder");
    dataSaver->AddSavedByConnectionType("shared_file", "is_scanned");
    for (char const* lp_type : {"shared_file_folder", "shared_file_name", "shared_file_size", "mpeg_version", "channel_mode",
                                "audio_frequency", "bitrate_mode", "bitrate"})
        dataSaver->AddSavedByConnectionType(lp_type, "shared_file");
    dataSaver->AddSavedByConnectionType("user", "unshared");
}

// The lower-case key of a name or folder, connected to it, so that a path from a peer is
// found whatever its case.
void ConnectLowerCaseKey(Item* ip_item, char const* i_keyType)
{
    ItemPtr(ip_item) += d.GetType(i_keyType)->GetItem(Value(GetAbsoluteFileName(ip_item->AsString())));
}
} // namespace

SharedFoldersManager::SharedFoldersManager(QObject* ip_parent) : QObject(ip_parent)
{
    sharedFoldersManager = this;
    DeclareShareSchema();
    ListenItemAdded("shared_file_name", &SharedFoldersManager::OnSharedFileNameAdded);
    ListenItemAdded("shared_file_folder", &SharedFoldersManager::OnSharedFileFolderAdded);

    m_scannerThread.setObjectName(QStringLiteral("MP3Scanner"));
    m_scannerThread.start(QThread::InheritPriority);
    m_scanner.moveToThread(&m_scannerThread);
    connect(this, &SharedFoldersManager::MP3ScanRequired, &m_scanner, &MP3Scanner::OnMP3ScanRequired, Qt::QueuedConnection);
    connect(&m_scanner, &MP3Scanner::MP3Scanned, this, &SharedFoldersManager::OnMP3Scanned, Qt::QueuedConnection);

    if (peerMessenger)
    {
        connect(peerMessenger, &PeerMessenger::UserShare, this, &SharedFoldersManager::OnUserShare);
        connect(peerMessenger, &PeerMessenger::SharedFilesInFolderRequested, this,
                &SharedFoldersManager::OnFilesInFoldersRequested);
        peerMessenger->SetShareListResponder([this](std::string const& i_user, PeerMessenger::ShareListReply i_reply)
                                             { AnswerShareListRequest(i_user, std::move(i_reply)); });
    }
    if (dnetManager)
        connect(dnetManager, &DNetManager::DNetSearchRequest, this, &SharedFoldersManager::OnDNetSearchRequest);
    if (gp_server)
    {
        connect(gp_server, &Server::Connected, this, &SharedFoldersManager::OnConnectedToServer);
        connect(gp_server, &Server::ReceivedUserStats, this, &SharedFoldersManager::OnReceivedUserStats);
    }
}

void SharedFoldersManager::Init()
{
    ListenItemAdded("shared_folder", &SharedFoldersManager::OnSharedFolderAdded);
    RescanShares();
}

void SharedFoldersManager::OnSharedFileNameAdded(Item* ip_name)
{
    ConnectLowerCaseKey(ip_name, "shared_file_lowercase_name");
}

void SharedFoldersManager::OnSharedFileFolderAdded(Item* ip_folder)
{
    ConnectLowerCaseKey(ip_folder, "shared_file_folder_lowercase_name");
}

void SharedFoldersManager::OnSharedFolderAdded(Item* ip_folder)
{
    std::string const l_key = ip_folder->AsString();
    AddSharedFiles(l_key, l_key);
}

ItemPtr SharedFoldersManager::GetSharedFileItem(std::string const& i_path) const
{
    std::string const l_path = GetAbsoluteFileName(i_path);
    ItemPtr const l_folderKey = d.GetType("shared_file_folder_lowercase_name")->HasItem(Value(GetFolder(l_path)));
    ItemPtr const l_nameKey = d.GetType("shared_file_lowercase_name")->HasItem(Value(GetFileName(l_path)));
    if (!l_folderKey || !l_nameKey)
        return ItemPtr();
    ItemSet const l_names = l_nameKey.GetItems("shared_file_name");
    for (Item* lp_file : l_folderKey.GetItems("shared_file_folder").GetItems("shared_file"))
        if (l_names.count(ItemPtr(lp_file).GetItem("shared_file_name")))
            return lp_file;
    return ItemPtr();
}

ItemSet SharedFoldersManager::GetUserSharedFolders(std::string const& i_user) const
{
    ItemPtr const l_user = d.GetType("user")->HasItem(Value(i_user));
    if (l_user && l_user.HasItem("unshared"))
        return ItemSet();
    ItemSet l_folders = g("shared_public").GetItems("shared_folder");
    ItemPtr const l_listed = l_user ? l_user.HasItem("in_user_list") : ItemPtr();
    if (!l_listed)
        return l_folders;
    l_folders.Add(g("shared_userlist").GetItems("shared_folder"));
    l_folders.Add(l_listed.GetItems("user_list_group").GetItems("shared_folder"));
    return l_folders;
}

bool SharedFoldersManager::IsFileSharedWithUser(ItemPtr i_file, std::string const& i_user)
{
    ItemPtr const l_user = d.GetType("user")->GetItem(Value(i_user));
    if (l_user.HasItem("unshared"))
        return false;
    ItemSet const l_folders = i_file.GetItem("shared_file_folder").GetItems("shared_folder");
    if (!l_folders.Connected("shared_public").empty())
        return true;
    ItemPtr const l_listed = l_user.HasItem("in_user_list");
    if (!l_listed)
        return false;
    if (!l_folders.Connected("shared_userlist").empty())
        return true;
    return !l_listed.GetItems("user_list_group").GetItems("shared_folder").Common(l_folders).empty();
}

QString SharedFoldersManager::GetFileItemDisplayString(ItemPtr i_file)
{
    QString l_text;
    if (ItemPtr const l_bitrate = i_file.HasItem("bitrate"))
        l_text += QString::fromStdString(l_bitrate.AsString());
    std::string const l_mode = i_file.HasItem("bitrate_mode").AsString();
    if (l_mode == "vbr")
        l_text += QStringLiteral(" VBR");
    else if (l_mode == "cbr")
        l_text += QStringLiteral(" CBR");
    // Looked up by type: the own share's files have no length, and their type is not related
    // to it, where asking by name would stop the program.
    Type* const lp_length = d.GetType("length_seconds");
    if (i_file && i_file.Get()->IsConnected(lp_length))
        l_text += QStringLiteral(", ") + QString::fromStdString(FormatSeconds(ItemPtr(i_file.Get()->GetItem(lp_length)).AsInt()));
    return l_text;
}

void SharedFoldersManager::OnMP3Scanned(QString i_file, int i_mpegVersion, QString i_channelMode, int i_frequency,
                                        bool i_isVBR, int i_bitrate)
{
    // The path crossed the thread one byte to a character.
    QByteArray const l_path = i_file.toLatin1();
    Log(QStringLiteral("MP3 Scanning"), 1, QStringLiteral("Scanned %1").arg(QString::fromUtf8(l_path)));
    ItemPtr const l_file = GetSharedFileItem(l_path.toStdString());
    if (!l_file)
        return;
    l_file += d.GetType("mpeg_version")->GetItem(Value(i_mpegVersion));
    l_file += d.GetType("channel_mode")->GetItem(Value(i_channelMode.toStdString()));
    l_file += d.GetType("audio_frequency")->GetItem(Value(i_frequency));
    l_file += d.GetType("bitrate_mode")->GetItem(Value(i_isVBR ? "vbr" : "cbr"));
    l_file += d.GetType("bitrate")->GetItem(Value(i_bitrate));
    l_file += d.GetType("is_scanned")->GetGlobalNullItem();
}

void SharedFoldersManager::OnConnectedToServer()
{
    if (gp_server)
        gp_server->GetUserStats(GetGlobal("username"));
}

void SharedFoldersManager::OnReceivedUserStats(std::string const& i_user, UserStats i_stats)
{
    if (i_user == GetGlobal("username"))
        SetGlobal("upload_speed", Value(static_cast<long long>(i_stats.m_averageSpeed)));
}
