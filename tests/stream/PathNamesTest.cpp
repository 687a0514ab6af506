#include "stream/PathNames.h"

#include <gtest/gtest.h>

TEST(PathNames, FileNameFolderAndParent)
{
    EXPECT_EQ(GetFileName("a/b/"), "b");
    EXPECT_EQ(GetFileName("music\\album\\song.mp3"), "song.mp3");
    EXPECT_EQ(GetFileName("name"), "name");
    EXPECT_EQ(GetFolder("a/b/"), "a");
    EXPECT_EQ(GetFolder("music\\album/song.mp3"), "music\\album");
    EXPECT_EQ(GetFolder("name"), "name");
    EXPECT_EQ(GetParentFolder("\\\\\\"), "");
    EXPECT_EQ(GetParentFolder("a\\b\\c\\\\"), "a\\b");
    EXPECT_EQ(GetParentFolder("a/b/c//"), "a/b/c");
}

TEST(PathNames, FileExtension)
{
    EXPECT_EQ(GetFileExtension("a.b.MP3"), "mp3");
    EXPECT_EQ(GetFileExtension("readme"), "");
    EXPECT_EQ(GetFileExtension("ends."), "");
}

TEST(PathNames, AbsoluteFileName)
{
    EXPECT_EQ(GetAbsoluteFileName("C:\\\\Music//Song.MP3"), "c:\\music/song.mp3");
    EXPECT_EQ(GetAbsoluteFileName("a//"), "a/");
    EXPECT_EQ(GetAbsoluteFileName("//Server\\/x\\"), "/server\\x");
    EXPECT_NE(GetAbsoluteFileName("a/b"), GetAbsoluteFileName("a\\b"));
}

TEST(PathNames, ReversePathname)
{
    EXPECT_EQ(ReversePathname("music\\album\\song.mp3"), "song.mp3/album/music");
    EXPECT_EQ(ReversePathname("song.mp3"), "song.mp3");
    EXPECT_EQ(ReversePathname("\\a//b\\\\"), "b/a");
}
