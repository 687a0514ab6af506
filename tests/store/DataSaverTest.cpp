#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <numeric>
#include <optional>
#include <random>
#include <set>
#include <string>

#include <QTemporaryDir>
#include <QtEndian>

#include "Reactor.h"
#include "store/DataLoadedEventHandler.h"
#include "store/DataSaver.h"
#include "store/Log.h"

namespace
{
struct LoadedCounter : DataLoadedEventHandler
{
    void DataLoaded() override { ++m_calls; }
    int m_calls = 0;
};

// Hand-built file bytes, in the file's own integer and string forms.
struct Bytes
{
    Bytes& Int(std::int32_t i_value)
    {
        std::int32_t const l_little = qToLittleEndian(i_value);
        m_bytes.append(reinterpret_cast<char const*>(&l_little), 4);
        return *this;
    }
    Bytes& Str(std::string const& i_text) { Int(static_cast<std::int32_t>(i_text.size())).m_bytes += i_text; return *this; }
    Bytes& Record(std::string const& i_name, char i_flag, std::int32_t i_count) { Str(i_name).m_bytes += i_flag; return Int(i_count); }
    std::string m_bytes;
};

using Lines = std::multiset<std::string>;

std::string Contents(std::string const& i_path)
{
    std::ifstream l_file(i_path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(l_file), {});
}

// The graph as "item -> its neighbours" lines, independent of addresses and ids.
Lines Describe(Data& i_data)
{
    auto const l_label = [](Item* ip_item)
    { return ip_item->GetType()->GetName() + (ip_item->GetType()->IsNull() ? "#" : "=" + ip_item->AsString()); };
    Lines l_lines;
    for (auto const& l_entry : i_data.Types())
        for (Item* lp_item : l_entry.second->GetItems())
        {
            Lines l_neighbours;
            for (auto const& l_connected : lp_item->ConnectedItems())
                for (Item* lp_other : l_connected.Items())
                    l_neighbours.insert(" " + l_label(lp_other));
            l_lines.insert(std::accumulate(l_neighbours.begin(), l_neighbours.end(), l_label(lp_item) + " ->"));
        }
    return l_lines;
}
} // namespace

class DataSaverTest : public ::testing::Test
{
protected:
    DataSaverTest() : mp_saver(std::make_unique<DataSaver>()), m_file(m_dir.path().toStdString() + "/.Tidewick")
    {
        mp_saver->m_savedTypes = {"global", "in_user_list", "is_scanned", "note"};
        std::pair<char const*, char const*> const l_byConnection[] = {{"global_value", "global"}, {"user", "in_user_list"},
            {"shared_file", "is_scanned"}, {"shared_file_name", "shared_file"}, {"note", "global"}};
        // note is saved whole all the same.
        for (auto const& [l_type, l_connectionType] : l_byConnection)
            mp_saver->AddSavedByConnectionType(l_type, l_connectionType);
        SetLogSink([this](QString const&, int, QString const& i_text, ItemPtr) { m_log << i_text; });
        Declare(m_a);
    }
    ~DataSaverTest() override { SetLogSink({}); }

    // Saved, saved-by-connection and unsaved types, declared as the client does.
    static void Declare(Data& io_data)
    {
        Type* lp_value = io_data.NewType("global_value", false, false, true);
        io_data.NewType("global", true, false, true)->RelateToType(lp_value, Many, One, false);
        io_data.NewType("vglobal", true, false, true)->RelateToType(lp_value, Many, One, false);
        Type* lp_user = io_data.NewType("user", true, false, true);
        lp_user->RelateToType(io_data.NewType("in_user_list", false, true, true), One, One, false);
        lp_user->RelateToType(io_data.NewType("is_online", false, true, true), Many, One, false);
        Type* lp_file = io_data.NewType("shared_file", false, true, true);
        lp_file->RelateToType(io_data.NewType("is_scanned", false, true, true), Many, One, false);
        lp_file->RelateToType(io_data.NewType("shared_file_name", false, false, true), Many, One, false);
        io_data.NewType("note", true, false, true);
    }

