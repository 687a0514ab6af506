#include "store/DataSaver.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include <QStringList>

#include "store/Data.h"
#include "store/DataFileIO.h"
#include "store/DataLoadedEventHandler.h"
#include "store/Log.h"

DataSaver* dataSaver = nullptr;

namespace
{
QString const s_area = QStringLiteral("Data File");

// A file integer: four bytes, little-endian.
void PutInt(unsigned char* o_at, std::int32_t i_value)
{
    auto const l_bits = static_cast<std::uint32_t>(i_value);
    for (int l_byte = 0; l_byte < 4; ++l_byte)
        o_at[l_byte] = static_cast<unsigned char>(l_bits >> (8 * l_byte));
}

// Puts items in address order by their addresses' bits, a few at a time: much quicker than
// comparing for the hundreds of thousands of items of a large share.
void SortByAddress(std::vector<Item*>& io_items)
{
    if (io_items.size() < 1024)
    {
        std::sort(io_items.begin(), io_items.end());
        return;
    }
    auto l_key = [](Item* ip_item) { return reinterpret_cast<std::uintptr_t>(ip_item); };
    auto const [l_lowest, l_highest] = std::minmax_element(io_items.begin(), io_items.end());
    std::uintptr_t const l_base = l_key(*l_lowest);
    std::uintptr_t const l_span = l_key(*l_highest) - l_base;
    // Bits that are zero in every offset, as the low bits of aligned addresses are, need no pass.
    std::uintptr_t l_anyBits = 0;
    for (Item* lp_item : io_items)
        l_anyBits |= l_key(lp_item) - l_base;
    constexpr int s_bits = 12;
    std::vector<Item*> l_other(io_items.size());
    for (int l_shift = l_anyBits ? std::countr_zero(l_anyBits) : 64; l_shift < 64 && (l_span >> l_shift) != 0; l_shift += s_bits)
    {
        std::size_t l_counts[(1 << s_bits) + 1] = {};
        for (Item* lp_item : io_items)
            ++l_counts[(((l_key(lp_item) - l_base) >> l_shift) & ((1 << s_bits) - 1)) + 1];
        for (int l_digit = 0; l_digit < (1 << s_bits); ++l_digit)
            l_counts[l_digit + 1] += l_counts[l_digit];
        for (Item* lp_item : io_items)
            l_other[l_counts[((l_key(lp_item) - l_base) >> l_shift) & ((1 << s_bits) - 1)]++] = lp_item;
        io_items.swap(l_other);
    }
}

// The file's bytes as they are built: written through a cursor into a buffer that grows by
// doubling, which is what makes building a large share's file quick.
class FileBytes
{
public:
    explicit FileBytes(std::size_t i_expected) { m_bytes.resize(i_expected); }
    void Int(std::int32_t i_value) { PutInt(Reserve(4), i_value); }
    void Byte(char i_byte) { *Reserve(1) = static_cast<unsigned char>(i_byte); }
    void Text(std::string_view i_text)
    {
        Int(static_cast<std::int32_t>(i_text.size()));
        if (!i_text.empty())
            std::memcpy(Reserve(i_text.size()), i_text.data(), i_text.size());
    }
    void PatchInt(std::size_t i_at, std::int32_t i_value)
    {
        std::size_t const l_size = m_size;
        m_size = i_at;
        Int(i_value);
        m_size = l_size;
    }
    std::size_t Size() const { return m_size; }
    std::string Take()
    {
        m_bytes.resize(m_size);
        return std::move(m_bytes);
    }

private:
    unsigned char* Reserve(std::size_t i_count)
    {
        if (m_size + i_count > m_bytes.size())
            m_bytes.resize(std::max(m_bytes.size() * 2, m_size + i_count + 4096));
        unsigned char* lp_at = reinterpret_cast<unsigned char*>(m_bytes.data()) + m_size;
        m_size += i_count;
        return lp_at;
    }

