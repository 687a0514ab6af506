#pragma once

#include <cstdint>
#include <map>
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
    // Returns false, leaving the previous file as it was, when anything fails.
    bool Save(Data* ip_data, char const* i_fileName);
    // Restores what a sound part of the file holds, then tells every handler.
    void Load(Data* ip_data, char const* i_fileName);
    void EmitDataLoaded();

    static void WriteString(std::string& io_bytes, std::string_view i_text);
    // Takes a string off the front of io_bytes; false, with io_bytes as it was, if the bytes
    // cannot hold it. The text ends at the first zero byte.
    static bool ReadString(std::string_view& io_bytes, std::string& o_text);

    // Handlers made before the saver exists wait here; the saver's constructor takes them over.
    static std::set<DataLoadedEventHandler*>& WaitingHandlers();

    static constexpr std::int64_t s_maxFileSize = std::int64_t(1) << 30;

private:
    std::string BuildFile(Data* ip_data) const;
    void ParseFile(Data* ip_data, std::string_view i_bytes);
    void OnItemRemovedDuringLoad(Item* ip_item);

    // While a load runs: the items read, by id, and those removed by listeners meanwhile.
    std::vector<Item*> m_loadedItems;
    std::vector<Item*> m_removedWhileCreating;
    bool m_creating = false;
};

extern DataSaver* dataSaver;
