// The walk over the disk that turns shared folders into items, and the search token index.
//
// A worker thread lists and stats the folders (ShareWalker); the main thread puts its results
// into the graph in slices of a few milliseconds, so that the window stays live on a large
// share. A rescan keeps every folder connected to its shared folder while it runs, so the
// share stays answerable: it records the folders each shared folder reaches, and only when all
// walks are done disconnects the folders no longer reached, counts and sweeps.
#include "shares/SharedFoldersManager.h"

#include <algorithm>
#include <charconv>

#include "store/Data.h"
#include "store/EventDelivery.h"
#include "store/Log.h"

namespace
{
constexpr int s_sliceMs = 5;
constexpr int s_progressMs = 100;

QString PathText(std::string_view i_path)
{
    return QString::fromUtf8(i_path.data(), static_cast<qsizetype>(i_path.size()));
}

bool IsPathSeparatorOrSpace(unsigned char i_char)
{
    return i_char == ' ' || i_char == '/' || i_char == '\\';
}

// ASCII letters only: the locale must not change the keys of the index.
void LowerAscii(std::string& io_text)
{
    for (char& l_char : io_text)
        if (l_char >= 'A' && l_char <= 'Z')
            l_char = static_cast<char>(l_char - 'A' + 'a');
}

// Appends the words of i_text in both readings to io_words, each once and in the order first
// seen, leaving out those of i_known. A path separator ends a word in both readings, so the
// words of a folder's path and of a name in it can be collected apart.
void CollectWords(std::string_view i_text, std::vector<std::string_view> const& i_known,
                  std::vector<std::string_view>& io_words)
{
    auto const l_pass = [&](auto i_isSeparator)
    {
        std::size_t l_at = 0;
        while (l_at < i_text.size())
        {
            while (l_at < i_text.size() && i_isSeparator(static_cast<unsigned char>(i_text[l_at])))
                ++l_at;
            std::size_t const l_start = l_at;
            while (l_at < i_text.size() && !i_isSeparator(static_cast<unsigned char>(i_text[l_at])))
                ++l_at;
            if (l_at == l_start)
                continue;
            std::string_view const l_word = i_text.substr(l_start, l_at - l_start);
            if (std::find(i_known.begin(), i_known.end(), l_word) == i_known.end() &&
                std::find(io_words.begin(), io_words.end(), l_word) == io_words.end())
                io_words.push_back(l_word);
        }
    };
    l_pass(&SharedFoldersManager::IsSearchTokenSeparator);
    l_pass(&IsPathSeparatorOrSpace);
}

bool IsMP3Name(std::string_view i_name)
{
    if (i_name.size() <= 4)
        return false;
    std::string_view const l_end = i_name.substr(i_name.size() - 4);
    return l_end == ".mp3" || l_end == ".MP3";
}
} // namespace

SharedFoldersManager::~SharedFoldersManager()
{
    // Scans still queued return at once, and one under way ends at its next chunk.
    m_scanner.Quit();
    m_scannerThread.quit();
    m_scannerThread.wait();
    // Stops the worker at its next entry and waits for it; parts not yet applied are dropped.
    mp_walker.reset();
    m_applyTimer.stop();
    if (peerMessenger)
        peerMessenger->SetShareListResponder({});
    sharedFoldersManager = nullptr;
}

void SharedFoldersManager::RescanShares()
{
    if (IsScanning())
    {
        m_rescanAgain = true;
        return;
    }
    StartRescan();
    if (!IsScanning())
        EmitProgress(true);
}

void SharedFoldersManager::AddSharedFiles(std::string const& i_sharedFolder, std::string const& i_folder)
{
    bool const l_wasIdle = !IsScanning();
    QueueWalk(i_sharedFolder, i_folder, false);
    if (l_wasIdle && !IsScanning())
        EmitProgress(true);
}

void SharedFoldersManager::StartRescan()
{
    m_walkFiles = m_walkFolders = 0;
    m_progressClock.start();
    m_rescanning = true;
    m_filesAdded = m_filesRemoved = 0;
    m_reached.clear();
    std::vector<std::string> l_keys;
    for (Item* lp_folder : d.GetType("shared_folder")->Items())
        l_keys.push_back(lp_folder->AsString());
    for (std::string const& l_key : l_keys)
    {
        // A folder that is not walked reaches nothing: it keeps no folder of an earlier run.
        m_reached[l_key];
        QueueWalk(l_key, l_key, true);
    }
    if (m_jobs.empty())
        EndRescan();
}