    std::string m_bytes;
    std::size_t m_size = 0;
};

// The readers below take nothing off the front of the bytes when they fail, so that the
// position at a failure is where the damage begins.
bool ReadInt(std::string_view& io_bytes, std::int32_t& o_value)
{
    if (io_bytes.size() < 4)
        return false;
    auto const* lp_bytes = reinterpret_cast<unsigned char const*>(io_bytes.data());
    o_value = static_cast<std::int32_t>(std::uint32_t(lp_bytes[0]) | std::uint32_t(lp_bytes[1]) << 8 |
                                        std::uint32_t(lp_bytes[2]) << 16 | std::uint32_t(lp_bytes[3]) << 24);
    io_bytes.remove_prefix(4);
    return true;
}

bool ReadCount(std::string_view& io_bytes, std::int32_t& o_count)
{
    std::string_view l_probe = io_bytes;
    if (!ReadInt(l_probe, o_count) || o_count < 0)
        return false;
    io_bytes = l_probe;
    return true;
}

// A string as it stands in the file, without copying it; a length is never trusted beyond
// the bytes that are left.
bool ReadRawString(std::string_view& io_bytes, std::string_view& o_text)
{
    std::string_view l_probe = io_bytes;
    std::int32_t l_length = 0;
    if (!ReadInt(l_probe, l_length) || l_length < 0 || static_cast<std::size_t>(l_length) > l_probe.size())
        return false;
    o_text = l_probe.substr(0, static_cast<std::size_t>(l_length));
    io_bytes = l_probe.substr(static_cast<std::size_t>(l_length));
    return true;
}

std::string_view UpToZero(std::string_view i_text)
{
    return i_text.substr(0, i_text.find('\0'));
}

struct LoadState
{
    Data* mp_data;
    DataSaver const* mp_saver;
    std::vector<Item*>* mp_items; // by id
    std::vector<Item*>* mp_removedWhileCreating;
    bool* mp_creating;
    std::string_view m_rest;
    std::size_t m_size;
    std::size_t m_maxId; // every item record holds at least its 4-byte id
    std::int64_t m_highestId = 0;
    int m_badIds = 0;
    int m_unrelatedPairs = 0;
    QStringList m_mismatchedTypes;

