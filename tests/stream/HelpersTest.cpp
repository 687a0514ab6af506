#include "stream/NumberText.h"
#include "stream/PathNames.h"
#include "stream/RichText.h"
#include "stream/ToString.h"
#include "stream/md5/md5.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

TEST(PathNames, EitherSeparatorAndTheirRuns)
{
    struct Case { std::string (*mp_function)(std::string); char const* m_path; char const* m_expected; } const l_cases[] = {
        {GetFileName, "a/b/", "b"}, {GetFileName, "music\\album\\song.mp3", "song.mp3"}, {GetFileName, "name", "name"},
        {GetFolder, "a/b/", "a"}, {GetFolder, "music\\album/song.mp3", "music\\album"}, {GetFolder, "name", "name"},
        {GetParentFolder, "\\\\\\", ""}, {GetParentFolder, "a\\b\\c\\\\", "a\\b"}, {GetParentFolder, "a/b/c//", "a/b/c"},
        {GetFileExtension, "a.b.MP3", "mp3"}, {GetFileExtension, "readme", ""}, {GetFileExtension, "ends.", ""},
        {GetAbsoluteFileName, "C:\\\\Music//Song.MP3", "c:\\music/song.mp3"}, {GetAbsoluteFileName, "a//", "a/"},
        {GetAbsoluteFileName, "//Server\\/x\\", "/server\\x"}, {GetAbsoluteFileName, "a\\b", "a\\b"},
        {ReversePathname, "music\\album\\song.mp3", "song.mp3/album/music"}, {ReversePathname, "song.mp3", "song.mp3"},
        {ReversePathname, "\\a//b\\\\", "b/a"},
    };
    for (Case const& l_case : l_cases)
        EXPECT_EQ(l_case.mp_function(l_case.m_path), l_case.m_expected) << "case " << &l_case - l_cases << ": " << l_case.m_path;
}

TEST(TextHelpers, NumbersDurationsAndMarkup)
{
    EXPECT_EQ(ToString<int>(INT_MIN), "-2147483648");
    EXPECT_EQ(ToString<unsigned int>(UINT_MAX), "4294967295");
    EXPECT_EQ(ToString<long long>(-1234567890123LL), "-1234567890123");
    EXPECT_TRUE(GetBit(5, 1) && GetBit(5, 3) && GetBit(0x80000000u, 32));
    EXPECT_FALSE(GetBit(5, 2) || GetBit(~0u, 0) || GetBit(~0u, 33));
    for (auto [l_number, l_text] : {std::pair{0LL, ""}, {-5LL, ""}, {999LL, "999"}, {1000LL, "1,000"}, {1234567LL, "1,234,567"}})
        EXPECT_EQ(CommafyNumber(l_number), QLatin1StringView(l_text)) << l_number;
    for (auto [l_seconds, l_text] :
         {std::pair{0L, "0m0s"}, {59L, "0m59s"}, {3600L, "1h0m0s"}, {3661L, "1h1m1s"}, {86400L, "1d0h0m0s"}, {90000L, "1d1h0m0s"}})
        EXPECT_EQ(FormatSeconds(l_seconds), l_text) << l_seconds;
    EXPECT_EQ(EscapeHTML(QStringLiteral("<a&b>")), QStringLiteral("&lt;a&amp;b&gt;"));
    auto const l_links = [](char const* i_text) { return ConvertLinks(QString::fromUtf8(i_text)).toStdString(); };
    EXPECT_EQ(l_links("see http://a.org/x?y=1."), "see <a href=\"http://a.org/x?y=1\">http://a.org/x?y=1</a>.");
    EXPECT_EQ(l_links("https://b.net, http://c.de"),
              "<a href=\"https://b.net\">https://b.net</a>, <a href=\"http://c.de\">http://c.de</a>");
    EXPECT_EQ(l_links("xhttp://a.org HTTP://a.org ftp://a.org éhttp://a.org"),
              "xhttp://a.org HTTP://a.org ftp://a.org éhttp://a.org");
}

TEST(Md5, DigestsFedInPieces)
{
    auto const l_digest = [](std::string const& i_text, unsigned int i_split)
    {
        auto const* lp_bytes = reinterpret_cast<unsigned char const*>(i_text.data());
        MD5 l_md5;
        l_md5.update(lp_bytes, i_split);
        l_md5.update(lp_bytes + i_split, static_cast<unsigned int>(i_text.size()) - i_split);
        l_md5.finalize();
        l_md5.update(lp_bytes, 1);
        return l_md5.hex_digest();
    };
    EXPECT_EQ(l_digest("", 0), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(l_digest("message digest", 3), "f96b697d7cb7938d525a2f31aaf161d0");
    EXPECT_EQ(l_digest("12345678901234567890123456789012345678901234567890123456789012345678901234567890", 33),
              "57edf4a22be3c955ac49da2e2107b67a");
}
