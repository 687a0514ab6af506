#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <QFile>
#include <QTemporaryDir>

#include "store/Data.h"
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
        for (int l_shift = 0; l_shift < 32; l_shift += 8)
            m_bytes.push_back(static_cast<char>((static_cast<std::uint32_t>(i_value) >> l_shift) & 0xff));
        return *this;
    }
    Bytes& Str(std::string const& i_text) { Int(static_cast<std::int32_t>(i_text.size())).m_bytes += i_text; return *this; }
    Bytes& Record(std::string const& i_name, char i_flag, std::int32_t i_count) { Str(i_name).m_bytes += i_flag; return Int(i_count); }
    std::string m_bytes;
};

std::string Label(Item* ip_item)
{
    return ip_item->GetType()->GetName() + (ip_item->GetType()->IsNull() ? "#" : "=" + ip_item->AsString());
}

// The graph as "item -> its neighbours" lines, independent of addresses and ids.
std::multiset<std::string> Describe(Data& i_data)
{
    std::multiset<std::string> l_lines;
    for (auto const& l_entry : i_data.Types())
        for (Item* lp_item : l_entry.second->GetItems())
        {
            std::vector<std::string> l_neighbours;
            for (auto const& l_connected : lp_item->ConnectedItems())
                for (Item* lp_other : l_connected.second)
                    l_neighbours.push_back(" " + Label(lp_other));
            std::sort(l_neighbours.begin(), l_neighbours.end());
            std::string l_line = Label(lp_item) + " ->";
            for (std::string const& l_neighbour : l_neighbours)
                l_line += l_neighbour;
            l_lines.insert(l_line);
        }
    return l_lines;
}

std::string ReadFile(std::string const& i_name)
{
    QFile l_file(QString::fromStdString(i_name));
    return l_file.open(QIODevice::ReadOnly) ? l_file.readAll().toStdString() : std::string();
}
} // namespace

class DataSaverTest : public ::testing::Test
{
protected:
    DataSaverTest() : mp_saver(std::make_unique<DataSaver>()), m_file(m_dir.path().toStdString() + "/.Tidewick")
    {
        mp_saver->m_savedTypes = {"global", "in_user_list", "is_scanned", "note"};
        mp_saver->AddSavedByConnectionType("global_value", "global");
        mp_saver->AddSavedByConnectionType("user", "in_user_list");
        mp_saver->AddSavedByConnectionType("shared_file", "is_scanned");
        mp_saver->AddSavedByConnectionType("shared_file_name", "shared_file");
        mp_saver->AddSavedByConnectionType("note", "global"); // saved whole all the same
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
        io_data.NewType("peer_socket", true, false, false)->RelateToType(lp_user, Many, One, false);
        Type* lp_file = io_data.NewType("shared_file", false, true, true);
        lp_file->RelateToType(io_data.NewType("is_scanned", false, true, true), Many, One, false);
        lp_file->RelateToType(io_data.NewType("shared_file_name", false, false, true), Many, One, false);
        io_data.NewType("note", true, false, true);
    }

    ItemPtr At(Data& io_data, char const* i_type, char const* i_value) { return (*io_data.GetType(i_type))[i_value]; }
    ItemPtr Set(char const* i_key, char const* i_value, char const* i_keyType = "global")
    {
        return At(m_a, i_keyType, i_key) += At(m_a, "global_value", i_value);
    }
    ItemPtr AddFile(char const* i_name, bool i_scanned)
    {
        ItemPtr l_file = m_a.GetType("shared_file")->NewItem();
        if (i_scanned)
            l_file.NewItem("is_scanned");
        return l_file += At(m_a, "shared_file_name", i_name);
    }

    // Loads into a fresh graph; answers how often DataLoaded ran.
    int Load(Data& io_data, std::string const* ip_bytes = nullptr)
    {
        Declare(io_data);
        if (ip_bytes)
        {
            QFile l_file(QString::fromStdString(m_file));
            EXPECT_TRUE(l_file.open(QIODevice::WriteOnly | QIODevice::Truncate));
            l_file.write(ip_bytes->data(), static_cast<qint64>(ip_bytes->size()));
        }
        LoadedCounter l_counter;
        mp_saver->Load(&io_data, m_file.c_str());
        return l_counter.m_calls;
    }

    std::unique_ptr<DataSaver> mp_saver;
    QTemporaryDir m_dir;
    std::string m_file;
    QStringList m_log;
    Data m_a;
};