    std::size_t Offset() const { return m_size - m_rest.size(); }
};

void RememberItem(LoadState& io_state, std::int32_t i_id, Type* ip_type, std::string_view i_value)
{
    std::vector<Item*>& l_items = *io_state.mp_items;
    if (i_id <= 0 || static_cast<std::size_t>(i_id) > io_state.m_maxId ||
        (static_cast<std::size_t>(i_id) < l_items.size() && l_items[i_id]))
    {
        ++io_state.m_badIds;
        return;
    }
    io_state.mp_removedWhileCreating->clear();
    *io_state.mp_creating = true;
    Item* lp_item =
        ip_type->IsNull() ? ip_type->NewItem() : ip_type->NewItem(Value(std::string(UpToZero(i_value))));
    *io_state.mp_creating = false;
    // A listener of the new item may have removed it again before NewItem returned.
    auto const& l_removed = *io_state.mp_removedWhileCreating;
    if (std::find(l_removed.begin(), l_removed.end(), lp_item) != l_removed.end())
        return;
    if (static_cast<std::size_t>(i_id) >= l_items.size())
        l_items.resize(static_cast<std::size_t>(i_id) + 1, nullptr);
    l_items[i_id] = lp_item;
}

bool ReadTypeRecord(LoadState& io_state)
{
    std::string_view l_rawName;
    if (!ReadRawString(io_state.m_rest, l_rawName) || io_state.m_rest.empty())
        return false;
    unsigned char const l_flag = static_cast<unsigned char>(io_state.m_rest.front());
    if (l_flag > 1)
        return false;
    std::string_view l_afterFlag = io_state.m_rest.substr(1);
    std::int32_t l_count = 0;
    if (!ReadCount(l_afterFlag, l_count))
        return false;
    io_state.m_rest = l_afterFlag;

    std::string const l_name(UpToZero(l_rawName));
    bool const l_isNull = l_flag == 1;
    Type* lp_type = io_state.mp_saver->IsSavedType(l_name) ? io_state.mp_data->FindType(l_name) : nullptr;
    if (lp_type && lp_type->IsNull() != l_isNull)
    {
        io_state.m_mismatchedTypes << QString::fromStdString(l_name);
        lp_type = nullptr;
    }
    for (std::int32_t l_index = 0; l_index < l_count; ++l_index)
    {
        std::string_view l_record = io_state.m_rest;
        std::int32_t l_id = 0;
        std::string_view l_value;
        if (!ReadInt(l_record, l_id) || (!l_isNull && !ReadRawString(l_record, l_value)))
            return false;
        io_state.m_rest = l_record;
        io_state.m_highestId = std::max<std::int64_t>(io_state.m_highestId, l_id);
        if (lp_type)
            RememberItem(io_state, l_id, lp_type, l_value);
    }
    return true;
}

Item* LoadedItem(LoadState& io_state, std::int32_t i_id)
{
    if (i_id <= 0 || i_id > io_state.m_highestId)
        ++io_state.m_badIds;
    std::vector<Item*> const& l_items = *io_state.mp_items;
    return i_id > 0 && static_cast<std::size_t>(i_id) < l_items.size() ? l_items[i_id] : nullptr;
}

bool ReadPairs(LoadState& io_state)
{
    std::int32_t l_count = 0;
    if (!ReadCount(io_state.m_rest, l_count))
        return false;
    for (std::int32_t l_index = 0; l_index < l_count; ++l_index)
    {
        std::int32_t l_low = 0;
        std::int32_t l_high = 0;
        if (io_state.m_rest.size() < 8)
            return false;
        ReadInt(io_state.m_rest, l_low);
        ReadInt(io_state.m_rest, l_high);
        Item* lp_low = LoadedItem(io_state, l_low);
        Item* lp_high = LoadedItem(io_state, l_high);
        // Ids of types no longer saved are not remembered, so their pairs drop out here.
        if (!lp_low || !lp_high)
            continue;
        if (!lp_low->GetType()->IsRelated(lp_high->GetType()))
        {
            ++io_state.m_unrelatedPairs;
            continue;
        }
        lp_low->Connect(lp_high);
    }
    return true;
}

// Logs what the load found; true when the file was whole and sound.
bool ReportLoad(LoadState const& i_state, bool i_whole)
{
    auto l_log = [](QString const& i_text) { Log(s_area, 1, i_text); };
    if (!i_whole)
        l_log(QStringLiteral("The data file is damaged after %1 bytes; kept what was read before").arg(i_state.Offset()));
    else if (!i_state.m_rest.empty())
        l_log(QStringLiteral("The data file has %1 unexpected bytes at its end; they were ignored")
                  .arg(i_state.m_rest.size()));
    if (i_state.m_badIds > 0)
        l_log(QStringLiteral("The data file holds %1 bad item ids; their records were skipped").arg(i_state.m_badIds));
    for (QString const& l_name : i_state.m_mismatchedTypes)
        l_log(QStringLiteral("The data file holds items of the type %1 of the wrong kind; they were skipped").arg(l_name));
    if (i_state.m_unrelatedPairs > 0)
        l_log(QStringLiteral("The data file connects %1 pairs of items whose types are not related; they were skipped")
                  .arg(i_state.m_unrelatedPairs));
    // Kinds and relations that no longer match follow from a change of the program, not of
    // the file; cut, trailing or garbled bytes and bad ids are damage.
    return i_whole && i_state.m_rest.empty() && i_state.m_badIds == 0;
}
} // namespace

