// What the share gives to other users: the whole list, the contents of one folder and the
// answers to searches; and what other users' lists become in the graph.
#include "shares/SharedFoldersManager.h"

#include <algorithm>
#include <charconv>
#include <new>
#include <string_view>
#include <vector>

#include "peer/PeerMessageCode.h"
#include "peer/PeerMessenger.h"
#include "peer/SharedFolderInfo.h"
#include "shares/SearchParser.h"
#include "store/Data.h"
#include "store/EventDelivery.h"
#include "store/Log.h"
#include "store/Settings.h"
#include "stream/PathNames.h"

#include <zlib.h>

namespace
{
QString Q(std::string const& i_text)
{
    return QString::fromStdString(i_text);
}

// The decimal number an item is keyed by; 0 when it has none or it is no number.
template <class T>
T NumberOf(Item const* ip_item)
{
    T l_number = 0;
    if (ip_item)
    {
        std::string_view const l_text = ip_item->AsView();
        std::from_chars(l_text.data(), l_text.data() + l_text.size(), l_number);
    }
    return l_number;
}

std::string_view TextOf(Item const* ip_item)
{
    return ip_item ? ip_item->AsView() : std::string_view();
}

// The types the messages read, looked up once per message.
struct OwnShareTypes
{
    Type* mp_sharedFolder = d.GetType("shared_folder");
    Type* mp_folder = d.GetType("shared_file_folder");
    Type* mp_file = d.GetType("shared_file");
    Type* mp_name = d.GetType("shared_file_name");
    Type* mp_size = d.GetType("shared_file_size");
    Type* mp_bitrate = d.GetType("bitrate");
    Type* mp_bitrateMode = d.GetType("bitrate_mode");
};

// A path as it travels: every '/' turned into '\'.
std::string WirePath(std::string_view i_path)
{
    std::string l_path(i_path);
    std::replace(l_path.begin(), l_path.end(), '/', '\\');
    return l_path;
}

// True when the name's extension, after its last '.', is mp3 in any case.
bool HasMp3Extension(std::string_view i_name)
{
    std::size_t const l_dot = i_name.rfind('.');
    if (l_dot == std::string_view::npos || i_name.size() - l_dot != 4)
        return false;
    auto const l_lower = [](char i_char) { return i_char >= 'A' && i_char <= 'Z' ? static_cast<char>(i_char - 'A' + 'a') : i_char; };
    return l_lower(i_name[l_dot + 1]) == 'm' && l_lower(i_name[l_dot + 2]) == 'p' && i_name[l_dot + 3] == '3';
}

// An MP3 by its name's extension is described as one, with the bit rate and the variable rate
// flag where the scan found them; any other file has no format and no attribute.
AttributeMap ListedAttributes(OwnShareTypes const& i_types, Item* ip_file, std::string_view i_name)
{
    if (!HasMp3Extension(i_name))
        return AttributeMap();
    AttributeMap l_attributes("mp3");
    if (Item* lp_bitrate = ip_file->GetItem(i_types.mp_bitrate))
        l_attributes.AddAttribute(0, NumberOf<std::uint32_t>(lp_bitrate));
    if (Item* lp_mode = ip_file->GetItem(i_types.mp_bitrateMode))
        l_attributes.AddAttribute(2, lp_mode->AsView() == "vbr" ? 1 : 0);
    return l_attributes;
}

// True when one of the shared folders the folder belongs to is among the visible ones.
bool IsVisible(OwnShareTypes const& i_types, Item* ip_folder, ItemSet const& i_visible)
{
    if (!ip_folder)
        return false;
    for (Item* lp_shared : ip_folder->ConnectedOfType(i_types.mp_sharedFolder))
        if (i_visible.count(lp_shared))
            return true;
    return false;
}

// A zlib stream at the highest level, kept between messages: setting one up takes and clears
// a few hundred KiB, more than compressing a small answer does, while a reset one gives the
// very bytes a fresh one would.
class Deflater
{
public:
    Deflater()
    {
        if (deflateInit(&m_stream, Z_BEST_COMPRESSION) != Z_OK)
            throw std::bad_alloc();
    }
    ~Deflater() { deflateEnd(&m_stream); }
    Deflater(Deflater const&) = delete;
    Deflater& operator=(Deflater const&) = delete;