TEST_F(DataSaverTest, RoundTripKeepsSavedItemsAndConnectionsOnly)
{
    Set("username", "alice");
    Set("port", "2235");
    Set("empty", "");
    Set("old_port", "2235", "vglobal");
    Set("session", "temp", "vglobal");
    At(m_a, "user", "bob").NewItem("in_user_list");
    At(m_a, "user", "bob").NewItem("is_online");
    At(m_a, "user", "carol").NewItem("in_user_list");
    At(m_a, "user", "dave").NewItem("is_online");
    m_a.GetType("peer_socket")->NewItem(Value("12345"))->Connect(At(m_a, "user", "bob"));
    for (char const* l_name : {"a.mp3", "b.mp3", "c.mp3"})
        AddFile(l_name, true);
    AddFile("unscanned.mp3", false);
    At(m_a, "note", "loose");
    ASSERT_TRUE(mp_saver->Save(&m_a, m_file.c_str()));

    Data l_b;
    EXPECT_EQ(Load(l_b), 1);
    std::multiset<std::string> l_expected = {
        "global=username -> global_value=alice", "global_value=alice -> global=username",
        "global=port -> global_value=2235", "global_value=2235 -> global=port",
        "global=empty -> global_value=", "global_value= -> global=empty",
        "user=bob -> in_user_list#", "in_user_list# -> user=bob",
        "user=carol -> in_user_list#", "in_user_list# -> user=carol",
        "is_scanned# -> shared_file# shared_file# shared_file#",
        "shared_file# -> is_scanned# shared_file_name=a.mp3", "shared_file_name=a.mp3 -> shared_file#",
        "shared_file# -> is_scanned# shared_file_name=b.mp3", "shared_file_name=b.mp3 -> shared_file#",
        "shared_file# -> is_scanned# shared_file_name=c.mp3", "shared_file_name=c.mp3 -> shared_file#",
        "shared_file_name=unscanned.mp3 ->", // held by an unsaved shared_file, so saved alone
        "note=loose ->",
    };
    EXPECT_EQ(Describe(l_b), l_expected);
    EXPECT_TRUE(m_log.isEmpty());

    // Once more: the same, less the name that nothing holds any longer.
    ASSERT_TRUE(mp_saver->Save(&l_b, m_file.c_str()));
    Data l_c;
    Load(l_c);
    l_expected.erase("shared_file_name=unscanned.mp3 ->");
    EXPECT_EQ(Describe(l_c), l_expected);
}

TEST_F(DataSaverTest, FileLayoutIsExact)
{
    Set("k", "v");
    AddFile("", true);
    ASSERT_TRUE(mp_saver->Save(&m_a, m_file.c_str()));
    Bytes l_expected;
    l_expected.Int(8).Record("global", 0, 1).Int(1).Str("k").Record("global_value", 0, 1).Int(2).Str("v");
    l_expected.Record("in_user_list", 1, 0).Record("is_scanned", 1, 1).Int(3).Record("note", 0, 0);
    l_expected.Record("shared_file", 1, 1).Int(4).Record("shared_file_name", 0, 1).Int(5).Int(0);
    l_expected.Record("user", 0, 0).Int(3).Int(1).Int(2).Int(3).Int(4).Int(4).Int(5);
    EXPECT_EQ(ReadFile(m_file), l_expected.m_bytes);
}

TEST_F(DataSaverTest, RetiredUnknownAndMismatchedTypesAreReadPastInStep)
{
    mp_saver->m_savedTypes.erase("in_user_list");
    Bytes l_file;
    l_file.Int(4).Record("global", 1, 2).Int(1).Int(2); // ids only, as if null
    l_file.Record("in_user_list", 1, 1).Int(3).Record("retired_type", 0, 1).Int(4).Str("x");
    l_file.Record("user", 0, 1).Int(5).Str(std::string("bob\0junk", 8));
    l_file.Int(3).Int(1).Int(5).Int(3).Int(5).Int(4).Int(5);
    Data l_b;
    EXPECT_EQ(Load(l_b, &l_file.m_bytes), 1);
    EXPECT_EQ(Describe(l_b), (std::multiset<std::string>{"user=bob ->"}));
    EXPECT_EQ(m_log, QStringList{QStringLiteral("The data file holds items of the type global of the wrong kind; they were skipped")});
}

