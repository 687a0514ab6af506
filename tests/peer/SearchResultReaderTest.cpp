#include "WireBytes.h"
#include "peer/PeerSchema.h"
#include "peer/SearchResultReader.h"
#include "server/ServerSchema.h"
#include "store/Data.h"
#include "store/DataSaver.h"
#include "store/Log.h"

#include <gtest/gtest.h>

#include <QStringList>

#include <set>

using Result = SearchResultReader::Result;

// Search result bodies read into the process's one graph, whose types are declared once; what a
// test made is removed after it.
class PeerWireSearchResults : public ::testing::Test
{
protected:
    void SetUp() override
    {
        SetLogSink([this](QString const& i_area, int i_level, QString const& i_text, ItemPtr)
                   { m_log << QStringLiteral("%1|%2|%3").arg(i_area).arg(i_level).arg(i_text); });
    }
    void TearDown() override
    {
        SetLogSink(nullptr);
        for (auto const& l_entry : d.Types())
            l_entry.second->GetItems().Remove();
    }
    static bool DeclareTypes()
    {
        static bool const s_declared = [] { return new DataSaver(), DeclareServerSchema(), DeclarePeerSchema(), true; }();
        return s_declared;
    }

    static ItemPtr Search(std::uint32_t i_ticket) { return d.GetType("search_request")->NewItem(std::to_string(i_ticket)); }
    static WireBytes Head(std::string_view i_user, std::uint32_t i_ticket, std::uint32_t i_count)
    {
        return WireBytes().Str(i_user).U32(i_ticket).U32(i_count);
    }
    // One record of size 1 per path, then a free slot, speed 100, queue 0 and an empty table.
    static WireBytes Answer(std::string_view i_user, std::uint32_t i_ticket, std::vector<std::string> const& i_paths)
    {
        WireBytes l_bytes = Head(i_user, i_ticket, static_cast<std::uint32_t>(i_paths.size()));
        for (std::string const& l_path : i_paths)
            l_bytes.File(l_path, 1);
        return l_bytes.U8(1).U32(100).U32(0).U32(0);
    }
    Result Read(WireBytes const& i_bytes, std::string const& i_user = "bob")
    {
        MemStream l_body = i_bytes.Stream();
        m_results = d.GetType("user")->GetItem("placeholder"); // must come back null unless accepted
        return mp_reader->Read(l_body, i_user, m_results);
    }

    // The files of one answer, as "folder|name|size|bitrate|length|mode".
    static std::set<std::string> Files(ItemPtr i_results)
    {
        std::set<std::string> l_files;
        for (Item* lp_result : i_results.GetItems("search_result"))
        {
            std::string l_file = ItemPtr(lp_result)["search_result_file_folder"].AsString();
            for (char const* l_type : {"search_result_file_name", "search_result_file_size", "bitrate", "length_seconds", "bitrate_mode"})
                l_file += "|" + ItemPtr(lp_result)[l_type].AsString();
            l_files.insert(l_file);
        }
        return l_files;
    }
    // The sender's side of an answer, as "user|free slot|speed|queue".
    static std::string State(ItemPtr i_results)
    {
        std::string l_state = i_results["user"].AsString();
        for (char const* l_type : {"search_results_user_available", "search_results_user_speed", "search_results_uploads_in_queue"})
            l_state += "|" + i_results[l_type].AsString();
        return l_state;
    }
    static std::size_t ResultCount(ItemPtr i_request)
    {
        return i_request.GetItems("search_results").GetItems("search_result").size();
    }
    static std::size_t Count(char const* i_type) { return d.GetType(i_type)->ItemCount(); }

    bool const m_typesDeclared = DeclareTypes();
    SearchResultReader m_reader;
    SearchResultReader* mp_reader = &m_reader;
    ItemPtr m_results;
    QStringList m_log; // "area|level|text"
};

TEST_F(PeerWireSearchResults, WrongSenderAndUnreadableRecordsAreBadUnknownTicketsDropped)
{
    Search(7);
    std::string const l_record = WireBytes().File("\\a\\b.mp3", 1, "mp3", {{0, 128}}).m_bytes;
    for (WireBytes const& l_bytes :
         {Answer("mallory", 7, {"\\a\\b"}), Answer("Bob", 7, {"\\a\\b"}), WireBytes(), WireBytes().Str("bob").U8(7),
          Head("bob", 7, 2).Raw(l_record), Head("bob", 7, 1).Raw(l_record.substr(0, l_record.size() - 1)),
          Head("bob", 7, 131073)})
    {
        EXPECT_EQ(Read(l_bytes), Result::Bad) << l_bytes.m_bytes.size();
        EXPECT_FALSE(m_results);
    }
    // A closed search drops its results before their records are looked at.
    EXPECT_EQ(Read(Answer("bob", 8, {"\\a\\b"})), Result::Dropped);
    EXPECT_EQ(Read(Head("bob", 8, 131073)), Result::Dropped);
    EXPECT_FALSE(m_results);
    for (char const* l_type : {"search_results", "search_result", "search_result_file_name"})
        EXPECT_EQ(Count(l_type), 0u) << l_type;
}