    // Appends the body as one zlib stream.
    void Append(MemStream& io_message, char const* ip_body, std::size_t i_length)
    {
        if (deflateReset(&m_stream) != Z_OK)
            throw std::bad_alloc();
        m_out.resize(deflateBound(&m_stream, static_cast<uLong>(i_length)));
        m_stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(ip_body));
        m_stream.avail_in = static_cast<uInt>(i_length);
        m_stream.next_out = m_out.data();
        m_stream.avail_out = static_cast<uInt>(m_out.size());
        // With room for the bound the stream ends in one call.
        if (deflate(&m_stream, Z_FINISH) != Z_STREAM_END)
            throw std::bad_alloc();
        io_message.WriteBuffer(m_out.data(), m_stream.total_out);
    }

private:
    z_stream m_stream{};
    std::vector<Bytef> m_out;
};

MemStream CompressedMessage(int i_code, MemStream const& i_body)
{
    thread_local Deflater l_deflater;
    MemStream l_message;
    l_message.Write(static_cast<std::uint32_t>(i_code));
    l_deflater.Append(l_message, i_body.GetReadBuffer(), static_cast<std::size_t>(i_body.GetPendingReadLength()));
    return l_message;
}
} // namespace

namespace
{
SharedFoldersManager::UploadSlotSource& UploadSlotSourceStorage()
{
    static SharedFoldersManager::UploadSlotSource s_source;
    return s_source;
}
} // namespace

void SharedFoldersManager::SetUploadSlotSource(UploadSlotSource i_source)
{
    UploadSlotSourceStorage() = std::move(i_source);
}

SharedFoldersManager::UploadSlots SharedFoldersManager::UploadSlotState()
{
    UploadSlotSource const& l_source = UploadSlotSourceStorage();
    return l_source ? l_source() : UploadSlots();
}

// ---- The share list

std::uint64_t SharedFoldersManager::ShareChangeStamp() const
{
    // Every item made or removed and every connection made or undone at a shared folder, a
    // folder or a file counts: files, their names, sizes and scan results, and which folders
    // belong to which share. The counts only grow, so their sum changes with any of them.
    OwnShareTypes const l_types;
    return l_types.mp_sharedFolder->ChangeCount() + l_types.mp_folder->ChangeCount() + l_types.mp_file->ChangeCount();
}

std::string SharedFoldersManager::ShareListBodyFor(ItemSet const& i_visible) const
{
    OwnShareTypes const l_types;
    // A folder reached through two shared folders is listed once.
    ItemSet l_folders;
    for (Item* lp_shared : i_visible)
        for (Item* lp_folder : lp_shared->ConnectedOfType(l_types.mp_folder))
            l_folders.insert(lp_folder);

    FileInfoMap l_map;
    for (Item* lp_folder : l_folders)
    {
        std::set<FileInfo>& l_files = l_map[WirePath(lp_folder->AsView())];
        for (Item* lp_file : lp_folder->ConnectedOfType(l_types.mp_file))
        {
            std::string_view const l_name = TextOf(lp_file->GetItem(l_types.mp_name));
            l_files.emplace(std::string(l_name), NumberOf<qint64>(lp_file->GetItem(l_types.mp_size)),
                            ListedAttributes(l_types, lp_file, l_name));
        }
    }
    return ShareListBody(l_map);
}

ItemSet SharedFoldersManager::ListRequested(std::string const& i_user)
{
    Log(QStringLiteral("Shared"), 1, QStringLiteral("Shared file list requested by user %1").arg(Q(i_user)));
    std::uint64_t const l_stamp = ShareChangeStamp();
    if (l_stamp != m_listStamp)
    {
        m_cachedLists.clear();
        m_listStamp = l_stamp;
    }
    return GetUserSharedFolders(i_user);
}

