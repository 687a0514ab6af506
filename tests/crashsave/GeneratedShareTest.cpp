#include <gtest/gtest.h>

#include <QTemporaryDir>

#include <algorithm>
#include <filesystem>

#include "GeneratedShare.h"

namespace
{
using Files = std::vector<SavedGraph::ScannedFile>;

class GeneratedShareTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_share.Create(300, m_seed));
        m_before = m_seed.ScannedFiles();
        ASSERT_EQ(m_before.size(), 300u);
        ASSERT_TRUE(m_share.Change(10, 10));
        m_after = m_share.OnDisk();
    }
    bool Passes(Files i_files) { return m_share.Check(i_files).empty(); }
    // The first file of the list that is not in the other one.
    static SavedGraph::ScannedFile Missing(Files const& i_from, Files const& i_other)
    {
        return *std::find_if(i_from.begin(), i_from.end(), [&](auto const& i_file)
                             { return std::find(i_other.begin(), i_other.end(), i_file) == i_other.end(); });
    }

    QTemporaryDir m_dir;
    std::mt19937 m_random{7};
    GeneratedShare m_share{m_dir.path().toStdString() + "/share", m_random};
    SavedGraph m_seed;
    Files m_before;
    Files m_after;
};
} // namespace

TEST_F(GeneratedShareTest, TheDiskHoldsTheSeededFilesAndTheChanges)
{
    EXPECT_EQ(m_after.size(), 300u);
    std::size_t l_onDisk = 0;
    for (auto const& l_entry : std::filesystem::recursive_directory_iterator(m_dir.path().toStdString()))
        l_onDisk += l_entry.is_regular_file();
    EXPECT_EQ(l_onDisk, 300u);
    SavedGraph::ScannedFile const l_new = Missing(m_after, m_before);
    EXPECT_EQ(std::filesystem::file_size(l_new.m_folder + "/" + l_new.m_name), std::stoull(l_new.m_size));
    EXPECT_FALSE(std::filesystem::exists(Missing(m_before, m_after).m_folder + "/" + Missing(m_before, m_after).m_name));
}

TEST_F(GeneratedShareTest, EachFileMayBeAsBeforeOrAsOnTheDisk)
{
    EXPECT_TRUE(Passes(m_before));
    EXPECT_TRUE(Passes(m_after));
    // A save in the middle of the rescan: one file gone, one new one scanned.
    Files l_midway = m_before;
    l_midway.erase(std::find(l_midway.begin(), l_midway.end(), Missing(m_before, m_after)));
    l_midway.push_back(Missing(m_after, m_before));
    EXPECT_TRUE(Passes(l_midway));
}

TEST_F(GeneratedShareTest, ALostChangedOrDoubledFileFails)
{
    // A file that was saved and is still on the disk.
    Files l_lost = m_after;
    l_lost.erase(std::find_if(l_lost.begin(), l_lost.end(), [&](auto const& i_file)
                              { return std::find(m_before.begin(), m_before.end(), i_file) != m_before.end(); }));
    EXPECT_FALSE(Passes(l_lost));
    Files l_changed = m_before;
    l_changed[5].m_bitrate += "0";
    EXPECT_FALSE(Passes(l_changed));
    Files l_doubled = m_before;
    l_doubled.push_back(m_before[0]);
    EXPECT_FALSE(Passes(l_doubled));
    Files l_invented = m_before;
    l_invented.push_back(SavedGraph::ScannedFile{m_before[0].m_folder, "Invented.mp3", "1", "1", "mono", "0", "cbr", "128"});
    EXPECT_FALSE(Passes(l_invented));
}

TEST_F(GeneratedShareTest, TheFilesReadBackBecomeThePreviousState)
{
    Files l_after = m_after;
    m_share.Check(l_after);
    EXPECT_EQ(m_share.Accept(std::move(l_after)), std::make_pair(10, 10));
    // A file removed before is no longer allowed back.
    EXPECT_FALSE(Passes(m_before));
    EXPECT_TRUE(Passes(m_after));
}