void SharedFoldersManager::EndRescan()
{
    Type* lp_sharedType = d.GetType("shared_folder");
    Type* lp_folderType = d.GetType("shared_file_folder");
    Type* lp_fileType = d.GetType("shared_file");
    std::vector<Item*> l_stale;
    for (auto& [l_key, l_reached] : m_reached)
    {
        Item* lp_shared = lp_sharedType->Items().Find(l_key);
        if (!lp_shared)
            continue;
        std::sort(l_reached.begin(), l_reached.end());
        l_stale.clear();
        for (Item* lp_folder : lp_shared->ConnectedOfType(lp_folderType))
            if (!std::binary_search(l_reached.begin(), l_reached.end(), lp_folder))
                l_stale.push_back(lp_folder);
        for (Item* lp_folder : l_stale)
            lp_shared->Disconnect(lp_folder);
    }
    m_reached.clear();
    for (Item* lp_folder : lp_folderType->Items())
        if (!lp_folder->IsConnected(lp_sharedType))
            m_filesRemoved += static_cast<int>(lp_folder->ConnectedOfType(lp_fileType).size());
    d.RemoveDisconnectedItems();

    m_rescanning = false;
    bool const l_again = m_rescanAgain;
    m_rescanAgain = false;
    emit SharedFilesRescanned(m_filesAdded, m_filesRemoved);
    if (l_again)
    {
        if (IsScanning())
            m_rescanAgain = true;
        else
            StartRescan();
    }
}

void SharedFoldersManager::QueueWalk(std::string const& i_sharedFolder, std::string const& i_folder, bool i_counted)
{
    // Keys of the data file are untrusted: only an absolute path is walked.
    if (i_folder.empty() || i_folder.front() != '/')
    {
        Log(QStringLiteral("Shared"), 1,
            QStringLiteral("Not walking folder \"%1\" of sharing \"%2\": it is not an absolute path")
                .arg(PathText(i_folder), PathText(i_sharedFolder)));
        return;
    }
    if (!IsScanning())
    {
        m_walkFiles = m_walkFolders = 0;
        m_progressClock.start();
    }
    if (!mp_walker)
    {
        m_applyTimer.setInterval(0);
        connect(&m_applyTimer, &QTimer::timeout, this, &SharedFoldersManager::ApplyWalk);
        mp_walker = std::make_unique<ShareWalker>(
            [this] { QMetaObject::invokeMethod(this, [this] { OnWalkerReady(); }, Qt::QueuedConnection); });
    }
    std::uint64_t const l_id = ++m_lastJob;
    m_jobs[l_id] = WalkJob{i_sharedFolder, i_counted, false};
    mp_walker->Add(l_id, i_folder);
}

void SharedFoldersManager::OnWalkerReady()
{
    if (!m_applyTimer.isActive())
        m_applyTimer.start();
}

void SharedFoldersManager::ApplyWalk()
{
    QDeadlineTimer const l_until(s_sliceMs);
    Type* lp_sharedType = d.GetType("shared_folder");
    bool l_ended = false;
    do
    {
        if (!m_havePart)
        {
            if (!mp_walker->Take(m_part))
            {
                // The worker wakes the timer again when it has more, since this Take found none;
                // the timer stops nowhere else, or a wake-up could be lost.
                m_applyTimer.stop();
                break;
            }
            m_havePart = true;
            m_partNext = 0;
        }
        auto const l_job = m_jobs.find(m_part.m_job);
        if (l_job == m_jobs.end() || m_part.m_jobEnd)
        {
            if (l_job != m_jobs.end())
                m_jobs.erase(l_job);
            l_ended = true;
            m_havePart = false;
            continue;
        }
        WalkJob& l_walk = l_job->second;
        // A folder unshared meanwhile: what is left of its walk is dropped. The shared folder is
        // looked up, never made again.
        Item* lp_shared = l_walk.m_dropped ? nullptr : lp_sharedType->Items().Find(l_walk.m_sharedFolder);
        if (!lp_shared)
        {
            if (!l_walk.m_dropped)
                mp_walker->Cancel(l_job->first);
            l_walk.m_dropped = true;
            m_folder = FolderInProgress();
            m_havePart = false;
            continue;
        }
        if (ApplyPart(lp_shared, l_walk, l_until))
            m_havePart = false;
    } while (!l_until.hasExpired());

    if (!m_jobs.empty())
    {
        EmitProgress(false);
        return;
    }
    if (!l_ended)
        return;
    if (m_rescanning)
        EndRescan();
    else if (m_rescanAgain)
    {
        m_rescanAgain = false;
        StartRescan();
    }
    if (!IsScanning())
        EmitProgress(true);
}