void SharedFoldersManager::CacheList(ItemSet const& i_visible, std::string const& i_message)
{
    if (m_cachedLists.size() >= s_maxCachedLists)
        m_cachedLists.clear();
    m_cachedLists.insert_or_assign(i_visible, i_message);
}

namespace
{
MemStream StreamOf(std::string const& i_bytes)
{
    MemStream l_stream;
    l_stream.WriteBuffer(i_bytes.data(), i_bytes.size());
    return l_stream;
}
} // namespace

MemStream SharedFoldersManager::GetSharedFilesMessage(std::string const& i_user)
{
    ItemSet const l_visible = ListRequested(i_user);
    auto l_cached = m_cachedLists.find(l_visible);
    if (l_cached == m_cachedLists.end())
    {
        MemStream const l_message = ShareListMessageOfBody(ShareListBodyFor(l_visible));
        CacheList(l_visible, std::string(l_message.GetReadBuffer(), static_cast<std::size_t>(l_message.GetPendingReadLength())));
        l_cached = m_cachedLists.find(l_visible);
    }
    // A copy: copies of a MemStream share their buffer, and the sender reads from it.
    return StreamOf(l_cached->second);
}

void SharedFoldersManager::AnswerShareListRequest(std::string const& i_user, PeerMessenger::ShareListReply i_reply)
{
    ItemSet const l_visible = ListRequested(i_user);
    if (auto const l_cached = m_cachedLists.find(l_visible); l_cached != m_cachedLists.end())
    {
        i_reply(StreamOf(l_cached->second));
        return;
    }
    // Peers asking for the same list while it is compressed wait for that one.
    PendingListKey l_key{l_visible, m_listStamp};
    auto [l_pending, l_isNew] = m_pendingLists.try_emplace(l_key);
    l_pending->second.push_back(std::move(i_reply));
    if (!l_isNew)
        return;
    m_listCompressor.Compress(ShareListBodyFor(l_visible),
                              [this, l_key](std::string const& i_message) { OnListCompressed(l_key, i_message); });
}

void SharedFoldersManager::OnListCompressed(PendingListKey const& i_key, std::string const& i_message)
{
    auto l_waiting = m_pendingLists.extract(i_key);
    // A list of a share that has changed meanwhile still answers those who asked before the
    // change, but is not kept for later requests.
    if (i_key.second == ShareChangeStamp() && i_key.second == m_listStamp)
        CacheList(i_key.first, i_message);
    MemStream const l_message = StreamOf(i_message);
    if (!l_waiting.empty())
        for (PeerMessenger::ShareListReply const& l_reply : l_waiting.mapped())
            l_reply(l_message);
}

void SharedFoldersManager::OnFilesInFoldersRequested(std::string const& i_user, quint32 i_req, std::string const& i_folder)
{
    OwnShareTypes const l_types;
    std::string l_local = i_folder;
    std::replace(l_local.begin(), l_local.end(), '\\', '/');
    // Looked up, never made: a request for a folder that does not exist leaves nothing behind.
    // A folder the asker may not see gets no answer at all, as one that does not exist.
    Item* lp_folder = l_types.mp_folder->Items().Find(l_local);
    if (!IsVisible(l_types, lp_folder, GetUserSharedFolders(i_user)))
        return;

    SharedFolderInfo l_info;
    for (Item* lp_file : lp_folder->ConnectedOfType(l_types.mp_file))
        l_info.Files().emplace(std::string(TextOf(lp_file->GetItem(l_types.mp_name))),
                               NumberOf<qint64>(lp_file->GetItem(l_types.mp_size)));

    MemStream l_body;
    l_body.Write(static_cast<std::uint32_t>(i_req));
    l_body.Write(i_folder);
    l_body.Write(static_cast<std::uint32_t>(1));
    l_body.Write(i_folder);
    l_info.Write(l_body);
    MemStream l_message = CompressedMessage(PeerCode::SharedFilesInFolder, l_body);
    if (peerMessenger)
        peerMessenger->SendMessage(i_user, l_message);
}