DataSaver::DataSaver() : mp_previous(dataSaver)
{
    dataSaver = this;
    m_dataLoadedHandlers.swap(WaitingHandlers());
}

DataSaver::~DataSaver()
{
    WaitForBackgroundSave();
    // Handlers that outlive the saver go back to the one it stood in front of, or wait for the
    // next one.
    auto& l_heirs = mp_previous ? mp_previous->m_dataLoadedHandlers : WaitingHandlers();
    l_heirs.insert(m_dataLoadedHandlers.begin(), m_dataLoadedHandlers.end());
    if (dataSaver == this)
    {
        dataSaver = mp_previous;
        return;
    }
    // Going before a saver made later, which stands in front of this one: that one hands the
    // global back past it.
    for (DataSaver* lp_saver = dataSaver; lp_saver; lp_saver = lp_saver->mp_previous)
        if (lp_saver->mp_previous == this)
        {
            lp_saver->mp_previous = mp_previous;
            break;
        }
}

std::set<DataLoadedEventHandler*>& DataSaver::WaitingHandlers()
{
    static std::set<DataLoadedEventHandler*> s_waiting;
    return s_waiting;
}

void DataSaver::AddSavedByConnectionType(std::string i_type, std::string i_connectionType)
{
    m_savedByConnectionTypes[std::move(i_type)].insert(std::move(i_connectionType));
}

bool DataSaver::IsSavedType(std::string const& i_type) const
{
    return m_savedTypes.count(i_type) > 0 || m_savedByConnectionTypes.count(i_type) > 0;
}

void DataSaver::WriteString(std::string& io_bytes, std::string_view i_text)
{
    unsigned char l_size[4];
    PutInt(l_size, static_cast<std::int32_t>(i_text.size()));
    io_bytes.append(reinterpret_cast<char const*>(l_size), 4);
    io_bytes.append(i_text);
}

bool DataSaver::ReadString(std::string_view& io_bytes, std::string& o_text)
{
    std::string_view l_text;
    if (!ReadRawString(io_bytes, l_text))
        return false;
    o_text.assign(UpToZero(l_text));
    return true;
}

