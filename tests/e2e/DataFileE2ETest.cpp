#include <gtest/gtest.h>

#include <QFile>
#include <QThread>

#include <sys/stat.h>

#include "ClientProcess.h"
#include "DataFileImage.h"

namespace
{
void WriteFile(QString const& i_path, QByteArray const& i_bytes)
{
    QFile l_file(i_path);
    ASSERT_TRUE(l_file.open(QIODevice::WriteOnly));
    l_file.write(i_bytes);
}

QByteArray ReadFile(QString const& i_path)
{
    QFile l_file(i_path);
    return l_file.open(QIODevice::ReadOnly) ? l_file.readAll() : QByteArray();
}

// Runs the client over the prepared home folder for a moment and stops it with SIGTERM.
void RunAndStop(ClientProcess& io_client)
{
    ASSERT_TRUE(io_client.Start());
    QThread::msleep(1500);
    ASSERT_TRUE(io_client.IsRunning()) << io_client.Output().toStdString();
    ASSERT_TRUE(io_client.Terminate(10000)) << io_client.Output().toStdString();
    ASSERT_EQ(io_client.ExitCode(), 0) << io_client.Output().toStdString();
}
} // namespace

TEST(DataFileEndToEnd, SavedSettingsSurviveAndRunOnlyValuesDoNot)
{
    ClientProcess l_client;
    DataFileImage l_seed;
    l_seed.m_types.push_back({"global", false, {{1, "username"}, {2, "password"}, {3, "listening_port"}}});
    l_seed.m_types.push_back({"global_value", false, {{4, "e2e-user"}, {5, "s3cret"}, {6, "2299"}, {7, "600"}}});
    l_seed.m_types.push_back({"vglobal", false, {{8, "wish_list_wait"}}});
    l_seed.m_pairs = {{1, 4}, {2, 5}, {3, 6}, {7, 8}};
    WriteFile(l_client.DataFile(), l_seed.Encode());
    ::chmod(l_client.DataFile().toLocal8Bit().constData(), 0644);

    RunAndStop(l_client);

    std::optional<DataFileImage> l_saved = DataFileImage::Decode(ReadFile(l_client.DataFile()));
    ASSERT_TRUE(l_saved.has_value());
    EXPECT_EQ(l_saved->Setting("global", "username"), "e2e-user");
    EXPECT_EQ(l_saved->Setting("global", "password"), "s3cret");
    EXPECT_EQ(l_saved->Setting("global", "listening_port"), "2299");
    EXPECT_EQ(l_saved->Find("vglobal"), nullptr);
    for (auto const& l_value : l_saved->Find("global_value")->m_items)
        EXPECT_NE(l_value.second, "600") << "a value held only by a run-only key was saved";

    struct stat l_stat = {};
    ASSERT_EQ(::stat(l_client.DataFile().toLocal8Bit().constData(), &l_stat), 0);
    EXPECT_EQ(l_stat.st_mode & 0777, 0600u);
}

TEST(DataFileEndToEnd, GarbageFileStartsWithDefaultsAndExitsCleanly)
{
    ClientProcess l_client;
    QByteArray l_garbage;
    for (int l_n = 0; l_n < 4096; ++l_n)
        l_garbage.append(static_cast<char>((l_n * 7919 + 13) & 0xff));
    WriteFile(l_client.DataFile(), l_garbage);

    RunAndStop(l_client);

    std::optional<DataFileImage> l_saved = DataFileImage::Decode(ReadFile(l_client.DataFile()));
    ASSERT_TRUE(l_saved.has_value()) << "the client did not write a sound file over the garbage";
    EXPECT_FALSE(l_saved->Setting("global", "username").has_value());
}
