#include "stream/NumberText.h"
#include "stream/RichText.h"
#include "stream/ToString.h"

#include <gtest/gtest.h>

#include <climits>

TEST(TextHelpers, NumbersAndBits)
{
    EXPECT_EQ(ToString<int>(INT_MIN), "-2147483648");
    EXPECT_EQ(ToString<unsigned int>(UINT_MAX), "4294967295");
    EXPECT_EQ(ToString<long long>(-1234567890123LL), "-1234567890123");
    EXPECT_TRUE(GetBit(5, 1) && GetBit(5, 3) && GetBit(0x80000000u, 32));
    EXPECT_FALSE(GetBit(5, 2) || GetBit(~0u, 0) || GetBit(~0u, 33));
    EXPECT_EQ(CommafyNumber(0), QString());
    EXPECT_EQ(CommafyNumber(-5), QString());
    EXPECT_EQ(CommafyNumber(999), QStringLiteral("999"));
    EXPECT_EQ(CommafyNumber(1000), QStringLiteral("1,000"));
    EXPECT_EQ(CommafyNumber(1234567), QStringLiteral("1,234,567"));
}

TEST(TextHelpers, FormatSeconds)
{
    EXPECT_EQ(FormatSeconds(0), "0m0s");
    EXPECT_EQ(FormatSeconds(59), "0m59s");
    EXPECT_EQ(FormatSeconds(3600), "1h0m0s");
    EXPECT_EQ(FormatSeconds(3661), "1h1m1s");
    EXPECT_EQ(FormatSeconds(86400), "1d0h0m0s");
    EXPECT_EQ(FormatSeconds(25 * 3600), "1d1h0m0s");
}

TEST(TextHelpers, EscapeAndLinks)
{
    EXPECT_EQ(EscapeHTML(QStringLiteral("<a&b>")), QStringLiteral("&lt;a&amp;b&gt;"));
    EXPECT_EQ(ConvertLinks(QStringLiteral("see http://a.org/x?y=1.")),
              QStringLiteral("see <a href=\"http://a.org/x?y=1\">http://a.org/x?y=1</a>."));
    EXPECT_EQ(ConvertLinks(QStringLiteral("https://b.net, http://c.de")),
              QStringLiteral("<a href=\"https://b.net\">https://b.net</a>, <a href=\"http://c.de\">http://c.de</a>"));
    EXPECT_EQ(ConvertLinks(QStringLiteral("xhttp://a.org HTTP://a.org ftp://a.org")),
              QStringLiteral("xhttp://a.org HTTP://a.org ftp://a.org"));
}