bool SharedFoldersManager::ApplyPart(Item* ip_shared, WalkJob const& i_walk, QDeadlineTimer const& i_until)
{
    ShareWalker::Part const& l_part = m_part;
    Type* lp_folderType = d.GetType("shared_file_folder");
    Type* lp_fileType = d.GetType("shared_file");
    Type* lp_nameType = d.GetType("shared_file_name");
    Type* lp_sizeType = d.GetType("shared_file_size");
    Type* lp_scannedType = d.GetType("is_scanned");

    // Looked up again at every slice: the graph may have changed in between.
    Item* lp_folder = GetByKey(lp_folderType, l_part.m_folder);
    if (!lp_folder)
        return true;
    ip_shared->Connect(lp_folder);
    if (m_partNext == 0)
    {
        if (l_part.m_first)
        {
            Log(QStringLiteral("Shared"), 1,
                QStringLiteral("Adding folder %1 as part of sharing %2").arg(PathText(l_part.m_folder), PathText(i_walk.m_sharedFolder)));
            m_folder.m_key = l_part.m_folder;
            std::vector<Item*>().swap(m_folder.m_seen);
            if (i_walk.m_counted)
                m_reached[i_walk.m_sharedFolder].push_back(lp_folder);
            ++m_walkFolders;
        }
        for (auto const& [l_loop, l_ancestor] : l_part.m_loops)
            Log(QStringLiteral("Shared"), 2,
                QStringLiteral("Skipping folder %1: it links back to %2").arg(PathText(l_loop), PathText(l_ancestor)));
    }
    m_folder.mp_item = lp_folder;
    // The folder's tokens are cached for this slice only; one that a listener removes stays
    // readable until the slice ends, and is looked up again.
    EventDelivery::Walk l_keep;
    SetFolderTokens(m_folderTokens, l_part.m_folder);

    std::string l_path;
    while (m_partNext < l_part.m_files.size())
    {
        ShareWalker::File const& l_entry = l_part.m_files[m_partNext++];
        std::string_view const l_name = l_part.Name(l_entry);

        // A known file is the one with this folder and this name; look through the smaller of
        // the two groups.
        Item* lp_file = nullptr;
        Item* lp_name = lp_nameType->Items().Find(l_name);
        if (lp_name)
        {
            ItemRange const l_named = lp_name->ConnectedOfType(lp_fileType);
            ItemRange const l_inFolder = lp_folder->ConnectedOfType(lp_fileType);
            if (l_named.size() <= l_inFolder.size())
            {
                for (Item* lp_candidate : l_named)
                    if (lp_candidate->GetItem(lp_folderType) == lp_folder)
                        lp_file = lp_candidate;
            }
            else
            {
                for (Item* lp_candidate : l_inFolder)
                    if (lp_candidate->GetItem(lp_nameType) == lp_name)
                        lp_file = lp_candidate;
            }
        }
        if (!lp_file)
        {
            lp_file = lp_fileType->NewItem();
            if (!lp_file)
                continue;
            lp_file->Connect(lp_folder);
            if (!lp_name)
                lp_name = lp_nameType->GetItem(Value(std::string(l_name)));
            if (lp_name)
                lp_file->Connect(lp_name);
            char l_size[24];
            auto const l_sizeEnd = std::to_chars(l_size, l_size + sizeof(l_size), l_entry.m_size).ptr;
            if (Item* lp_size = GetByKey(lp_sizeType, std::string_view(l_size, static_cast<std::size_t>(l_sizeEnd - l_size))))
                lp_file->Connect(lp_size);
            if (i_walk.m_counted)
                ++m_filesAdded;
        }
        m_folder.m_seen.push_back(lp_file);
        ++m_walkFiles;

        if (IsMP3Name(l_name) && !lp_file->IsConnected(lp_scannedType))
        {
            l_path.assign(l_part.m_folder).append(1, '/').append(l_name);
            emit MP3ScanRequired(QString::fromLatin1(l_path));
        }
        ConnectTokens(lp_file, m_folderTokens, l_name);

        if ((m_partNext & 63) == 0 && i_until.hasExpired())
            return false;
    }
    if (l_part.m_last)
        EndFolder(i_walk);
    return true;
}