    ItemPtr At(char const* i_type, char const* i_value) { return (*m_a.GetType(i_type))[i_value]; }
    void Set(char const* i_key, char const* i_value, char const* i_keyType = "global") { At(i_keyType, i_key) += At("global_value", i_value); }
    void AddFile(char const* i_name, bool i_scanned)
    {
        ItemPtr l_file = m_a.GetType("shared_file")->NewItem();
        if (i_scanned)
            l_file.NewItem("is_scanned");
        l_file += At("shared_file_name", i_name);
    }
    void WriteFile(std::string const& i_bytes) { ASSERT_TRUE(std::ofstream(m_file, std::ios::binary) << i_bytes); }
    std::string ReadFile() { return Contents(m_file); }
    // Loads the file, or the given bytes, into a fresh graph kept in mp_loaded; whatever the
    // file holds, the handlers must be told exactly once.
    Lines Load(std::optional<std::string> const& i_bytes = std::nullopt)
    {
        if (i_bytes)
            WriteFile(*i_bytes);
        mp_loaded = std::make_unique<Data>();
        Declare(*mp_loaded);
        LoadedCounter l_counter;
        mp_saver->Load(mp_loaded.get(), m_file.c_str());
        EXPECT_EQ(l_counter.m_calls, 1);
        return Describe(*mp_loaded);
    }

    std::unique_ptr<DataSaver> mp_saver;
    QTemporaryDir m_dir;
    std::string m_file;
    QStringList m_log;
    Data m_a;
    std::unique_ptr<Data> mp_loaded;
};

TEST_F(DataSaverTest, SavesExactlyTheSavedPartAndLoadsItBack)
{
    Set("k", "v");
    Set("old", "v", "vglobal");
    Set("session", "temp", "vglobal");
    At("user", "bob").NewItem("in_user_list");
    At("user", "bob").NewItem("is_online");
    At("user", "dave").NewItem("is_online");
    for (bool l_scanned : {true, true, false})
        AddFile("", l_scanned);
    At("note", "n");
    ASSERT_TRUE(mp_saver->Save(&m_a, m_file.c_str()));
    Bytes l_expected;
    l_expected.Int(8).Record("global", 0, 1).Int(1).Str("k").Record("global_value", 0, 1).Int(2).Str("v");
    l_expected.Record("in_user_list", 1, 1).Int(3).Record("is_scanned", 1, 1).Int(4).Record("note", 0, 1).Int(5).Str("n");
    l_expected.Record("shared_file", 1, 2).Int(6).Int(7).Record("shared_file_name", 0, 1).Int(8).Str("");
    l_expected.Record("user", 0, 1).Int(9).Str("bob");
    l_expected.Int(6).Int(1).Int(2).Int(3).Int(9).Int(4).Int(6).Int(4).Int(7).Int(6).Int(8).Int(7).Int(8);
    EXPECT_EQ(ReadFile(), l_expected.m_bytes);

    // What was loaded saves to the same file again.
    EXPECT_EQ(Load().size(), 9u);
    EXPECT_TRUE(m_log.isEmpty());
    EXPECT_TRUE(mp_saver->DamagedCopy().empty());
    ASSERT_TRUE(mp_saver->Save(mp_loaded.get(), m_file.c_str()));
    EXPECT_EQ(ReadFile(), l_expected.m_bytes);

    // A name held only by a file that is not saved is saved all the same, alone.
    AddFile("x", false);
    ASSERT_TRUE(mp_saver->Save(&m_a, m_file.c_str()));
    EXPECT_EQ(Load().count("shared_file_name=x ->"), 1u);
}

TEST_F(DataSaverTest, TruncatedOrRandomFilesKeepWhatCameBefore)
{
    Set("k", "value");
    AddFile("name.mp3", true);
    ASSERT_TRUE(mp_saver->Save(&m_a, m_file.c_str()));
    std::string const l_sample = ReadFile();
    std::size_t l_previous = 0;
    for (std::size_t l_length = 0; l_length < l_sample.size(); ++l_length)
    {
        SCOPED_TRACE(l_length);
        m_log.clear();
        Lines const l_loaded = Load(l_sample.substr(0, l_length));
        EXPECT_EQ(m_log.filter(QStringLiteral("damaged after")).size(), 1);
        EXPECT_GE(l_loaded.size(), l_previous);
        l_previous = l_loaded.size();
    }
    EXPECT_EQ(l_previous, 5u);
    // Short of its last pair only, the file still connects the pair before it.
    EXPECT_EQ(Load(l_sample.substr(0, l_sample.size() - 8)).count("global=k -> global_value=value"), 1u);

    std::mt19937 l_random(7);
    for (int l_round = 0; l_round < 400; ++l_round)
    {
        SCOPED_TRACE(l_round);
        std::string l_bytes = l_round % 2 ? l_sample : std::string(l_random() % 120, '\0');
        for (std::size_t l_flip = 0; l_flip < (l_round % 2 ? 1 + l_random() % 3 : l_bytes.size()); ++l_flip)
            l_bytes[l_random() % l_bytes.size()] = static_cast<char>(l_random());
        Load(l_bytes);
    }
}

