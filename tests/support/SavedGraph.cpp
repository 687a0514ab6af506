#include "support/SavedGraph.h"

#include "support/FreePort.h"

#include <algorithm>
#include <iterator>
#include <tuple>

namespace
{
// The parts of a download entry in the order of SavedGraph::Download's members.
constexpr char const* s_downloadParts[] = {"user", "file_name", "remote_folder", "file_size", "download_entry_status",
                                           "download_order", "local_file_name"};

std::optional<std::string> SavedGraph::Download::* const s_downloadMembers[] = {
    &SavedGraph::Download::m_user, &SavedGraph::Download::m_fileName, &SavedGraph::Download::m_remoteFolder,
    &SavedGraph::Download::m_fileSize, &SavedGraph::Download::m_status, &SavedGraph::Download::m_order,
    &SavedGraph::Download::m_localFileName};

// What the data file keeps of a scanned shared file, in the order of SavedGraph::ScannedFile's members.
constexpr char const* s_scannedFileParts[] = {"shared_file_folder", "shared_file_name", "shared_file_size", "mpeg_version",
                                              "channel_mode", "audio_frequency", "bitrate_mode", "bitrate"};

std::string SavedGraph::ScannedFile::* const s_scannedFileMembers[] = {
    &SavedGraph::ScannedFile::m_folder, &SavedGraph::ScannedFile::m_name, &SavedGraph::ScannedFile::m_size,
    &SavedGraph::ScannedFile::m_mpegVersion, &SavedGraph::ScannedFile::m_channelMode, &SavedGraph::ScannedFile::m_frequency,
    &SavedGraph::ScannedFile::m_bitrateMode, &SavedGraph::ScannedFile::m_bitrate};
} // namespace

SavedGraph::SavedGraph(bool i_withRunOnlyKeys)
{
    Type* lp_value = m_data.NewType("global_value", false, false, true);
    for (char const* lp_keyType : {"global", "vglobal"})
        m_data.NewType(lp_keyType, true, false, true)->RelateToType(lp_value, Many, One, false);
    m_data.NewType("room", true, false, true)
        ->RelateToType(m_data.NewType("room_autojoin", false, true, true), Many, One, false);
    Type* lp_listed = m_data.NewType("in_user_list", false, true, true);
    m_data.NewType("user", true, false, true)->RelateToType(lp_listed, One, One, false);
    lp_listed->RelateToType(m_data.NewType("user_list_group", true, false, true), Many, Many, false);
    Type* lp_shared = m_data.NewType("shared_folder", true, false, true);
    lp_shared->RelateToType(m_data.NewType("shared_public", false, true, true), Many, One, false);
    lp_shared->RelateToType(m_data.NewType("shared_userlist", false, true, true), Many, One, false);
    lp_shared->RelateToType(m_data.GetType("user_list_group"), Many, Many, false);
    m_data.GetType("user")->RelateToType(m_data.NewType("unshared", false, true, true), Many, One, false);
    m_data.NewType("wish_list_item", true, false, true)
        ->RelateToType(m_data.NewType("wish_list_item_enabled", false, true, true), Many, One, false);
    Type* lp_download = m_data.NewType("download_entry", true, true, true);
    for (char const* lp_part : s_downloadParts)
    {
        Type* lp_type = m_data.FindType(lp_part);
        lp_download->RelateToType(lp_type ? lp_type : m_data.NewType(lp_part, false, false, true), Many, One, false);
        m_saver.AddSavedByConnectionType(lp_part, "download_entry");
    }
    // A shared file reaches the data file only with its MP3 scan result.
    Type* lp_file = m_data.NewType("shared_file", false, true, true);
    lp_file->RelateToType(m_data.NewType("is_scanned", false, true, true), Many, One, false);
    for (char const* lp_part : s_scannedFileParts)
    {
        lp_file->RelateToType(m_data.NewType(lp_part, false, false, true), Many, One, false);
        m_saver.AddSavedByConnectionType(lp_part, "shared_file");
    }
    m_saver.AddSavedByConnectionType("shared_file", "is_scanned");
    // Every folder of a share is tied to the shared folder it was reached from.
    lp_shared->RelateToType(m_data.GetType("shared_file_folder"), Many, Many, false);
    m_saver.m_savedTypes = {"global", "room_autojoin", "in_user_list", "user_list_group", "shared_folder", "unshared",
                            "wish_list_item", "wish_list_item_enabled", "download_entry", "is_scanned"};
    m_saver.AddSavedByConnectionType("shared_public", "shared_folder");
    m_saver.AddSavedByConnectionType("shared_userlist", "shared_folder");
    m_saver.AddSavedByConnectionType("user", "unshared");
    m_saver.AddSavedByConnectionType("global_value", "global");
    m_saver.AddSavedByConnectionType("room", "room_autojoin");
    m_saver.AddSavedByConnectionType("user", "in_user_list");
    if (i_withRunOnlyKeys)
    {
        m_saver.m_savedTypes.insert("vglobal");
        m_saver.AddSavedByConnectionType("global_value", "vglobal");
    }
}

