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
// test made is removed after it. Five results per search are allowed.
class PeerWireSearchResults : public ::testing::Test
{
protected:
    void SetUp() override
    {
        [[maybe_unused]] static bool const s_declared =
            [] { return new DataSaver(), DeclareServerSchema(), DeclarePeerSchema(), true; }();
        SetLogSink([this](QString const& i_area, int i_level, QString const& i_text, ItemPtr)
                   { m_log << QStringLiteral("%1|%2|%3").arg(i_area).arg(i_level).arg(i_text); });
    }
    void TearDown() override
    {
        SetLogSink(nullptr);
        for (auto const& l_entry : d.Types())
            l_entry.second->GetItems().Remove();
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
    Result Read(WireBytes const& i_bytes, std::string const& i_connectionUser = "bob")
    {
        MemStream l_body = i_bytes.Stream();
        m_results = d.GetType("user")->GetItem("placeholder"); // must come back null unless accepted
        return m_reader.Read(l_body, i_connectionUser, m_results);
    }

    // The sender's side of the last answer, then its files, each as its values joined by '|'.
    std::set<std::string> Answered() const
    {
        auto const l_values = [](ItemPtr i_item, std::initializer_list<char const*> i_types)
        {
            std::string l_text;
            for (char const* l_type : i_types)
                l_text += "|" + i_item[l_type].AsString();
            return l_text;
        };
        std::set<std::string> l_lines{l_values(m_results, {"user", "search_results_user_available", "search_results_user_speed",
                                                           "search_results_uploads_in_queue"})};
        for (Item* lp_result : m_results.GetItems("search_result"))
            l_lines.insert(l_values(lp_result, {"search_result_file_folder", "search_result_file_name", "search_result_file_size",
                                                "bitrate", "length_seconds", "bitrate_mode"}));
        return l_lines;
    }
    static auto ResultCount(ItemPtr i_search) { return i_search.GetItems("search_results").GetItems("search_result").size(); }

    SearchResultReader m_reader{5};
    ItemPtr m_results;
    QStringList m_log; // "area|level|text"
};

TEST_F(PeerWireSearchResults, AnswersFromTheWrongUserOrCutShortAreBadFilesAndTheSendersStateAreKept)
{
    Search(7);
    std::string const l_record = WireBytes().File("\\a\\b.mp3", 1, "mp3", {{0, 128}}).m_bytes;
    // The count past the bound comes with as many empty records, so that only the bound stops it.
    for (WireBytes const& l_bad : {Answer("mallory", 7, {"\\a\\b"}), Answer("Bob", 7, {"\\a\\b"}), WireBytes(),
                                   WireBytes().Str("bob").U8(7), Head("bob", 7, 2).Raw(l_record),
                                   Head("bob", 7, 1).Raw(l_record.substr(0, l_record.size() - 1)),
                                   Head("bob", 7, 131073).Raw(std::string(131073, '\0'))})
    {
        EXPECT_EQ(Read(l_bad), Result::Bad) << l_bad.m_bytes.size();
        EXPECT_FALSE(m_results);
    }
    // A closed search drops its results before their records are looked at.
    EXPECT_EQ(Read(Head("bob", 8, 131073)), Result::Dropped);
    EXPECT_FALSE(m_results);
    for (char const* l_type : {"search_results", "search_result", "search_result_file_name"})
        EXPECT_EQ(d.GetType(l_type)->ItemCount(), 0u) << l_type;

    // Attribute code 9 is passed over.
    ASSERT_EQ(Read(Head("bob", 7, 3).File("\\music\\a\\b.mp3", 5ull << 30, "mp3", {{0, 320}, {1, 215}, {2, 5}, {9, 77}})
                       .File("\\music\\a\\c.mp3", 10, "mp3", {{2, 0}}).File("plain", 1)
                       .U8(1).U32(5000).U32(2).U32(1).U32(4).Str("x")),
              Result::Accepted);
    EXPECT_EQ(Answered(), (std::set<std::string>{"|bob|yes|5000|2", "|\\music\\a|b.mp3|5368709120|320|215|vbr",
                                                 "|\\music\\a|c.mp3|10|||cbr", "|plain|plain|1|||"}));
    // An answer that ends after its records still counts.
    ASSERT_EQ(Read(Head("carol", 7, 1).File("\\a\\b", 1), "carol"), Result::Accepted);
    EXPECT_EQ(Answered(), (std::set<std::string>{"|carol|no|0|0", "|\\a|b|1|||"}));
}

TEST_F(PeerWireSearchResults, AFileIsListedOncePerUserAndEachSearchStopsAtItsBoundWithOneLine)
{
    ItemPtr const l_first = Search(1);
    ItemPtr const l_second = Search(2);
    ASSERT_EQ(Read(Answer("bob", 1, {"\\m\\a"})), Result::Accepted);
    ItemPtr const l_bobsFirst = m_results;
    // The same path again, also twice in one answer, is left out; another user still lists it.
    ASSERT_EQ(Read(Answer("bob", 2, {"\\m\\a", "\\m\\b", "\\m\\b", "\\n\\a"})), Result::Accepted);
    EXPECT_EQ(Answered(), (std::set<std::string>{"|bob|yes|100|0", "|\\m|b|1|||", "|\\n|a|1|||"}));
    ASSERT_EQ(Read(Answer("carol", 2, {"\\m\\a"}), "carol"), Result::Accepted);
    // Nothing new: no answer is kept.
    EXPECT_EQ(Read(Answer("bob", 2, {"\\m\\b", "\\m\\a"})), Result::Dropped);
    EXPECT_EQ(d.GetType("search_results")->ItemCount(), 3u);
    // Once the earlier answer is gone, the file may come again; that fills search 2 without a line.
    l_bobsFirst.Remove();
    ASSERT_EQ(Read(Answer("bob", 2, {"\\m\\a"})), Result::Accepted);
    ASSERT_EQ(Read(Answer("dave", 2, {"\\d"}), "dave"), Result::Accepted);
    EXPECT_EQ(ResultCount(l_second), 5u);
    EXPECT_TRUE(m_log.isEmpty());

    // Past the bound answers are dropped, with one line per search.
    EXPECT_EQ(Read(Answer("erin", 2, {"\\e", "\\f"}), "erin"), Result::Dropped);
    EXPECT_EQ(m_log, QStringList{QStringLiteral(
                         "Peer Messenger|1|Search 2 holds 5 results already: further results from user erin are passed over")});
    ASSERT_EQ(Read(Answer("frank", 1, {"\\g", "\\h", "\\i", "\\j", "\\k", "\\l"}), "frank"), Result::Accepted);
    EXPECT_EQ(ResultCount(l_first), 5u);
    EXPECT_TRUE(m_log.last().contains(QStringLiteral("Search 1 holds 5 results already: further results from user frank")));
    // Results removed elsewhere make room again.
    d.GetType("user")->HasItem("carol").GetItems("search_results").Remove();
    ASSERT_EQ(Read(Answer("gus", 2, {"\\k", "\\l"}), "gus"), Result::Accepted);
    EXPECT_EQ(ResultCount(l_second), 5u);
    EXPECT_EQ(m_log.size(), 2);
}