TEST_F(DataSaverTest, HostileAndForeignRecordsAreSkippedAndTold)
{
    std::int32_t const l_huge = 0x7fffffff;
    Bytes const l_kv = Bytes().Int(2).Record("global", 0, 1).Int(1).Str("k").Record("global_value", 0, 1).Int(2).Str("v");
    Bytes l_ids = Bytes().Int(3).Record("global", 0, 4).Int(0).Str("zero").Int(-1).Str("minus").Int(l_huge).Str("huge");
    l_ids.Int(1).Str("k").Record("global_value", 0, 2).Int(1).Str("repeated").Int(2).Str("v").Record("note", 0, 1).Int(3).Str("n");
    l_ids.Int(5).Int(1).Int(3).Int(0).Int(2).Int(2).Int(l_huge).Int(-7).Int(1).Int(1).Int(2);
    // Types that are not saved, not known, or null where the file says otherwise are read past in step.
    Bytes l_foreign = Bytes().Int(4).Record("global", 1, 2).Int(1).Int(2).Record("is_online", 1, 1).Int(3);
    l_foreign.Record("retired_type", 0, 1).Int(4).Str("x").Record("user", 0, 1).Int(5).Str(std::string("bob\0junk", 8));
    l_foreign.Int(3).Int(1).Int(5).Int(3).Int(5).Int(4).Int(5);
    Lines const l_connected = {"global=k -> global_value=v", "global_value=v -> global=k"};
    struct Case { Bytes m_bytes; Lines m_kept; char const* m_told; } const l_cases[] = {
        {Bytes().Int(l_huge), {}, "damaged after 4 bytes|kept as"},
        {Bytes().Int(-1).Record("note", 0, 0).Int(0), {}, "damaged after 0 bytes|kept as"},
        {Bytes().Int(1).Int(l_huge).Int(0).Int(0), {}, "damaged after 4 bytes|kept as"},
        {Bytes().Int(1).Int(-5).Int(0).Int(0), {}, "damaged after 4 bytes|kept as"},
        {Bytes().Int(2).Record("note", 0, 1).Int(1).Str("n").Record("global", 7, 0), {"note=n ->"}, "damaged after 36 bytes|kept as"},
        {Bytes().Int(1).Record("global", 0, l_huge).Int(1).Str("k"), {"global=k ->"}, "damaged after|kept as"},
        {Bytes().Int(1).Record("global", 0, 2).Int(1).Str("k").Int(2).Int(l_huge), {"global=k ->"}, "damaged after|kept as"},
        {Bytes(l_kv).Int(l_huge).Int(1).Int(2), l_connected, "damaged after|kept as"},
        {Bytes(l_kv).Int(-3).Int(1).Int(2), {"global=k ->", "global_value=v ->"}, "damaged after|kept as"},
        {Bytes(l_kv).Int(1).Int(1).Int(2).Int(9), l_connected, "has 4 unexpected bytes at its end|kept as"},
        {l_ids, {"global=k -> global_value=v", "global_value=v -> global=k", "note=n ->"},
         "bad item ids|pairs of items whose types are not related|kept as"},
        {l_foreign, {"user=bob ->"}, "items of the type global of the wrong kind"},
    };
    for (Case const& l_case : l_cases)
    {
        SCOPED_TRACE(&l_case - l_cases);
        m_log.clear();
        EXPECT_EQ(Load(l_case.m_bytes.m_bytes), l_case.m_kept);
        // Everything but kinds and relations that no longer match is damage, kept as it was.
        QStringList const l_told = QString::fromLatin1(l_case.m_told).split(u'|');
        EXPECT_EQ(mp_saver->DamagedCopy().empty(), l_told.last() != u"kept as");
        ASSERT_EQ(m_log.size(), l_told.size()) << m_log.join(u'|').toStdString();
        for (qsizetype l_index = 0; l_index < l_told.size(); ++l_index)
            EXPECT_TRUE(m_log[l_index].contains(l_told[l_index])) << m_log[l_index].toStdString();
    }
}