// ---- Other users' lists

void SharedFoldersManager::RemoveUserShare(Item* ip_share)
{
    Type* lp_folderType = d.GetType("user_share_folder");
    Type* lp_fileType = d.GetType("user_share_file");
    std::vector<Item*> l_parts{ip_share};
    std::vector<Item*> l_values;
    auto const l_takeValues = [&l_values](Item* ip_item, std::initializer_list<Type*> i_types)
    {
        for (Type* lp_type : i_types)
            for (Item* lp_value : ip_item->ConnectedOfType(lp_type))
                l_values.push_back(lp_value);
    };
    for (Item* lp_folder : ip_share->ConnectedOfType(lp_folderType))
    {
        l_parts.push_back(lp_folder);
        l_takeValues(lp_folder, {d.GetType("user_share_folder_name")});
        for (Item* lp_file : lp_folder->ConnectedOfType(lp_fileType))
        {
            l_parts.push_back(lp_file);
            l_takeValues(lp_file, {d.GetType("user_share_file_name"), d.GetType("user_share_file_size"),
                                   d.GetType("bitrate"), d.GetType("length_seconds")});
        }
    }
    // Names and sizes are shared between files and between users: only those left with no
    // connection go. The walk keeps every removed item readable until it ends.
    std::sort(l_values.begin(), l_values.end());
    l_values.erase(std::unique(l_values.begin(), l_values.end()), l_values.end());
    EventDelivery::Walk l_walk;
    for (Item* lp_part : l_parts)
        lp_part->Remove();
    for (Item* lp_value : l_values)
        if (!lp_value->IsRemoved() && lp_value->IsDisconnectedFromAll())
            lp_value->Remove();
}

void SharedFoldersManager::OnUserShare(std::string const& i_userName, FileInfoMap& i_share, AttributeTranslationTable&)
{
    Log(QStringLiteral("Shared"), 1, QStringLiteral("Received shared file list from user %1").arg(Q(i_userName)));
    Type* lp_folderType = d.GetType("user_share_folder");
    Type* lp_folderName = d.GetType("user_share_folder_name");
    Type* lp_fileType = d.GetType("user_share_file");
    Type* lp_fileName = d.GetType("user_share_file_name");
    Type* lp_fileSize = d.GetType("user_share_file_size");
    Type* lp_bitrate = d.GetType("bitrate");
    Type* lp_length = d.GetType("length_seconds");
    Item* lp_vbr = d.GetType("bitrate_mode")->GetItem(Value("vbr"));
    Item* lp_cbr = d.GetType("bitrate_mode")->GetItem(Value("cbr"));

    ItemPtr const l_user = d.GetType("user")->GetItem(Value(i_userName));
    if (Item* lp_old = l_user->GetItem(d.GetType("user_share")))
        RemoveUserShare(lp_old);
    Item* lp_share = l_user->NewItem("user_share");
    for (auto const& [l_folderKey, l_files] : i_share)
    {
        Item* lp_folder = lp_share->Connect(lp_folderType->NewItem());
        lp_folder->Connect(lp_folderName->GetItem(Value(l_folderKey)));
        for (FileInfo const& l_info : l_files)
        {
            Item* lp_file = lp_folder->Connect(lp_fileType->NewItem());
            lp_file->Connect(lp_fileName->GetItem(Value(l_info.GetName())));
            lp_file->Connect(lp_fileSize->GetItem(Value(static_cast<long long>(l_info.GetSize()))));
            for (auto const& [l_code, l_value] : l_info.GetAttributes().GetAttributes())
            {
                if (l_code == 0)
                    lp_file->Connect(lp_bitrate->GetItem(Value(l_value)));
                else if (l_code == 1)
                    lp_file->Connect(lp_length->GetItem(Value(l_value)));
                else if (l_code == 2)
                    lp_file->Connect(l_value != 0 ? lp_vbr : lp_cbr);
            }
        }
    }
    // Last: the forms take this as the sign that the share is complete.
    lp_share->NewItem("user_share_loaded");
}

