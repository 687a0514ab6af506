#pragma once

#include <cstdint>
#include <future>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "store/DataHandler.h"

class Data;
class DataLoadedEventHandler;
class Item;

// Writes the saved part of the graph to one file and reads it back through the ordinary item
// operations, so that every listener hears what was restored. The file is a dump of typed items
// with file-local ids, followed by the connections between them as pairs of ids.
class DataSaver : public DataHandler
{
public:
    DataSaver();
    ~DataSaver() override;

    std::set<std::string> m_savedTypes;
    std::map<std::string, std::set<std::string>> m_savedByConnectionTypes;
    std::set<DataLoadedEventHandler*> m_dataLoadedHandlers;

    void AddSavedByConnectionType(std::string i_type, std::string i_connectionType);
    bool IsSavedType(std::string const& i_type) const;

    // Replaces the file whole, by way of a temporary file beside it, readable by the user alone.
    // Returns false, leaving the previous file as it was, when anything fails. A save under way
    // in the background is waited for first.
    bool Save(Data* ip_data, char const* i_fileName);
    // The periodic save. Nothing happens when no saved type has changed since the last save,
    // or while the previous write still runs; otherwise the bytes are built here and written,
    // synced and renamed into place on a worker thread, so that the window does not wait for
    // the disk. Returns whether a write was started.
    bool SaveInBackground(Data* ip_data, char const* i_fileName);
    // Waits for a background write, if one runs; false if the last one failed.
    bool WaitForBackgroundSave();
    // Restores what a sound part of the file holds, then tells every handler. A damaged file
    // is first kept as it was beside the data file (see DamagedCopy).
    void Load(Data* ip_data, char const* i_fileName);
    void EmitDataLoaded();
    // Where the last Load kept the damaged file it found; empty when the file was sound.
    std::string const& DamagedCopy() const { return m_damagedCopy; }

    static void WriteString(std::string& io_bytes, std::string_view i_text);
    // Takes a string off the front of io_bytes; false, with io_bytes as it was, if the bytes
    // cannot hold it. The text ends at the first zero byte.
    static bool ReadString(std::string_view& io_bytes, std::string& o_text);

    // Handlers made before the saver exists wait here; the saver's constructor takes them over.
    static std::set<DataLoadedEventHandler*>& WaitingHandlers();

    static constexpr std::int64_t s_maxFileSize = std::int64_t(1) << 30;

    // The file's bytes for the graph as it is now.
    std::string BuildFile(Data* ip_data) const;

private:
    // Whether the file was whole and sound.
    bool ParseFile(Data* ip_data, std::string_view i_bytes);
    void OnItemRemovedDuringLoad(Item* ip_item);
    // Sums the change counts of the saved types: equal sums mean nothing saved changed.
    std::uint64_t SavedChangeStamp(Data* ip_data) const;
    bool CollectBackgroundSave();

    // While a load runs: the items read, by id, and those removed by listeners meanwhile.
    std::vector<Item*> m_loadedItems;
    std::vector<Item*> m_removedWhileCreating;
    bool m_creating = false;

    // Savers nest, newest last: a saver made while another is the global one (a file a test
    // writes beside the client's) stands in front of it, and hands the global back as it goes.
    DataSaver* mp_previous;
    std::future<bool> m_backgroundWrite;
    // The stamp of the graph that the file on disk holds; none before the first save.
    std::optional<std::uint64_t> m_savedStamp;
    std::uint64_t m_writingStamp = 0;
    std::string m_damagedCopy;
};

extern DataSaver* dataSaver;
