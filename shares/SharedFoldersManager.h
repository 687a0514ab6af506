#pragma once

#include <QObject>
#include <QString>

#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QThread>
#include <QTimer>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "peer/PeerMessenger.h"
#include "peer/ShareList.h"
#include "shares/MP3Scanner.h"
#include "server/UserStats.h"
#include "shares/ShareListCompressor.h"
#include "shares/ShareWalker.h"
#include "store/DataHandler.h"
#include "store/ItemPtr.h"
#include "store/ItemSet.h"
#include "stream/MemStream.h"

// Everything the client knows about the files it offers and about what others offer. The own
// share lives in the graph: a file on disk is one `shared_file` item tied to its folder, name,
// size and one `search_token` for each word of its path, so the graph is the search index.
// The class is implemented in three parts: this file's source (schema, look-ups, access),
// the walk over the disk, and the messages built from the share (lists and search answers).
class SharedFoldersManager : public QObject, public DataHandler
{
    Q_OBJECT
public:
    explicit SharedFoldersManager(QObject* ip_parent = nullptr);
    ~SharedFoldersManager() override;

    // Once, after the data file is loaded: later folders start their walk, and the share is
    // walked afresh.
    void Init();
    void RescanShares();
    void AddSharedFiles(std::string const& i_sharedFolder, std::string const& i_folder);
    void TokenizeSharedFile(ItemPtr i_file);
    static bool IsSearchTokenSeparator(unsigned char i_char);

    ItemPtr GetSharedFileItem(std::string const& i_path) const;
    ItemSet GetUserSharedFolders(std::string const& i_user) const;
    bool IsFileSharedWithUser(ItemPtr i_file, std::string const& i_user);
    static QString GetFileItemDisplayString(ItemPtr i_file);

    // The list as the user may see it, composed at once.
    MemStream GetSharedFilesMessage(std::string const& i_user);
    // The same for a peer's request: from the cache at once, or compressed on a worker and
    // handed to the reply from a later turn of the event loop.
    void AnswerShareListRequest(std::string const& i_user, PeerMessenger::ShareListReply i_reply);
    void ProcessSearch(std::string const& i_user, unsigned int i_req, std::string const& i_searchText);

signals:
    void MP3ScanRequired(QString i_file);
    void SharedFilesRescanned(int i_filesAdded, int i_filesRemoved);
    // While a walk runs and when it ends: the files and folders reached or shared.
    void ScanProgress(int i_files, int i_folders, bool i_scanning);

public slots:
    void OnUserShare(std::string const& i_userName, FileInfoMap& i_share, AttributeTranslationTable& i_translationTable);
    void OnDNetSearchRequest(std::string const& i_user, quint32 i_req, std::string const& i_searchText);
    void OnMP3Scanned(QString i_file, int i_mpegVersion, QString i_channelMode, int i_frequency, bool i_isVBR,
                      int i_bitrate);
    void OnFilesInFoldersRequested(std::string const& i_user, quint32 i_req, std::string const& i_folder);
    void OnConnectedToServer();
    void OnReceivedUserStats(std::string const& i_user, UserStats i_stats);

private:
    void OnSharedFileNameAdded(Item* ip_name);
    void OnSharedFileFolderAdded(Item* ip_folder);
    void OnSharedFolderAdded(Item* ip_folder);

    int m_filesAdded = 0;
    int m_filesRemoved = 0;

    // The scanner lives on its own thread; paths go to it and results come back queued.
    QThread m_scannerThread;
    MP3Scanner m_scanner;

    // ---- the walk (SharedFoldersManagerWalk.cpp)
public:
    // A walk or a rescan is under way: the share is still answerable, but not complete.
    bool IsScanning() const { return !m_jobs.empty() || m_rescanning; }

private:
    // A walk of one folder tree, as the main thread sees it.
    struct WalkJob
    {
        std::string m_sharedFolder;
        bool m_counted = false; // part of a rescan: its files count as added and removed
        bool m_dropped = false; // its shared folder went away: its results are ignored
    };
    // The folder whose parts are being put into the graph.
    struct FolderInProgress
    {
        std::string m_key;
        Item* mp_item = nullptr;
        std::vector<Item*> m_seen; // its files found again or made by this walk
    };

