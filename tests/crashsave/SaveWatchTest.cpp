#include <gtest/gtest.h>

#include <QTemporaryDir>

#include <cstdio>
#include <fstream>

#include "SaveWatch.h"

namespace
{
constexpr auto s_wait = std::chrono::seconds(5);

void Touch(std::string const& i_path)
{
    std::ofstream(i_path) << "x";
}
} // namespace

// The count of kills that landed during a write rests on this: a temporary file made and not yet
// renamed or removed is an open write, and a leftover removed at the next start is none.
TEST(SaveWatch, TellsAnOpenWriteFromAFinishedOne)
{
    QTemporaryDir l_dir;
    std::string const l_folder = l_dir.path().toStdString();
    std::string const l_file = l_folder + "/.data";
    SaveWatch l_watch(".data");
    ASSERT_TRUE(l_watch.Watch(l_folder));

    Touch(l_file + ".tmp");
    ASSERT_TRUE(l_watch.WaitFor(SaveWatch::Event::WriteStarted, SaveWatch::Clock::now() + s_wait));
    EXPECT_TRUE(l_watch.IsWriteOpen());
    ASSERT_EQ(std::rename((l_file + ".tmp").c_str(), l_file.c_str()), 0);
    ASSERT_TRUE(l_watch.WaitFor(SaveWatch::Event::WriteEnded, SaveWatch::Clock::now() + s_wait));
    EXPECT_FALSE(l_watch.IsWriteOpen());
    EXPECT_EQ(l_watch.WriteTimes().size(), 1u);

    // Killed during the write: the temporary file stays. The next run starts from nothing.
    Touch(l_file + ".tmp");
    l_watch.Drain();
    l_watch.Reset();
    EXPECT_FALSE(l_watch.IsWriteOpen());
    std::remove((l_file + ".tmp").c_str());
    std::ifstream(l_file).get();
    ASSERT_TRUE(l_watch.WaitFor(SaveWatch::Event::LoadEnded, SaveWatch::Clock::now() + s_wait));
    EXPECT_EQ(l_watch.Count(SaveWatch::Event::WriteEnded), 0);
    Touch(l_file + ".tmp");
    l_watch.WatchUntil(SaveWatch::Clock::now() + std::chrono::milliseconds(50));
    EXPECT_TRUE(l_watch.IsWriteOpen());
    EXPECT_EQ(l_watch.Count(SaveWatch::Event::WriteStarted), 1);
}
