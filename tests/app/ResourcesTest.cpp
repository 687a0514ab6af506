#include "AppTest.h"

// Every flag a room may show is in the resources, by code, as a 16 x 11 image: the codes of the
// system's set, the European flag under "eu", and the one drawn for "je".
TEST(Resources, EveryFlagLoadsAtItsSize)
{
    QStringList const l_flags = QDir(QStringLiteral(":/resources/flags")).entryList();
    EXPECT_EQ(l_flags.size(), 248);
    for (char const* l_code : {"eu", "je", "us", "catalonia", "fam"})
        EXPECT_TRUE(l_flags.contains(QString::fromLatin1(l_code) + QStringLiteral(".png"))) << l_code;
    for (QString const& l_flag : l_flags)
        EXPECT_EQ(QImage(QStringLiteral(":/resources/flags/") + l_flag).size(), QSize(16, 11)) << l_flag.toStdString();
    EXPECT_TRUE(QImage(QStringLiteral(":/resources/flags/zz.png")).isNull());
}

// Every icon comes with a drawing at twice its size, which a screen scaled by two shows instead
// of an enlargement.
TEST(Resources, EveryIconHasAnImageAtTwiceItsSize)
{
    QStringList const l_icons = QDir(QStringLiteral(":/icons")).entryList();
    int l_pairs = 0;
    for (QString const& l_icon : l_icons)
    {
        if (l_icon.endsWith(QStringLiteral("@2x")))
            continue;
        QImage const l_small(QStringLiteral(":/icons/") + l_icon);
        QImage const l_large(QStringLiteral(":/icons/") + l_icon + QStringLiteral("@2x"));
        ASSERT_FALSE(l_small.isNull()) << l_icon.toStdString();
        EXPECT_EQ(l_large.size(), 2 * l_small.size()) << l_icon.toStdString();
        ++l_pairs;
    }
    EXPECT_EQ(l_pairs, 11);
    EXPECT_EQ(l_icons.size(), 2 * l_pairs);
}