// Files of the folder that this walk did not find again are gone from the disk.
void SharedFoldersManager::EndFolder(WalkJob const& i_walk)
{
    Type* lp_fileType = d.GetType("shared_file");
    std::vector<Item*>& l_seen = m_folder.m_seen;
    std::sort(l_seen.begin(), l_seen.end());
    std::vector<Item*> l_gone;
    for (Item* lp_file : m_folder.mp_item->ConnectedOfType(lp_fileType))
        if (!std::binary_search(l_seen.begin(), l_seen.end(), lp_file))
            l_gone.push_back(lp_file);
    for (Item* lp_file : l_gone)
    {
        if (lp_file->IsRemoved())
            continue;
        lp_file->Remove();
        if (i_walk.m_counted)
            ++m_filesRemoved;
    }
    m_folder = FolderInProgress();
}

void SharedFoldersManager::TokenizeSharedFile(ItemPtr i_file)
{
    if (!i_file)
        return;
    Item* lp_folder = i_file.HasItem("shared_file_folder");
    Item* lp_name = i_file.HasItem("shared_file_name");
    TokenizeSharedFile(i_file.Get(), lp_folder ? lp_folder->AsView() : std::string_view(),
                       lp_name ? lp_name->AsView() : std::string_view());
}

// The index holds every word of a file's path, folders included, in two readings: runs of
// letters, digits and bytes of multi-byte characters, then runs between spaces and separators.
void SharedFoldersManager::TokenizeSharedFile(Item* ip_file, std::string_view i_folder, std::string_view i_name)
{
    FolderTokens l_folder;
    SetFolderTokens(l_folder, i_folder);
    // Removed by a listener meanwhile, a token stays readable until this walk ends.
    EventDelivery::Walk l_keep;
    ConnectTokens(ip_file, l_folder, i_name);
}

void SharedFoldersManager::ConnectTokens(Item* ip_file, FolderTokens& io_folder, std::string_view i_name)
{
    std::string& l_name = m_tokenText;
    l_name.assign(i_name);
    LowerAscii(l_name);
    // A name's words that are words of its folder too are connected once, with the folder's.
    std::vector<std::string_view>& l_words = m_tokens;
    l_words.clear();
    CollectWords(l_name, io_folder.m_words, l_words);

    // Every word is looked up before any is connected: the lookups do not wait on each other,
    // so their reads of memory overlap. A token a listener makes or removes meanwhile is looked
    // up again when its turn comes.
    Type* lp_tokenType = d.GetType("search_token");
    std::vector<Item*>& l_found = m_tokenItems;
    l_found.clear();
    for (std::string_view const l_word : l_words)
        l_found.push_back(lp_tokenType->Items().Find(l_word));

    for (std::size_t l_at = 0; l_at < io_folder.m_words.size(); ++l_at)
    {
        Item*& lp_token = io_folder.m_items[l_at];
        if (!lp_token || lp_token->IsRemoved())
            lp_token = GetByKey(lp_tokenType, io_folder.m_words[l_at]);
        if (lp_token && !ip_file->IsRemoved())
            ip_file->Connect(lp_token);
    }
    for (std::size_t l_at = 0; l_at < l_words.size(); ++l_at)
    {
        Item* lp_token = l_found[l_at];
        if (!lp_token || lp_token->IsRemoved())
            lp_token = GetByKey(lp_tokenType, l_words[l_at]);
        if (lp_token && !ip_file->IsRemoved())
            ip_file->Connect(lp_token);
    }
}

void SharedFoldersManager::SetFolderTokens(FolderTokens& o_folder, std::string_view i_folder)
{
    o_folder.m_text.assign(i_folder);
    LowerAscii(o_folder.m_text);
    o_folder.m_words.clear();
    CollectWords(o_folder.m_text, {}, o_folder.m_words);
    o_folder.m_items.assign(o_folder.m_words.size(), nullptr);
}

bool SharedFoldersManager::IsSearchTokenSeparator(unsigned char i_char)
{
    if (i_char >= 0x80)
        return false;
    bool const l_letter = (i_char >= 'a' && i_char <= 'z') || (i_char >= 'A' && i_char <= 'Z');
    bool const l_digit = i_char >= '0' && i_char <= '9';
    return !l_letter && !l_digit;
}

Item* SharedFoldersManager::GetByKey(Type* ip_type, std::string_view i_key)
{
    if (Item* lp_item = ip_type->Items().Find(i_key))
        return lp_item;
    return ip_type->GetItem(Value(std::string(i_key)));
}

void SharedFoldersManager::EmitProgress(bool i_idle)
{
    if (i_idle)
    {
        emit ScanProgress(static_cast<int>(d.GetType("shared_file")->ItemCount()),
                          static_cast<int>(d.GetType("shared_file_folder")->ItemCount()), false);
        return;
    }
    if (m_progressClock.elapsed() < s_progressMs)
        return;
    m_progressClock.restart();
    emit ScanProgress(m_walkFiles, m_walkFolders, true);
}
