#include "transfers/QueueFixture.h"

TEST_F(QueueTest, TheUploadLimitHoldsOnlyWhenSetAndEnabled)
{
    EXPECT_EQ(GetGlobal("upload_speed_limit"), "0");
    EXPECT_EQ(GetGlobal("upload_speed_limit_enabled"), "no");
    mp_queue->SetUploadSpeedLimit(100);
    EXPECT_EQ(mp_queue->GetUploadSpeed(), 0);
    mp_queue->EnableUploadSpeedLimit(true);
    EXPECT_EQ(GetGlobal("upload_speed_limit"), "100");
    EXPECT_EQ(GetGlobal("upload_speed_limit_enabled"), "yes");
    EXPECT_EQ(mp_queue->GetUploadSpeed(), 100);
    EXPECT_EQ(mp_queue->UploadLimit().Get(), 100);
    for (char const* lp_stored : {"abc", "-5", "0", "99999999999", ""})
    {
        SetGlobal("upload_speed_limit", Value(lp_stored));
        mp_queue->DetermineUploadSpeedLimit();
        EXPECT_EQ(mp_queue->GetUploadSpeed(), 0) << lp_stored;
    }
    mp_queue->SetUploadSpeedLimit(7);
    mp_queue->EnableUploadSpeedLimit(false);
    EXPECT_EQ(mp_queue->GetUploadSpeed(), 0);
}

TEST_F(QueueTest, SavedSettingsWinOverTheDefaults)
{
    mp_queue.reset();
    SetGlobal("upload_speed_limit", Value("50"));
    SetGlobal("upload_speed_limit_enabled", Value("yes"));
    SetGlobal("transfer_order_counter", Value("9"));
    mp_queue = std::make_unique<TransferQueueManager>();
    EXPECT_EQ(GetGlobal("transfer_order_counter"), "9");
    EXPECT_EQ(GetGlobal("download_folder"), m_folder.path().toStdString());
    mp_queue->DataLoaded();
    EXPECT_EQ(mp_queue->GetUploadSpeed(), 50);
}