TEST_F(DataSaverTest, TruncatedRandomAndHostileFilesKeepWhatCameBefore)
{
    Set("k", "value");
    AddFile("name.mp3", true);
    ASSERT_TRUE(mp_saver->Save(&m_a, m_file.c_str()));
    std::string const l_sample = ReadFile(m_file);
    std::size_t l_previous = 0;
    for (std::size_t l_length = 0; l_length < l_sample.size(); ++l_length)
    {
        m_log.clear();
        Data l_b;
        std::string const l_bytes = l_sample.substr(0, l_length);
        ASSERT_EQ(Load(l_b, &l_bytes), 1) << l_length;
        EXPECT_EQ(m_log.filter(QStringLiteral("damaged after")).size(), 1) << l_length;
        std::size_t const l_items = Describe(l_b).size();
        EXPECT_GE(l_items, l_previous) << l_length;
        l_previous = l_items;
        if (l_length == l_sample.size() - 8) // only the last pair is missing
        {
            EXPECT_TRUE(l_b.GetType("global")->HasItem("k")["global_value"]);
        }
    }
    EXPECT_EQ(l_previous, 5u);

    std::mt19937 l_random(7);
    for (int l_round = 0; l_round < 400; ++l_round)
    {
        std::string l_bytes = l_round % 2 ? l_sample : std::string(l_random() % 120, '\0');
        for (std::size_t l_flip = 0; l_flip < (l_round % 2 ? 1 + l_random() % 3 : l_bytes.size()); ++l_flip)
            l_bytes[l_random() % l_bytes.size()] = static_cast<char>(l_random());
        Data l_b;
        ASSERT_EQ(Load(l_b, &l_bytes), 1) << l_round;
    }

    // What each hostile file keeps: items, and whether global k holds a value.
    std::int32_t const l_huge = 0x7fffffff;
    Bytes l_keyAndValue = Bytes().Int(2).Record("global", 0, 1).Int(1).Str("k").Record("global_value", 0, 1).Int(2).Str("v");
    Bytes l_ids = Bytes().Int(3).Record("global", 0, 4).Int(0).Str("zero").Int(-1).Str("minus").Int(l_huge).Str("huge");
    l_ids.Int(1).Str("k").Record("global_value", 0, 2).Int(1).Str("repeated").Int(2).Str("v").Record("note", 0, 1).Int(3).Str("n");
    l_ids.Int(5).Int(1).Int(3).Int(0).Int(2).Int(2).Int(l_huge).Int(-7).Int(1).Int(1).Int(2);
    struct Case
    {
        Bytes m_bytes;
        std::size_t m_items;
        bool m_connected;
    } const l_cases[] = {
        {Bytes().Int(l_huge), 0, false},
        {Bytes().Int(-1).Record("note", 0, 0).Int(0), 0, false},
        {Bytes().Int(1).Int(l_huge).Int(0).Int(0), 0, false},
        {Bytes().Int(1).Int(-5).Int(0).Int(0), 0, false},
        {Bytes().Int(2).Record("note", 0, 1).Int(1).Str("n").Record("global", 7, 0), 1, false},
        {Bytes().Int(1).Record("global", 0, l_huge).Int(1).Str("k"), 1, false},
        {Bytes().Int(1).Record("global", 0, 2).Int(1).Str("k").Int(2).Int(l_huge), 1, false},
        {Bytes(l_keyAndValue).Int(l_huge).Int(1).Int(2), 2, true},
        {Bytes(l_keyAndValue).Int(-3).Int(1).Int(2), 2, false},
        {l_ids, 3, true}, // bad, repeated and unrelated ids skipped one by one
    };
    for (Case const& l_case : l_cases)
    {
        m_log.clear();
        Data l_b;
        ASSERT_EQ(Load(l_b, &l_case.m_bytes.m_bytes), 1) << &l_case - l_cases;
        EXPECT_EQ(Describe(l_b).size(), l_case.m_items) << &l_case - l_cases;
        EXPECT_EQ(bool(l_b.GetType("global")->HasItem("k")["global_value"]), l_case.m_connected) << &l_case - l_cases;
        EXPECT_FALSE(m_log.isEmpty()) << &l_case - l_cases;
    }
}

TEST_F(DataSaverTest, ListenersThatRemoveLoadedItemsDoNotBreakTheLoad)
{
    struct Remover : DataHandler
    {
        explicit Remover(Data& io_data) : mr_data(io_data)
        {
            io_data.GetType("global")->m_itemAddedEvent.Add(MakeHandler(&Remover::OnGlobal));
            io_data.GetType("global_value")->m_itemAddedEvent.Add(MakeHandler(&Remover::OnValue));
        }
        void OnGlobal(Item* ip_item)
        {
            if (ip_item->AsString() == "doomed")
                ip_item->Remove();
        }
        void OnValue(Item*)
        {
            if (ItemPtr l_key = mr_data.GetType("global")->HasItem("k"))
                l_key.Remove();
        }
        Data& mr_data;
    };
    Bytes l_file;
    l_file.Int(2).Record("global", 0, 2).Int(1).Str("doomed").Int(2).Str("k").Record("global_value", 0, 1).Int(3).Str("v");
    l_file.Int(2).Int(1).Int(3).Int(2).Int(3);
    Data l_b;
    Declare(l_b);
    Remover l_remover(l_b);
    QFile l_out(QString::fromStdString(m_file));
    ASSERT_TRUE(l_out.open(QIODevice::WriteOnly));
    l_out.write(l_file.m_bytes.data(), static_cast<qint64>(l_file.m_bytes.size()));
    l_out.close();
    mp_saver->Load(&l_b, m_file.c_str());
    EXPECT_EQ(Describe(l_b), (std::multiset<std::string>{"global_value=v ->"}));
}