TEST_F(DataSaverTest, ListenersThatRemoveLoadedItemsDoNotBreakTheLoad)
{
    Data l_b;
    Declare(l_b);
    // When "doomed" comes, it goes again at once, and takes "early", read before it, along.
    Reactor l_remover([](Item* ip_item) {
        if (ip_item->AsString() != "doomed")
            return;
        ip_item->GetType()->HasItem("early").Remove();
        ip_item->Remove();
    });
    l_remover.Added(l_b.GetType("global"));
    WriteFile(Bytes().Int(2).Record("global", 0, 3).Int(1).Str("early").Int(2).Str("doomed").Int(3).Str("k")
                  .Record("global_value", 0, 1).Int(4).Str("v").Int(3).Int(1).Int(4).Int(2).Int(4).Int(3).Int(4).m_bytes);
    mp_saver->Load(&l_b, m_file.c_str());
    EXPECT_EQ(Describe(l_b), (Lines{"global=k -> global_value=v", "global_value=v -> global=k"}));
}

TEST_F(DataSaverTest, SaveReplacesTheFileWholeAndPrivately)
{
    Set("k", "v");
    WriteFile({});
    ASSERT_EQ(::chmod(m_file.c_str(), 0644), 0);
    mode_t const l_umask = ::umask(0);
    bool const l_saved = mp_saver->Save(&m_a, m_file.c_str());
    ::umask(l_umask);
    struct stat l_stat = {};
    ASSERT_TRUE(l_saved && ::stat(m_file.c_str(), &l_stat) == 0);
    EXPECT_EQ(l_stat.st_mode & 07777, 0600u);

    std::string const l_before = ReadFile(), l_temp = m_file + ".tmp";
    ASSERT_EQ(::mkdir(l_temp.c_str(), 0700), 0);
    At("note", "new");
    EXPECT_FALSE(mp_saver->Save(&m_a, m_file.c_str()));
    EXPECT_EQ(ReadFile(), l_before);
    EXPECT_FALSE(mp_saver->Save(&m_a, (m_dir.path().toStdString() + "/missing/.Tidewick").c_str()));
    ASSERT_EQ(::rmdir(l_temp.c_str()), 0);
    EXPECT_TRUE(mp_saver->Save(&m_a, m_file.c_str()));
    EXPECT_GT(ReadFile().size(), l_before.size());
    EXPECT_NE(::access(l_temp.c_str(), F_OK), 0);
}

TEST_F(DataSaverTest, MissingFolderOrOversizedFileLoadsNothingButStillTells)
{
    EXPECT_TRUE(Load().empty());
    ASSERT_EQ(::mkdir(m_file.c_str(), 0700), 0);
    EXPECT_TRUE(Load().empty());
    ASSERT_EQ(::rmdir(m_file.c_str()), 0);
    EXPECT_EQ(Load(Bytes().Int(1).Record("note", 0, 1).Int(1).Str("n").Int(0).m_bytes).size(), 1u);
    ASSERT_EQ(::truncate(m_file.c_str(), DataSaver::s_maxFileSize + 1), 0); // sparse: costs no disk
    EXPECT_TRUE(Load().empty());
    ASSERT_EQ(m_log.size(), 3);
    EXPECT_TRUE(m_log[0].contains(u"not a plain file") && m_log[1].contains(u"larger than") &&
                m_log[2].contains(u"kept as")) << m_log.join(u'|').toStdString();
    // The oversized file is moved aside whole, so that the next save cannot replace it.
    struct stat l_stat = {};
    EXPECT_NE(::access(m_file.c_str(), F_OK), 0);
    ASSERT_EQ(::stat(mp_saver->DamagedCopy().c_str(), &l_stat), 0);
    EXPECT_EQ(l_stat.st_size, DataSaver::s_maxFileSize + 1);
    EXPECT_EQ(l_stat.st_mode & 07777, 0600u);
}

