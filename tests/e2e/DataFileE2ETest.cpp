#include <gtest/gtest.h>

#include <QFile>
#include <QThread>

#include <sys/stat.h>
#include <unistd.h>

#include "ClientProcess.h"
#include "support/FreePort.h"
#include "support/SavedGraph.h"

namespace
{
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
    std::string const l_port = std::to_string(FreePort());
    {
        SavedGraph l_seed(true);
        l_seed.Set("global", "username", "e2e-user");
        l_seed.Set("global", "password", "s3cret");
        l_seed.Set("global", "listening_port", l_port);
        l_seed.Set("global", "use_upnp", "no");
        l_seed.Set("vglobal", "wish_list_wait", "98761");
        ASSERT_TRUE(l_seed.Save(l_client.DataFile()));
    }
    {
        QFile l_seeded(l_client.DataFile());
        ASSERT_TRUE(l_seeded.open(QIODevice::ReadOnly));
        ASSERT_TRUE(l_seeded.readAll().contains("wish_list_wait"));
    }
    ::chmod(l_client.DataFile().toLocal8Bit().constData(), 0644);

    RunAndStop(l_client);

    SavedGraph l_saved;
    l_saved.Load(l_client.DataFile());
    EXPECT_EQ(l_saved.Setting("global", "username"), "e2e-user");
    EXPECT_EQ(l_saved.Setting("global", "password"), "s3cret");
    EXPECT_EQ(l_saved.Setting("global", "listening_port"), l_port);
    QFile l_file(l_client.DataFile());
    ASSERT_TRUE(l_file.open(QIODevice::ReadOnly));
    QByteArray const l_bytes = l_file.readAll();
    EXPECT_FALSE(l_bytes.contains("vglobal"));
    EXPECT_FALSE(l_bytes.contains("98761"));

    struct stat l_stat = {};
    ASSERT_EQ(::stat(l_client.DataFile().toLocal8Bit().constData(), &l_stat), 0);
    EXPECT_EQ(l_stat.st_mode & 0777, 0600u);
}

TEST(DataFileEndToEnd, GarbageFileStartsWithDefaultsAndExitsCleanly)
{
    // The defaults include UPnP on, so the client looks for a gateway: it does so where nothing
    // can answer.
    if (::geteuid() != 0)
        GTEST_SKIP() << "needs root for a network namespace of its own";
    ClientProcess l_client;
    l_client.IsolateNetwork();
    QByteArray l_garbage;
    for (int l_n = 0; l_n < 4096; ++l_n)
        l_garbage.append(static_cast<char>((l_n * 7919 + 13) & 0xff));
    QFile l_file(l_client.DataFile());
    ASSERT_TRUE(l_file.open(QIODevice::WriteOnly));
    l_file.write(l_garbage);
    l_file.close();

    RunAndStop(l_client);

    SavedGraph l_saved;
    l_saved.Load(l_client.DataFile());
    EXPECT_FALSE(l_saved.Setting("global", "username").has_value());
    EXPECT_EQ(l_saved.Setting("global", "use_upnp"), "yes"); // the default, written over the garbage
}