TEST_F(DataSaverTest, SaveReplacesTheFileWholeAndPrivately)
{
    Set("k", "v");
    ASSERT_TRUE(QFile(QString::fromStdString(m_file)).open(QIODevice::WriteOnly));
    ASSERT_EQ(::chmod(m_file.c_str(), 0644), 0);
    mode_t const l_umask = ::umask(0);
    bool const l_saved = mp_saver->Save(&m_a, m_file.c_str());
    ::umask(l_umask);
    ASSERT_TRUE(l_saved);
    struct stat l_stat = {};
    ASSERT_EQ(::stat(m_file.c_str(), &l_stat), 0);
    EXPECT_EQ(l_stat.st_mode & 07777, 0600u);

    std::string const l_before = ReadFile(m_file);
    std::string const l_temp = m_file + ".tmp";
    ASSERT_EQ(::mkdir(l_temp.c_str(), 0700), 0);
    At(m_a, "note", "new");
    EXPECT_FALSE(mp_saver->Save(&m_a, m_file.c_str()));
    EXPECT_EQ(ReadFile(m_file), l_before);
    EXPECT_FALSE(mp_saver->Save(&m_a, (m_dir.path().toStdString() + "/missing/.Tidewick").c_str()));
    ASSERT_EQ(::rmdir(l_temp.c_str()), 0);
    EXPECT_TRUE(mp_saver->Save(&m_a, m_file.c_str()));
    EXPECT_GT(ReadFile(m_file).size(), l_before.size());
    EXPECT_NE(::access(l_temp.c_str(), F_OK), 0);
}

TEST_F(DataSaverTest, MissingFolderOrOversizedFileLoadsNothingButStillTells)
{
    Data l_b;
    EXPECT_EQ(Load(l_b), 1);
    ASSERT_EQ(::mkdir(m_file.c_str(), 0700), 0);
    Data l_c;
    EXPECT_EQ(Load(l_c), 1);
    ASSERT_EQ(::rmdir(m_file.c_str()), 0);
    std::string const l_note = Bytes().Int(1).Record("note", 0, 1).Int(1).Str("n").Int(0).m_bytes;
    Data l_d;
    Load(l_d, &l_note);
    ASSERT_EQ(::truncate(m_file.c_str(), DataSaver::s_maxFileSize + 1), 0); // sparse: costs no disk
    Data l_e;
    EXPECT_EQ(Load(l_e), 1);
    EXPECT_EQ(Describe(l_b).size() + Describe(l_c).size() + Describe(l_e).size(), 0u);
    EXPECT_EQ(Describe(l_d).size(), 1u);
    EXPECT_EQ(m_log.size(), 2); // not a plain file; too large
}

TEST_F(DataSaverTest, HandlersAreEnteredAndLeftWithTheirLives)
{
    // Each destroys the other when told; whichever runs first, the other must not run after.
    struct Mutual : DataLoadedEventHandler
    {
        void DataLoaded() override
        {
            ++*mp_calls;
            mp_partner->reset();
        }
        int* mp_calls = nullptr;
        std::unique_ptr<Mutual>* mp_partner = nullptr;
    };
    mp_saver.reset();
    EXPECT_EQ(dataSaver, nullptr);
    LoadedCounter l_early; // made before the saver, as the forms are
    mp_saver = std::make_unique<DataSaver>();
    EXPECT_EQ(dataSaver, mp_saver.get());
    std::make_unique<LoadedCounter>().reset();
    int l_calls = 0;
    auto lp_first = std::make_unique<Mutual>();
    auto lp_second = std::make_unique<Mutual>();
    lp_first->mp_calls = lp_second->mp_calls = &l_calls;
    lp_first->mp_partner = &lp_second;
    lp_second->mp_partner = &lp_first;
    mp_saver->EmitDataLoaded();
    EXPECT_EQ(l_early.m_calls, 1);
    EXPECT_EQ(l_calls, 1);
    EXPECT_EQ(mp_saver->m_dataLoadedHandlers.size(), 2u);
}