TEST_F(DataSaverTest, DamagedFilesAreKeptAsTheyWereThreeAtMost)
{
    std::string const l_cut = Bytes().Int(1).Record("note", 0, 2).Int(1).Str("n").m_bytes;
    std::vector<std::string> l_copies;
    for (int l_round = 0; l_round < 4; ++l_round)
    {
        Load(l_cut);
        l_copies.push_back(mp_saver->DamagedCopy());
        EXPECT_EQ(Contents(l_copies.back()), l_cut);
        EXPECT_EQ(l_copies.back().rfind(m_file + ".damaged-", 0), 0u) << l_copies.back();
    }
    // Four copies within a second or two: the oldest has gone, the newest three stay.
    EXPECT_EQ(std::set<std::string>(l_copies.begin(), l_copies.end()).size(), 4u);
    for (int l_index = 0; l_index < 4; ++l_index)
        EXPECT_EQ(::access(l_copies[l_index].c_str(), F_OK) == 0, l_index > 0);
}

TEST_F(DataSaverTest, BackgroundSavesSkipAnUnchangedGraphAndNeverOverlap)
{
    Set("k", "v");
    EXPECT_TRUE(mp_saver->SaveInBackground(&m_a, m_file.c_str()));
    EXPECT_TRUE(mp_saver->WaitForBackgroundSave());
    EXPECT_EQ(ReadFile(), mp_saver->BuildFile(&m_a));
    // Nothing saved changed: no write. A change of an unsaved type does not count either way.
    EXPECT_FALSE(mp_saver->SaveInBackground(&m_a, m_file.c_str()));
    Set("k", "w");
    EXPECT_TRUE(mp_saver->SaveInBackground(&m_a, m_file.c_str()));
    // A save asked for while a write runs waits for it and then writes the newer graph.
    At("note", "n");
    ASSERT_TRUE(mp_saver->Save(&m_a, m_file.c_str()));
    EXPECT_EQ(ReadFile(), mp_saver->BuildFile(&m_a));
    EXPECT_FALSE(mp_saver->SaveInBackground(&m_a, m_file.c_str()));

    // A failed write is told, and the next period tries again although nothing changed.
    std::string const l_lost = m_dir.path().toStdString() + "/missing/.Tidewick";
    At("note", "m");
    EXPECT_TRUE(mp_saver->SaveInBackground(&m_a, l_lost.c_str()));
    EXPECT_FALSE(mp_saver->WaitForBackgroundSave());
    EXPECT_EQ(m_log.filter(QStringLiteral("could not be written")).size(), 1);
    EXPECT_TRUE(mp_saver->SaveInBackground(&m_a, m_file.c_str()));
    EXPECT_TRUE(mp_saver->WaitForBackgroundSave());
    EXPECT_EQ(ReadFile(), mp_saver->BuildFile(&m_a));
}

TEST_F(DataSaverTest, HandlersAreEnteredAndLeftWithTheirLives)
{
    // Each destroys the other when told: whichever runs first, the other must not run after.
    struct Mutual : DataLoadedEventHandler
    {
        void DataLoaded() override { mp_partner->reset(); }
        std::unique_ptr<Mutual>* mp_partner = nullptr;
    };
    mp_saver.reset();
    EXPECT_EQ(dataSaver, nullptr);
    LoadedCounter l_early; // made before the saver, as the forms are
    std::make_unique<LoadedCounter>().reset();
    mp_saver = std::make_unique<DataSaver>();
    EXPECT_EQ(dataSaver, mp_saver.get());
    std::make_unique<LoadedCounter>().reset();
    auto lp_first = std::make_unique<Mutual>(), lp_second = std::make_unique<Mutual>();
    lp_first->mp_partner = &lp_second;
    lp_second->mp_partner = &lp_first;
    mp_saver->EmitDataLoaded();
    EXPECT_EQ(l_early.m_calls, 1);
    EXPECT_NE(lp_first == nullptr, lp_second == nullptr);
    EXPECT_EQ(mp_saver->m_dataLoadedHandlers.size(), 2u);
    // A saver made for another file while this one is the client's stands in front of it for
    // its life only.
    { DataSaver l_nested; EXPECT_EQ(dataSaver, &l_nested); }
    EXPECT_EQ(dataSaver, mp_saver.get());
    // Two such savers may go in the order they came: the client's is global again after both,
    // and a handler made meanwhile is still told of the next load.
    auto lp_older = std::make_unique<DataSaver>(), lp_newer = std::make_unique<DataSaver>();
    LoadedCounter l_meanwhile;
    lp_older.reset();
    EXPECT_EQ(dataSaver, lp_newer.get());
    lp_newer.reset();
    EXPECT_EQ(dataSaver, mp_saver.get());
    mp_saver->EmitDataLoaded();
    EXPECT_EQ(l_meanwhile.m_calls, 1);
}