TEST_F(PeerWireSearchResults, FilesAttributesAndTheSendersState)
{
    ItemPtr const l_request = Search(7);
    ASSERT_EQ(Read(Head("bob", 7, 3)
                       .File("\\music\\a\\b.mp3", 5ull << 30, "mp3", {{0, 320}, {1, 215}, {2, 5}, {9, 77}})
                       .File("\\music\\a\\c.mp3", 10, "mp3", {{2, 0}})
                       .File("plain", 1)
                       .U8(1).U32(5000).U32(2).U32(1).U32(4).Str("name")),
              Result::Accepted);
    EXPECT_EQ(l_request.GetItems("search_results"), ItemSet{m_results.Get()});
    EXPECT_EQ(State(m_results), "bob|yes|5000|2");
    // Code 9 is passed over.
    EXPECT_EQ(Files(m_results), (std::set<std::string>{"\\music\\a|b.mp3|5368709120|320|215|vbr",
                                                       "\\music\\a|c.mp3|10|||cbr", "plain|plain|1|||"}));

    // An answer that ends after its records, or within the speed, still counts.
    ASSERT_EQ(Read(Head("carol", 7, 1).File("\\a\\b", 1), "carol"), Result::Accepted);
    EXPECT_EQ(State(m_results), "carol|no|0|0");
    ASSERT_EQ(Read(Head("dave", 7, 1).File("\\a\\c", 1).U8(1).Raw("\x10\x27"), "dave"), Result::Accepted);
    EXPECT_EQ(State(m_results), "dave|yes|0|0");
}

TEST_F(PeerWireSearchResults, AFileIsListedOncePerUserAcrossSearches)
{
    Search(1);
    ItemPtr const l_second = Search(2);
    ASSERT_EQ(Read(Answer("bob", 1, {"\\m\\a"})), Result::Accepted);
    ItemPtr const l_bobsFirst = m_results;
    // The same path again, also twice in one answer, is left out; another user still lists it.
    ASSERT_EQ(Read(Answer("bob", 2, {"\\m\\a", "\\m\\b", "\\m\\b", "\\n\\a"})), Result::Accepted);
    EXPECT_EQ(Files(m_results), (std::set<std::string>{"\\m|b|1|||", "\\n|a|1|||"}));
    ASSERT_EQ(Read(Answer("carol", 2, {"\\m\\a"}), "carol"), Result::Accepted);
    // Nothing new: no answer is kept.
    EXPECT_EQ(Read(Answer("bob", 2, {"\\m\\b", "\\m\\a"})), Result::Dropped);
    EXPECT_FALSE(m_results);
    EXPECT_EQ(Count("search_results"), 3u);
    // Once the earlier answer is gone, the file may come again.
    l_bobsFirst.Remove();
    ASSERT_EQ(Read(Answer("bob", 2, {"\\m\\a"})), Result::Accepted);
    EXPECT_EQ(ResultCount(l_second), 4u);
}

TEST_F(PeerWireSearchResults, ResultsPerSearchStopAtTheBoundWithOneLinePerSearch)
{
    SearchResultReader l_reader(3);
    mp_reader = &l_reader;
    ItemPtr const l_first = Search(1);
    ItemPtr const l_second = Search(2);
    ASSERT_EQ(Read(Answer("bob", 1, {"\\a", "\\b"})), Result::Accepted);
    ASSERT_EQ(Read(Answer("carol", 1, {"\\c"}), "carol"), Result::Accepted);
    EXPECT_TRUE(m_log.isEmpty());
    EXPECT_EQ(Read(Answer("dave", 1, {"\\d", "\\e"}), "dave"), Result::Dropped);
    EXPECT_EQ(Read(Answer("erin", 1, {"\\f"}), "erin"), Result::Dropped);
    EXPECT_EQ(ResultCount(l_first), 3u);
    EXPECT_EQ(m_log, QStringList{QStringLiteral(
                         "Peer Messenger|1|Search 1 holds 3 results already: further results from user dave are passed over")});

    // Each search has a bound and a line of its own.
    ASSERT_EQ(Read(Answer("bob", 2, {"\\g", "\\h", "\\i", "\\j"})), Result::Accepted);
    EXPECT_EQ(ResultCount(l_second), 3u);
    ASSERT_EQ(m_log.size(), 2);
    EXPECT_TRUE(m_log[1].contains(QStringLiteral("Search 2 holds 3 results already: further results from user bob")));

    // Results removed elsewhere make room again.
    d.GetType("user")->HasItem("carol").GetItems("search_results").Remove();
    ASSERT_EQ(Read(Answer("frank", 1, {"\\k", "\\l"}), "frank"), Result::Accepted);
    EXPECT_EQ(ResultCount(l_first), 3u);
    EXPECT_EQ(m_log.size(), 2);
}