void SavedGraph::Set(char const* i_keyType, std::string const& i_key, std::string const& i_value)
{
    m_data.GetType(i_keyType)->GetItem(i_key)->Connect(m_data.GetType("global_value")->GetItem(i_value));
}

void SavedGraph::SetFreeListeningPort()
{
    Set("global", "listening_port", std::to_string(FreePort()));
}

void SavedGraph::SetIdentity(std::string const& i_name, std::string const& i_downloadFolder)
{
    Set("global", "username", i_name);
    Set("global", "password", i_name + "-pw");
    Set("global", "use_upnp", "no");
    SetFreeListeningPort();
    Set("global", "download_folder", i_downloadFolder);
}

void SavedGraph::SetUploadLimit(int i_kibPerSecond, bool i_enabled)
{
    Set("global", "upload_speed_limit", std::to_string(i_kibPerSecond));
    Set("global", "upload_speed_limit_enabled", i_enabled ? "yes" : "no");
}

std::optional<std::string> SavedGraph::Setting(char const* i_keyType, std::string const& i_key) const
{
    ItemPtr const l_value = m_data.GetType(i_keyType)->HasItem(i_key)["global_value"];
    return l_value ? std::optional<std::string>(l_value.AsString()) : std::nullopt;
}

void SavedGraph::AddAutojoinRoom(std::string const& i_room)
{
    m_data.GetType("room")->GetItem(i_room)->NewItem("room_autojoin");
}

bool SavedGraph::IsAutojoinRoom(std::string const& i_room) const
{
    ItemPtr const l_room = m_data.GetType("room")->HasItem(i_room);
    return l_room && l_room.IsConnected("room_autojoin");
}

void SavedGraph::ListUser(std::string const& i_user, std::vector<std::string> const& i_groups)
{
    ItemPtr const l_listed = m_data.GetType("user")->GetItem(i_user)->NewItem("in_user_list");
    for (std::string const& l_group : i_groups)
        l_listed.Connect(m_data.GetType("user_list_group")->GetItem(l_group));
}

std::optional<std::vector<std::string>> SavedGraph::ListedUserGroups(std::string const& i_user) const
{
    ItemPtr const l_listed = m_data.GetType("user")->HasItem(i_user)["in_user_list"];
    if (!l_listed)
        return std::nullopt;
    std::vector<std::string> l_groups;
    for (Item* lp_group : l_listed.GetItems("user_list_group").SortAlphabetic(true))
        l_groups.push_back(ItemPtr(lp_group).AsString());
    return l_groups;
}

void SavedGraph::ShareFolder(std::string const& i_path, Access i_access, std::vector<std::string> const& i_groups)
{
    ItemPtr const l_folder = m_data.GetType("shared_folder")->GetItem(i_path);
    if (i_access == Access::Everyone)
        l_folder.NewItem("shared_public");
    else if (i_access == Access::UserList)
        l_folder.NewItem("shared_userlist");
    for (std::string const& l_group : i_groups)
        l_folder.Connect(m_data.GetType("user_list_group")->GetItem(l_group));
}

std::optional<std::string> SavedGraph::SharedFolderAccess(std::string const& i_path) const
{
    ItemPtr const l_folder = m_data.GetType("shared_folder")->HasItem(i_path);
    if (!l_folder)
        return std::nullopt;
    if (l_folder.IsConnected("shared_public"))
        return "Everyone";
    if (l_folder.IsConnected("shared_userlist"))
        return "User List";
    std::string l_groups;
    for (Item* lp_group : l_folder.GetItems("user_list_group").SortAlphabetic(true))
        l_groups += (l_groups.empty() ? "" : ", ") + ItemPtr(lp_group).AsString();
    return l_groups;
}