std::string DataSaver::BuildFile(Data* ip_data) const
{
    // The items written of one type, in address order, which is also the order of their ids:
    // walking them visits memory in the order it was handed out, and the partners of a group
    // come out with their ids in ascending order. Each item carries its id while the file is
    // built, and each type the range of its ids; what is not written carries zero.
    struct SavedType
    {
        Type* mp_type;
        std::vector<Item*> m_items;
    };
    std::vector<SavedType> l_saved;
    std::int32_t l_nextId = 1;
    for (auto const& [l_name, lp_type] : ip_data->Types())
    {
        lp_type->m_saveFirstId = lp_type->m_saveEndId = 0;
        if (!IsSavedType(l_name))
            continue;
        std::vector<Type*> l_connectionTypes;
        bool const l_whole = m_savedTypes.count(l_name) > 0;
        if (!l_whole)
            for (std::string const& l_connectionName : m_savedByConnectionTypes.at(l_name))
                if (Type* lp_connectionType = ip_data->FindType(l_connectionName))
                    l_connectionTypes.push_back(lp_connectionType);
        // Sorted before anything is read of them, so that the items are visited in address order.
        SavedType l_entry{lp_type, {}};
        l_entry.m_items.reserve(lp_type->ItemCount());
        for (Item* lp_item : lp_type->Items())
            l_entry.m_items.push_back(lp_item);
        SortByAddress(l_entry.m_items);
        lp_type->m_saveFirstId = l_nextId;
        std::size_t l_kept = 0;
        for (Item* lp_item : l_entry.m_items)
        {
            bool const l_written = l_whole || std::any_of(l_connectionTypes.begin(), l_connectionTypes.end(),
                                                          [lp_item](Type* ip_type) { return lp_item->IsConnected(ip_type); });
            lp_item->m_saveId = l_written ? l_nextId++ : 0;
            if (l_written)
                l_entry.m_items[l_kept++] = lp_item;
        }
        l_entry.m_items.resize(l_kept);
        lp_type->m_saveEndId = l_nextId;
        l_saved.push_back(std::move(l_entry));
    }

    // Room for the items and about as many pairs, so that the buffer seldom has to move.
    FileBytes l_bytes(static_cast<std::size_t>(l_nextId) * 40);
    l_bytes.Int(static_cast<std::int32_t>(l_saved.size()));
    for (SavedType const& l_entry : l_saved)
    {
        l_bytes.Text(l_entry.mp_type->GetName());
        l_bytes.Byte(l_entry.mp_type->IsNull() ? 1 : 0);
        l_bytes.Int(static_cast<std::int32_t>(l_entry.m_items.size()));
        for (Item* lp_item : l_entry.m_items)
        {
            l_bytes.Int(lp_item->m_saveId);
            if (!l_entry.mp_type->IsNull())
                l_bytes.Text(lp_item->AsView());
        }
    }

    // Each connection is seen from both ends; the lower id writes it. Walking the ids upwards,
    // with each item's groups in the order of their types' ids, gives the pairs in ascending
    // order without a sort: the ids of one type do not overlap another's.
    std::size_t const l_pairCountAt = l_bytes.Size();
    l_bytes.Int(0);
    std::int32_t l_pairCount = 0;
    std::vector<std::pair<std::int32_t, ItemRange>> l_groups;
    for (SavedType const& l_entry : l_saved)
        for (Item* lp_item : l_entry.m_items)
        {
            std::int32_t const l_id = lp_item->m_saveId;
            l_groups.clear();
            // A type whose ids are all lower wrote these pairs already; one not written has none.
            for (ConnectionGroup const& l_group : lp_item->ConnectedItems())
                if (l_group.GetType()->m_saveEndId > l_id)
                    l_groups.emplace_back(l_group.GetType()->m_saveFirstId, l_group.Items());
            std::sort(l_groups.begin(), l_groups.end(), [](auto const& i_a, auto const& i_b) { return i_a.first < i_b.first; });
            for (auto const& l_group : l_groups)
                for (Item* lp_other : l_group.second)
                    if (lp_other->m_saveId >= l_id) // zero: not written; lower: written from there
                    {
                        l_bytes.Int(l_id);
                        l_bytes.Int(lp_other->m_saveId);
                        ++l_pairCount;
                    }
        }
    l_bytes.PatchInt(l_pairCountAt, l_pairCount);
    return l_bytes.Take();
}

bool DataSaver::Save(Data* ip_data, char const* i_fileName)
{
    WaitForBackgroundSave();
    std::uint64_t const l_stamp = SavedChangeStamp(ip_data);
    bool const l_ok = DataFileIO::WriteFileAtomically(i_fileName, BuildFile(ip_data));
    if (l_ok)
        m_savedStamp = l_stamp;
    return l_ok;
}

bool DataSaver::SaveInBackground(Data* ip_data, char const* i_fileName)
{
    if (m_backgroundWrite.valid())
    {
        if (m_backgroundWrite.wait_for(std::chrono::seconds(0)) != std::future_status::ready)
            return false; // the disk is slow: the next period tries again
        CollectBackgroundSave();
    }
    std::uint64_t const l_stamp = SavedChangeStamp(ip_data);
    if (m_savedStamp == l_stamp)
        return false;
    m_writingStamp = l_stamp;
    m_backgroundWrite = std::async(std::launch::async, DataFileIO::WriteFileAtomically, std::string(i_fileName),
                                   BuildFile(ip_data));
    return true;
}

bool DataSaver::WaitForBackgroundSave()
{
    return m_backgroundWrite.valid() ? CollectBackgroundSave() : true;
}