    void StartRescan();
    void EndRescan();
    void QueueWalk(std::string const& i_sharedFolder, std::string const& i_folder, bool i_counted);
    void OnWalkerReady();
    void ApplyWalk();
    // Puts the current part into the graph from entry m_partNext on, until i_until; true when
    // the part is done.
    bool ApplyPart(Item* ip_shared, WalkJob const& i_walk, QDeadlineTimer const& i_until);
    void EndFolder(WalkJob const& i_job);
    void TokenizeSharedFile(Item* ip_file, std::string_view i_folder, std::string_view i_name);
    // The words of a folder's path, shared by all its files: looked up once per slice.
    struct FolderTokens
    {
        std::string m_text; // the folder's path, lower case
        std::vector<std::string_view> m_words; // into m_text, distinct
        std::vector<Item*> m_items; // the token of each word, null until looked up
    };
    void ConnectTokens(Item* ip_file, FolderTokens& io_folder, std::string_view i_name);
    static void SetFolderTokens(FolderTokens& o_folder, std::string_view i_folder);
    Item* GetByKey(Type* ip_type, std::string_view i_key);
    // While walking, at most every 100 ms; when idle, the totals of the share.
    void EmitProgress(bool i_idle);

    std::unique_ptr<ShareWalker> mp_walker;
    QTimer m_applyTimer;
    std::map<std::uint64_t, WalkJob> m_jobs;
    std::uint64_t m_lastJob = 0;
    ShareWalker::Part m_part; // the part being applied, from entry m_partNext on
    std::size_t m_partNext = 0;
    bool m_havePart = false;
    FolderInProgress m_folder;
    bool m_rescanning = false;
    bool m_rescanAgain = false;
    // The shared folders a rescan started with, and the folders each of them reached.
    std::map<std::string, std::vector<Item*>> m_reached;
    int m_walkFiles = 0;
    int m_walkFolders = 0;
    QElapsedTimer m_progressClock;
    std::string m_tokenText; // reused by the tokenizer
    std::vector<std::string_view> m_tokens; // the distinct words of a file's name, in first-seen order
    std::vector<Item*> m_tokenItems; // the token of each of m_tokens, or null, before connecting
    FolderTokens m_folderTokens; // valid within one call of ApplyPart only

    // ---- lists and search answers (SharedFoldersManagerMessages.cpp)
public:
    // Whether an upload could start at once, and how many wait: both travel in every search
    // answer. The upload queue, which lives above the shares, gives them through a source it
    // sets; without one a slot is free and nobody waits.
    struct UploadSlots
    {
        bool m_free = true;
        std::uint32_t m_queued = 0;
    };
    using UploadSlotSource = std::function<UploadSlots()>;
    static void SetUploadSlotSource(UploadSlotSource i_source);
    static UploadSlots UploadSlotState();

    // At most this many files are answered; a search that matches more gets no answer at all.
    static constexpr std::size_t s_maxSearchResults = 200;

private:
    // The share as one set of visible folders sees it, built into its list message once and
    // reused while none of the share's types has changed. Lists of several folder sets are
    // kept, but only a few: the sets come from the user's own access settings.
    static constexpr std::size_t s_maxCachedLists = 8;
    std::uint64_t ShareChangeStamp() const;
    // Logs the request, drops the lists of a share that has changed, and gives the folders the
    // user may see.
    ItemSet ListRequested(std::string const& i_user);
    std::string ShareListBodyFor(ItemSet const& i_visible) const;
    void CacheList(ItemSet const& i_visible, std::string const& i_message);
    using PendingListKey = std::pair<ItemSet, std::uint64_t>; // the folders and the share's stamp
    void OnListCompressed(PendingListKey const& i_key, std::string const& i_message);
    std::uint64_t m_listStamp = 0;
    std::map<ItemSet, std::string> m_cachedLists;
    std::map<PendingListKey, std::vector<PeerMessenger::ShareListReply>> m_pendingLists;
    ShareListCompressor m_listCompressor;

    // A received share goes with its folders and files, and with the names, sizes and values
    // that nothing else holds any more, so that repeated lists leave nothing behind.
    static void RemoveUserShare(Item* ip_share);

    // A word of a search with at most this many times the files of the rarest one is walked
    // alongside the rarest one's files; one with more is looked up for each of them.
    static constexpr std::size_t s_walkedWordRatio = 64;
    // One answered file: its path as it travels is m_length bytes of m_searchPaths from m_start.
    struct SearchRecord
    {
        std::size_t m_start;
        std::size_t m_length;
        Item* mp_file;
        std::string_view m_name; // the file's name item's text
    };
    // Reused by every search, so that answering one allocates little: whether the asker may
    // see a folder, as far as this search has asked, the files found, their paths, and the
    // answer's body before it is compressed.
    std::unordered_map<Item*, bool> m_searchFolders;
    std::vector<Item*> m_searchMatches;
    std::string m_searchPaths;
    std::vector<SearchRecord> m_searchRecords;
    MemStream m_searchBody;
};

extern SharedFoldersManager* sharedFoldersManager;
