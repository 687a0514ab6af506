#include "shares/MessagesFixture.h"
#include "shares/SearchParser.h"

namespace
{
using Sets = std::vector<SearchParser::TokenSet>; // included, parts, excluded

Sets Parsed(SearchParser const& i_parser)
{
    return {i_parser.GetIncludedTokenSet(), i_parser.GetIncludedPartTokenSet(), i_parser.GetExcludedTokenSet()};
}

// The body of an answer with records given as wire bytes, alice answering with ticket 7.
std::string Answer(std::uint32_t i_count, std::string const& i_records, std::uint32_t i_speed = 0)
{
    return WireBytes().Str("alice").U32(7).U32(i_count).Raw(i_records).U8(1).U32(i_speed).U32(0).U32(0).m_bytes;
}
} // namespace

TEST(SearchParserTest, ReadsTermsAsTyped)
{
    SearchParser l_parser;
    EXPECT_TRUE(l_parser.SetSearchText(" Mp3\tmusic  -live *Remix -*x"));
    EXPECT_EQ(Parsed(l_parser), (Sets{{"Mp3", "music"}, {"Remix"}, {"*x", "live"}}));
    EXPECT_TRUE(l_parser.SetSearchText("\"a b\" -\"c d\" *\"E f\" \"open end"));
    EXPECT_EQ(Parsed(l_parser), (Sets{{"a b", "open end"}, {"E f"}, {"c d"}}));
    EXPECT_TRUE(l_parser.SetSearchText("\"ab\"cd x x"));
    EXPECT_EQ(Parsed(l_parser), (Sets{{"ab", "cd", "x"}, {}, {}}));
    EXPECT_TRUE(l_parser.SetSearchText("*part"));
    EXPECT_EQ(Parsed(l_parser), (Sets{{}, {"part"}, {}}));
}

TEST(SearchParserTest, RefusesBrokenText)
{
    SearchParser l_parser;
    for (char const* lp_text : {"", " \t ", "-b", "-b -c", "a -", "a *", "a - b", "a \"\"", "a b\"c", "a -\"\"", "\""})
        EXPECT_FALSE(l_parser.SetSearchText(lp_text)) << lp_text;
}

class SearchTest : public SharesTest
{
protected:
    void SetUp() override
    {
        SharesTest::SetUp();
        Share("/music", "public", {"/music/b"});
        Scanned(File("/music/b", "a.mp3", 5), 320, "vbr");
        File("/music/b", "xby.mp3", 6);
        File("/music/b", "Bye.txt", 7);
        File("/secret", "music.mp3", 8);
    }
    // The records found for a search, or "none" when nothing was sent.
    std::string Search(char const* i_text)
    {
        std::size_t const l_before = Sent("bob").size();
        mp_shares->ProcessSearch("bob", 7, i_text);
        auto const l_sent = Sent("bob");
        if (l_sent.size() == l_before)
            return "none";
        EXPECT_EQ(l_sent.size(), l_before + 1);
        EXPECT_EQ(l_sent.back().substr(0, 4), WireBytes().U32(9).m_bytes);
        return l_sent.back().substr(4);
    }
    static std::string A() { return WireBytes().File("\\music\\b\\a.mp3", 5, "mp3", {{0, 320}, {2, 1}}).m_bytes; }
    static std::string X() { return WireBytes().File("\\music\\b\\xby.mp3", 6, "mp3").m_bytes; }
    static std::string B() { return WireBytes().File("\\music\\b\\Bye.txt", 7).m_bytes; }
};

TEST_F(SearchTest, WordsMatchThePathAndTheRestTheName)
{
    SetGlobal("upload_speed", Value(1234));
    EXPECT_EQ(Search("music b"), Answer(3, B() + A() + X(), 1234));
    EXPECT_TRUE(Logged("Search|1|Sending search results to user bob for search string music b"));
    EXPECT_EQ(Search("music -b"), Answer(2, B() + A(), 1234));
    EXPECT_EQ(Search("b *by"), Answer(1, X(), 1234));
    EXPECT_EQ(Search("b *By"), Answer(1, B(), 1234));
    EXPECT_EQ(Search("b -\"y.\""), Answer(2, B() + A(), 1234));

    // Nothing found makes nothing: words are looked up, never made.
    std::size_t l_items = 0;
    for (auto const& l_type : d.Types())
        l_items += l_type.second->ItemCount();
    for (char const* lp_text : {"Music", "music nothing", "*b", "-b", "music -", "\"music b\"", "music -mp3 -txt", "secret"})
        EXPECT_EQ(Search(lp_text), "none") << lp_text;
    for (auto const& l_type : d.Types())
        l_items -= l_type.second->ItemCount();
    EXPECT_EQ(l_items, 0u);
}

TEST_F(SearchTest, TwoHundredAnsweredAndNoMore)
{
    Share("/many", "public", {"/many"});
    for (int l_index = 0; l_index < 200; ++l_index)
        File("/many", "f" + std::to_string(1000 + l_index), 1);
    for (int l_index = 0; l_index < 5; ++l_index)
        File("/many/hidden", "g" + std::to_string(l_index), 1);
    std::string const l_answer = Search("many");
    ASSERT_NE(l_answer, "none");
    EXPECT_EQ(l_answer.substr(0, 17), WireBytes().Str("alice").U32(7).U32(200).m_bytes);
    EXPECT_NE(l_answer.find(WireBytes().File("\\many\\f1000", 1).File("\\many\\f1001", 1).m_bytes), std::string::npos);
    EXPECT_NE(Search("f1199"), "none");

    File("/many", "f9999", 1);
    EXPECT_EQ(Search("many"), "none");
    User("bob").NewItem("unshared");
    EXPECT_EQ(Search("f1199"), "none");
}

// A second word a little commoner than the rarest is walked beside it, a far commoner one is
// looked up in each candidate's words: both ways find the same files, in either order of the
// words, and one answer leaves nothing behind for the next.
TEST_F(SearchTest, CommonAndRareWordsMeetWhicheverWayTheyAreJoined)
{
    Share("/big", "public", {"/big"});
    for (int l_index = 0; l_index < 300; ++l_index)
        File("/big", "f" + std::to_string(l_index) + (l_index % 3 ? "" : " tag") + (l_index < 3 ? " rare" : "") + " common", 1);
    auto const l_count = [](std::string const& i_answer) { return i_answer == "none" ? -1 : int(Fields(QByteArray::fromStdString(i_answer.substr(13, 4))).U32()); };
    for (auto [lp_text, l_expected] : {std::pair{"rare tag", 1}, {"tag rare", 1}, {"rare common", 3}, {"common rare", 3}})
    {
        std::string const l_first = Search(lp_text);
        EXPECT_EQ(l_count(l_first), l_expected) << lp_text;
        EXPECT_EQ(Search(lp_text), l_first) << lp_text;
    }
}
