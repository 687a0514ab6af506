#include <gtest/gtest.h>

#include <QThread>

#include "ClientProcess.h"

TEST(StartStop, ClientStaysUpAndEndsCleanlyOnSigterm)
{
    ClientProcess l_client;
    ASSERT_TRUE(l_client.Start());
    QThread::msleep(1500);
    ASSERT_TRUE(l_client.IsRunning()) << l_client.Output().toStdString();
    ASSERT_TRUE(l_client.Terminate(10000)) << l_client.Output().toStdString();
    EXPECT_EQ(l_client.ExitCode(), 0) << l_client.Output().toStdString();
}