bool DataSaver::CollectBackgroundSave()
{
    bool const l_ok = m_backgroundWrite.get();
    if (l_ok)
        m_savedStamp = m_writingStamp;
    else
    {
        m_savedStamp.reset();
        Log(s_area, 1, QStringLiteral("The data file could not be written; the next save tries again"));
    }
    return l_ok;
}

std::uint64_t DataSaver::SavedChangeStamp(Data* ip_data) const
{
    std::uint64_t l_stamp = 0;
    for (auto const& [l_name, lp_type] : ip_data->Types())
        if (IsSavedType(l_name))
            l_stamp += lp_type->ChangeCount();
    return l_stamp;
}

void DataSaver::Load(Data* ip_data, char const* i_fileName)
{
    m_damagedCopy.clear();
    std::string l_bytes;
    switch (DataFileIO::ReadWholeFile(i_fileName, l_bytes))
    {
    case DataFileIO::ReadResult::Read:
        if (!ParseFile(ip_data, l_bytes))
            m_damagedCopy = DataFileIO::KeepDamagedCopy(i_fileName, &l_bytes);
        break;
    case DataFileIO::ReadResult::TooLarge:
        Log(s_area, 1, QStringLiteral("The data file is larger than %1 bytes and was not read").arg(s_maxFileSize));
        // Moved aside whole, so that the next save does not replace it with an empty graph.
        m_damagedCopy = DataFileIO::KeepDamagedCopy(i_fileName, nullptr);
        break;
    case DataFileIO::ReadResult::NotPlain:
        Log(s_area, 1, QStringLiteral("The data file is not a plain file and was not read"));
        break;
    case DataFileIO::ReadResult::Missing:
        break;
    }
    if (!m_damagedCopy.empty())
        Log(s_area, 1, QStringLiteral("The damaged data file was kept as %1").arg(QString::fromStdString(m_damagedCopy)));
    EmitDataLoaded();
}

bool DataSaver::ParseFile(Data* ip_data, std::string_view i_bytes)
{
    // Listeners fire during the load and might remove an item read earlier; its id must then
    // be forgotten before a later pair would reach it.
    auto* lp_handler = MakeHandler(&DataSaver::OnItemRemovedDuringLoad);
    ip_data->m_itemRemovedEvent.Add(lp_handler);
    m_loadedItems.clear();

    LoadState l_state{ip_data, this, &m_loadedItems, &m_removedWhileCreating, &m_creating,
                      i_bytes, i_bytes.size(), i_bytes.size() / 4, 0, 0, 0, {}};
    std::int32_t l_typeCount = 0;
    bool l_whole = ReadCount(l_state.m_rest, l_typeCount);
    for (std::int32_t l_index = 0; l_whole && l_index < l_typeCount; ++l_index)
        l_whole = ReadTypeRecord(l_state);
    l_whole = l_whole && ReadPairs(l_state);
    bool const l_sound = ReportLoad(l_state, l_whole);

    lp_handler->m_removed = true;
    m_handlers.erase(lp_handler);
    m_loadedItems.clear();
    m_loadedItems.shrink_to_fit();
    m_removedWhileCreating.clear();
    return l_sound;
}

void DataSaver::OnItemRemovedDuringLoad(Item* ip_item)
{
    std::replace(m_loadedItems.begin(), m_loadedItems.end(), ip_item, static_cast<Item*>(nullptr));
    if (m_creating)
        m_removedWhileCreating.push_back(ip_item);
}

void DataSaver::EmitDataLoaded()
{
    // A handler may make or destroy others while it runs: walk a copy, skip the departed.
    std::set<DataLoadedEventHandler*> const l_handlers = m_dataLoadedHandlers;
    for (DataLoadedEventHandler* lp_handler : l_handlers)
        if (m_dataLoadedHandlers.count(lp_handler))
            lp_handler->DataLoaded();
}