std::vector<std::string> SavedGraph::SavedSharedFiles() const
{
    std::vector<std::string> l_files;
    for (Item* lp_file : m_data.GetType("shared_file")->GetItems())
    {
        ItemPtr const l_file(lp_file);
        std::string l_text = l_file["shared_file_folder"].AsString() + '/' + l_file["shared_file_name"].AsString();
        for (char const* lp_part : {"bitrate", "bitrate_mode", "is_scanned"})
            if (ItemPtr const l_part = l_file[lp_part])
                l_text += ' ' + (l_part->GetType()->IsNull() ? std::string(lp_part) : l_part.AsString());
        l_files.push_back(std::move(l_text));
    }
    std::sort(l_files.begin(), l_files.end());
    return l_files;
}

void SavedGraph::AddScannedFile(std::string const& i_sharedFolder, ScannedFile const& i_file)
{
    m_data.GetType("shared_folder")->GetItem(i_sharedFolder)->Connect(m_data.GetType("shared_file_folder")->GetItem(i_file.m_folder));
    ItemPtr const l_file = m_data.GetType("shared_file")->NewItem();
    l_file.Connect(m_data.GetType("is_scanned")->GetGlobalNullItem());
    for (std::size_t l_index = 0; l_index < std::size(s_scannedFileParts); ++l_index)
        if (!(i_file.*s_scannedFileMembers[l_index]).empty())
            l_file.Connect(m_data.GetType(s_scannedFileParts[l_index])->GetItem(i_file.*s_scannedFileMembers[l_index]));
}

std::vector<SavedGraph::ScannedFile> SavedGraph::ScannedFiles() const
{
    // The types are looked up once: a large share is read after every run of some tests.
    Type* lp_scanned = m_data.GetType("is_scanned");
    Type* lp_parts[std::size(s_scannedFileParts)];
    for (std::size_t l_index = 0; l_index < std::size(s_scannedFileParts); ++l_index)
        lp_parts[l_index] = m_data.GetType(s_scannedFileParts[l_index]);
    std::vector<ScannedFile> l_files;
    for (Item* lp_file : m_data.GetType("shared_file")->Items())
    {
        if (!lp_file->IsConnected(lp_scanned))
            continue;
        ScannedFile& l_file = l_files.emplace_back();
        for (std::size_t l_index = 0; l_index < std::size(s_scannedFileParts); ++l_index)
            if (Item* lp_part = lp_file->GetItem(lp_parts[l_index]))
                l_file.*s_scannedFileMembers[l_index] = lp_part->AsString();
    }
    return l_files;
}

void SavedGraph::Unshare(std::string const& i_user)
{
    m_data.GetType("user")->GetItem(i_user)->NewItem("unshared");
}

bool SavedGraph::IsUnshared(std::string const& i_user) const
{
    ItemPtr const l_user = m_data.GetType("user")->HasItem(i_user);
    return l_user && l_user.IsConnected("unshared");
}

void SavedGraph::AddWishListItem(std::string const& i_search, bool i_enabled)
{
    ItemPtr const l_item = m_data.GetType("wish_list_item")->GetItem(i_search);
    if (i_enabled)
        l_item.Connect(m_data.GetType("wish_list_item_enabled")->GetGlobalNullItem());
}

std::map<std::string, bool> SavedGraph::WishList() const
{
    std::map<std::string, bool> l_items;
    for (Item* lp_item : m_data.GetType("wish_list_item")->Items())
        l_items[ItemPtr(lp_item).AsString()] = ItemPtr(lp_item).IsConnected("wish_list_item_enabled");
    return l_items;
}

void SavedGraph::AddDownload(Download const& i_download)
{
    ItemPtr const l_entry = m_data.GetType("download_entry")->NewItem();
    for (std::size_t l_index = 0; l_index < std::size(s_downloadParts); ++l_index)
        if (std::optional<std::string> const& l_value = i_download.*s_downloadMembers[l_index])
            l_entry.Connect(m_data.GetType(s_downloadParts[l_index])->GetItem(*l_value));
}

std::vector<SavedGraph::Download> SavedGraph::Downloads() const
{
    std::vector<Download> l_downloads;
    for (Item* lp_entry : m_data.GetType("download_entry")->Items())
    {
        Download& l_download = l_downloads.emplace_back();
        for (std::size_t l_index = 0; l_index < std::size(s_downloadParts); ++l_index)
            if (ItemPtr const l_part = ItemPtr(lp_entry).HasItem(s_downloadParts[l_index]))
                l_download.*s_downloadMembers[l_index] = l_part.AsString();
    }
    std::sort(l_downloads.begin(), l_downloads.end(), [](Download const& i_a, Download const& i_b)
              { return std::tie(i_a.m_user, i_a.m_remoteFolder, i_a.m_fileName) < std::tie(i_b.m_user, i_b.m_remoteFolder, i_b.m_fileName); });
    return l_downloads;
}