// ---- Searches

void SharedFoldersManager::OnDNetSearchRequest(std::string const& i_user, quint32 i_req, std::string const& i_searchText)
{
    ProcessSearch(i_user, i_req, i_searchText);
}

void SharedFoldersManager::ProcessSearch(std::string const& i_user, unsigned int i_req, std::string const& i_searchText)
{
    SearchParser l_parser;
    if (!l_parser.SetSearchText(i_searchText) || l_parser.GetIncludedTokenSet().empty())
        return;

    // Words are looked up, never made, so a search leaves the graph as it was. One unknown
    // word and no file can hold them all.
    OwnShareTypes const l_types;
    Type* lp_tokenType = d.GetType("search_token");
    std::vector<Item*> l_tokens;
    for (std::string const& l_word : l_parser.GetIncludedTokenSet())
    {
        Item* lp_token = lp_tokenType->Items().Find(l_word);
        if (!lp_token)
            return;
        l_tokens.push_back(lp_token);
    }
    // The candidates are the files of the rarest word, read in place. Both they and the files
    // of every other word are in address order, so a word with not many more files is walked
    // alongside, and a file missing it is never read. A word with far more files is looked for
    // among each candidate's own few words, which takes fewer reads than a search of its files.
    std::vector<std::pair<std::size_t, Item*>> l_byCount;
    for (Item* lp_token : l_tokens)
        l_byCount.emplace_back(lp_token->ConnectedOfType(l_types.mp_file).size(), lp_token);
    std::sort(l_byCount.begin(), l_byCount.end(),
              [](auto const& i_a, auto const& i_b) { return i_a.first < i_b.first; });
    std::size_t const l_candidates = l_byCount.front().first;
    struct OtherWord
    {
        Item* mp_token;
        bool m_walked;
        ItemRange::const_iterator m_at; // when walked: its first file not before the candidate
    };
    std::vector<OtherWord> l_others;
    for (auto l_word = l_byCount.begin() + 1; l_word != l_byCount.end(); ++l_word)
    {
        bool const l_walked = l_word->first <= s_walkedWordRatio * l_candidates;
        l_others.push_back({l_word->second, l_walked,
                            l_walked ? l_word->second->ConnectedOfType(l_types.mp_file).begin() : ItemRange::const_iterator()});
    }
    auto const l_holdsTheOthers = [&l_others](Item* ip_file)
    {
        for (OtherWord& l_word : l_others)
        {
            if (!l_word.m_walked)
            {
                if (!ip_file->IsConnected(l_word.mp_token))
                    return false;
                continue;
            }
            while (l_word.m_at != ItemRange::const_iterator() && std::less<Item*>()(*l_word.m_at, ip_file))
                ++l_word.m_at;
            if (l_word.m_at == ItemRange::const_iterator() || *l_word.m_at != ip_file)
                return false;
        }
        return true;
    };

    SearchParser::TokenSet const& l_excluded = l_parser.GetExcludedTokenSet();
    SearchParser::TokenSet const& l_parts = l_parser.GetIncludedPartTokenSet();
    bool const l_namesChecked = !l_excluded.empty() || !l_parts.empty();
    auto const l_nameContains = [](std::string_view i_name, std::string const& i_text)
    { return i_name.find(i_text) != std::string_view::npos; };

    ItemSet l_visible;
    bool l_visibleTaken = false;
    // Files of one folder are usually found together: its access is checked once per search.
    m_searchFolders.clear();
    std::vector<Item*>& l_matches = m_searchMatches;
    l_matches.clear();
    for (Item* lp_file : l_byCount.front().second->ConnectedOfType(l_types.mp_file))
    {
        if (!l_holdsTheOthers(lp_file))
            continue;
        if (l_namesChecked)
        {
            std::string_view const l_name = TextOf(lp_file->GetItem(l_types.mp_name));
            if (std::any_of(l_excluded.begin(), l_excluded.end(), [&](std::string const& i_text) { return l_nameContains(l_name, i_text); }))
                continue;
            if (!std::all_of(l_parts.begin(), l_parts.end(), [&](std::string const& i_text) { return l_nameContains(l_name, i_text); }))
                continue;
        }
        if (!l_visibleTaken)
        {
            l_visible = GetUserSharedFolders(i_user);
            l_visibleTaken = true;
        }
        Item* lp_folder = lp_file->GetItem(l_types.mp_folder);
        auto const [l_known, l_new] = m_searchFolders.try_emplace(lp_folder, false);
        if (l_new)
            l_known->second = IsVisible(l_types, lp_folder, l_visible);
        if (!l_known->second)
            continue;
        // More than the bound is no answer at all, not a shortened one.
        if (l_matches.size() == s_maxSearchResults)
            return;
        l_matches.push_back(lp_file);
    }
    if (l_matches.empty())
        return;

    // In the byte order of the paths as they travel, each path once. The paths are written one
    // after another into one reused buffer and sorted as views of it.
    std::string& l_paths = m_searchPaths;
    l_paths.clear();
    std::vector<SearchRecord>& l_records = m_searchRecords;
    l_records.clear();
    for (Item* lp_file : l_matches)
    {
        std::size_t const l_start = l_paths.size();
        l_paths += TextOf(lp_file->GetItem(l_types.mp_folder));
        l_paths += '/';
        std::string_view const l_name = TextOf(lp_file->GetItem(l_types.mp_name));
        l_paths += l_name;
        std::replace(l_paths.begin() + static_cast<std::ptrdiff_t>(l_start), l_paths.end(), '/', '\\');
        l_records.push_back({l_start, l_paths.size() - l_start, lp_file, l_name});
    }
    auto const l_pathOf = [&l_paths](SearchRecord const& i_record)
    { return std::string_view(l_paths).substr(i_record.m_start, i_record.m_length); };
    std::stable_sort(l_records.begin(), l_records.end(),
                     [&l_pathOf](SearchRecord const& i_a, SearchRecord const& i_b) { return l_pathOf(i_a) < l_pathOf(i_b); });
    l_records.erase(std::unique(l_records.begin(), l_records.end(),
                                [&l_pathOf](SearchRecord const& i_a, SearchRecord const& i_b) { return l_pathOf(i_a) == l_pathOf(i_b); }),
                    l_records.end());

    UploadSlots const l_slots = UploadSlotState();
    MemStream& l_body = m_searchBody;
    l_body.Reset();
    l_body.Write(GetGlobal("username"));
    l_body.Write(static_cast<std::uint32_t>(i_req));
    l_body.Write(static_cast<std::uint32_t>(l_records.size()));
    for (SearchRecord const& l_record : l_records)
    {
        Item* lp_file = l_record.mp_file;
        FileInfo(std::string(l_pathOf(l_record)), NumberOf<qint64>(lp_file->GetItem(l_types.mp_size)),
                 ListedAttributes(l_types, lp_file, l_record.m_name))
            .Write(l_body);
    }
    l_body.Write(static_cast<std::uint8_t>(l_slots.m_free ? 1 : 0));
    l_body.Write(NumberOf<std::uint32_t>(GetGlobalValue("upload_speed").Get()));
    l_body.Write(l_slots.m_queued);
    l_body.Write(static_cast<std::uint32_t>(0));
    MemStream l_message = CompressedMessage(PeerCode::FileSearchResult, l_body);

 
    Log(QStringLiteral("Search"), 1,
        QStringLiteral("Sending search results to user %1 for search string %2").arg(Q(i_user), Q(i_searchText)));
    if (peerMessenger)
        peerMessenger->SendMessage(i_user, l_message);
}
