#pragma once

#include <QString>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "store/Data.h"
#include "store/DataSaver.h"

// A client's data file as the tests seed and inspect it: the saved part of the client's schema
// on a graph of its own, written and read with the store's data file code.
class SavedGraph
{
public:
    // With run-only keys, the graph also writes `vglobal` settings, which the client never does:
    // a file that holds them shows that the client drops them.
    explicit SavedGraph(bool i_withRunOnlyKeys = false);

    void Set(char const* i_keyType, std::string const& i_key, std::string const& i_value);
    // A listening port of its own, so that clients of tests never meet on the default one.
    void SetFreeListeningPort();
    // A client of its own: the name with the password "<name>-pw", a free listening port, no
    // port mapping, and the folder downloads go to.
    void SetIdentity(std::string const& i_name, std::string const& i_downloadFolder);
    // The upload speed limit in KiB/s and whether it is in force, as the Transfers tab keeps them.
    void SetUploadLimit(int i_kibPerSecond, bool i_enabled);
    std::optional<std::string> Setting(char const* i_keyType, std::string const& i_key) const;
    void AddAutojoinRoom(std::string const& i_room);
    bool IsAutojoinRoom(std::string const& i_room) const;
    void ListUser(std::string const& i_user, std::vector<std::string> const& i_groups);
    // The groups of a user on the list, sorted; nothing when the user is not on the list.
    std::optional<std::vector<std::string>> ListedUserGroups(std::string const& i_user) const;
    // A shared folder, keyed by its absolute path, open to everyone, to the user list, or to
    // the groups named (none of them: open to nobody).
    enum class Access { Everyone, UserList, Groups };
    void ShareFolder(std::string const& i_path, Access i_access, std::vector<std::string> const& i_groups = {});
    // The folder's access as the File Sharing tab words it ("Everyone", "User List", or the
    // groups sorted and joined by ", "); nothing when the folder is not shared.
    std::optional<std::string> SharedFolderAccess(std::string const& i_path) const;
    // Each shared file the data file keeps, as "folder/name", then its bit rate, its rate mode and
    // "is_scanned", each where it has one; sorted.
    std::vector<std::string> SavedSharedFiles() const;
    // A shared file with its MP3 scan result, every part as the data file keeps it: the file's
    // folder, name, size, then the scan's MPEG version, channel mode, frequency, rate mode and
    // bit rate. A part the file lacks is empty.
    struct ScannedFile
    {
        std::string m_folder;
        std::string m_name;
        std::string m_size;
        std::string m_mpegVersion;
        std::string m_channelMode;
        std::string m_frequency;
        std::string m_bitrateMode;
        std::string m_bitrate;
        bool operator==(ScannedFile const&) const = default;
    };
    // The file's folder is tied to the shared folder, as the client's walk ties it; the shared
    // folder's access is set apart (ShareFolder).
    void AddScannedFile(std::string const& i_sharedFolder, ScannedFile const& i_file);
    // Every scanned file, in no particular order.
    std::vector<ScannedFile> ScannedFiles() const;
    void Unshare(std::string const& i_user);
    bool IsUnshared(std::string const& i_user) const;
    void AddWishListItem(std::string const& i_search, bool i_enabled);
    // Each wish list search with whether it is enabled.
    std::map<std::string, bool> WishList() const;

    // A download entry as the data file keeps it. A part without a value is left out, so that
    // a test can seed damaged entries too.
    struct Download
    {
        std::optional<std::string> m_user;
        std::optional<std::string> m_fileName;
        std::optional<std::string> m_remoteFolder;
        std::optional<std::string> m_fileSize;
        std::optional<std::string> m_status;
        std::optional<std::string> m_order;
        std::optional<std::string> m_localFileName;
        bool operator==(Download const&) const = default;
    };
    void AddDownload(Download const& i_download);
    // Every entry, ordered by user, folder and file name.
    std::vector<Download> Downloads() const;

    bool Save(QString const& i_file) { return m_saver.Save(&m_data, i_file.toLocal8Bit().constData()); }
    void Load(QString const& i_file) { m_saver.Load(&m_data, i_file.toLocal8Bit().constData()); }
    // Where the last load kept the file it found damaged; empty when it was sound.
    std::string const& DamagedCopy() const { return m_saver.DamagedCopy(); }

private:
    Data m_data;
    DataSaver m_saver;
};
