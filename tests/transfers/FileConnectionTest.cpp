#include "transfers/QueueFixture.h"


TEST_F(QueueTest, RequestsAreAnsweredByTheEntrysStatus)
{
    BobOnline();
    ItemPtr const l_entry = Add("music\\one", "a.mp3", 10);
    mp_bob->Next();
    mp_bob->Next();
    mp_bob->Send(Body(40).U32(0).U32(5).Str("music\\one\\a.mp3"));
    EXPECT_TRUE(mp_bob->NothingOf(41));
    EXPECT_EQ(Offer(6, "music\\one\\b.mp3", 10), Body(6).U8(0).Str("Cancelled").Bytes());
    for (char const* lp_status : {"denied", "aborted", "local error", "queued"})
    {
        mp_queue->SetDownloadEntryStatus(l_entry, lp_status);
        EXPECT_EQ(Offer(7, "music\\one\\a.mp3", 10), Body(7).U8(1).Bytes()) << lp_status;
    }
    EXPECT_EQ(l_entry["remote_transfer_req"].AsString(), "7");
    mp_queue->SetDownloadEntryStatus(l_entry, "complete");
    EXPECT_EQ(Offer(8, "music\\one\\a.mp3", 10), Body(8).U8(0).Str("Complete").Bytes());
    EXPECT_EQ(Count("remote_transfer_req"), 1u);
}

TEST_F(QueueTest, AWholeFileLandsInCompleteAndTheDownloadingFolderGoes)
{
    BobOnline();
    ItemPtr const l_entry = Add("music\\one", "a.mp3", 20000);
    ASSERT_FALSE(Offer(9, "music\\one\\a.mp3", 20000).isEmpty());
    quint64 l_offset = 1;
    std::unique_ptr<PeerLink> lp_file = Connect(9, &l_offset);
    EXPECT_EQ(l_offset, 0u);
    QSignalSpy l_progress(mp_queue.get(), &TransferQueueManager::DownloadProgressed);
    lp_file->SendRaw(Content(20000));
    ASSERT_TRUE(WaitFor([&] { return Status(l_entry) == "complete"; }));
    EXPECT_EQ(Read(QStringLiteral("complete/one/a.mp3")), Content(20000));
    EXPECT_TRUE(QueueLogged(QStringLiteral("1|Download of music\\one\\a.mp3 from bob complete, saved as %1").arg(Local(QStringLiteral("complete/one/a.mp3")))));
    EXPECT_FALSE(QDir(Local(QStringLiteral("downloading/one"))).exists());
    EXPECT_GE(l_progress.count(), 1);
    EXPECT_TRUE(lp_file->WaitClosed());
    EXPECT_EQ(Count("download_thread") + Count("download_socket") + Count("download_file") + Count("write_position"), 0u);
}

TEST_F(QueueTest, APartialFileIsResumedFromItsSize)
{
    BobOnline();
    Write(QStringLiteral("downloading/one/a.mp3"), Content(9000).left(8193));
    ItemPtr const l_entry = Add("x\\one", "a.mp3", 9000);
    Add("x\\one", "b.mp3", 5);
    ASSERT_FALSE(Offer(3, "x\\one\\a.mp3", 9000).isEmpty());
    quint64 l_offset = 0;
    std::unique_ptr<PeerLink> lp_file = Connect(3, &l_offset);
    EXPECT_EQ(l_offset, 8193u);
    lp_file->SendRaw(Content(9000).mid(8193));
    ASSERT_TRUE(WaitFor([&] { return Status(l_entry) == "complete"; }));
    EXPECT_EQ(Read(QStringLiteral("complete/one/a.mp3")), Content(9000));
    // Another entry of the folder is not complete: the folder stays.
    EXPECT_TRUE(QDir(Local(QStringLiteral("downloading/one"))).exists());
}

TEST_F(QueueTest, AnUnknownNumberClosesTheSocketAndMakesNoItem)
{
    BobOnline();
    Add("f", "a", 10);
    std::size_t const l_reqs = Count("remote_transfer_req");
    std::unique_ptr<PeerLink> lp_file = Connect(77);
    EXPECT_TRUE(lp_file->WaitClosed());
    EXPECT_EQ(Count("remote_transfer_req"), l_reqs);
    EXPECT_TRUE(QueueLogged(QStringLiteral("2|Download not found, aborting")));
}

TEST_F(QueueTest, AFileThatCannotBeOpenedIsALocalError)
{
    BobOnline();
    Write(QStringLiteral("downloading/one"), "a file where the folder must go");
    ItemPtr const l_entry = Add("f\\one", "a", 10);
    ASSERT_FALSE(Offer(4, "f\\one\\a", 10).isEmpty());
    std::unique_ptr<PeerLink> lp_file = Connect(4);
    EXPECT_TRUE(lp_file->WaitClosed());
    EXPECT_EQ(Status(l_entry), "local error");
    EXPECT_TRUE(QueueLogged(QStringLiteral("2|Could not open file, aborting")));
}

TEST_F(QueueTest, ANewRequestStopsTheRunningTransferWhichThenResumes)
{
    BobOnline();
    ItemPtr const l_entry = Add("f", "a", 30000);
    ASSERT_FALSE(Offer(1, "f\\a", 30000).isEmpty());
    std::unique_ptr<PeerLink> lp_first = Connect(1);
    // The thread writes whole blocks of 8 KiB.
    lp_first->SendRaw(Content(30000).left(16384));
    ASSERT_TRUE(WaitFor([&] { return l_entry["write_position"] && *l_entry["write_position"].AsPointer<long long>() == 16384; }));
    // A second connection for the running transfer is refused; the first goes on.
    EXPECT_TRUE(Connect(1)->WaitClosed());
    EXPECT_EQ(Status(l_entry), "downloading");

    EXPECT_EQ(Offer(2, "f\\a", 30000), Body(2).U8(1).Bytes());
    EXPECT_EQ(Status(l_entry), "aborted");
    EXPECT_TRUE(QueueLogged(QStringLiteral("2|Transfer is already downloading, cancelling...")));
    EXPECT_TRUE(lp_first->WaitClosed());
    EXPECT_EQ(Count("download_thread"), 0u);
    quint64 l_offset = 0;
    std::unique_ptr<PeerLink> lp_second = Connect(2, &l_offset);
    EXPECT_EQ(l_offset, 16384u);
    lp_second->SendRaw(Content(30000).mid(16384));
    ASSERT_TRUE(WaitFor([&] { return Status(l_entry) == "complete"; }));
    EXPECT_EQ(Read(QStringLiteral("complete/f/a")), Content(30000));
}

TEST_F(QueueTest, AChangedSizeIsTakenOnlyWhileNothingIsHere)
{
    BobOnline();
    ItemPtr const l_entry = Add("f", "a", 10);
    EXPECT_EQ(Offer(1, "f\\a", 12), Body(1).U8(1).Bytes());
    EXPECT_EQ(l_entry["file_size"].AsString(), "12");
    Write(QStringLiteral("downloading/f/a"), "abc");
    EXPECT_EQ(Offer(2, "f\\a", 14), Body(2).U8(0).Str("File size changed").Bytes());
    EXPECT_EQ(Status(l_entry), "denied");
    EXPECT_EQ(l_entry["denial_reason"].AsString(), "File size changed");
    ItemPtr const l_huge = Add("f", "b", 10);
    EXPECT_EQ(Offer(3, "f\\b", quint64(1) << 63), Body(3).U8(0).Str("File size changed").Bytes());
    EXPECT_EQ(Status(l_huge), "denied");
    EXPECT_TRUE(QueueLogged(QStringLiteral("1|Denied f\\b: the offered size 9223372036854775808 is beyond any file; 10 was expected")));
}

TEST_F(QueueTest, RemovingAStalledDownloadStopsItAndKeepsThePartial)
{
    ItemPtr l_entry;
    std::unique_ptr<PeerLink> lp_file = StartTransfer(l_entry);
    lp_file->SendRaw(Content(8192));
    ASSERT_TRUE(WaitFor([&] { return l_entry["write_position"] && *l_entry["write_position"].AsPointer<long long>() == 8192; }));
    QElapsedTimer l_clock;
    l_clock.start();
    mp_queue->RemoveDownload(l_entry);
    EXPECT_LT(l_clock.elapsed(), 1000);
    EXPECT_TRUE(lp_file->WaitClosed());
    // Reports the thread queued before it stopped find no entry and are dropped.
    QSignalSpy l_progress(mp_queue.get(), &TransferQueueManager::DownloadProgressed);
    QCoreApplication::sendPostedEvents();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_EQ(l_progress.count(), 0);
    EXPECT_EQ(Count("download_entry") + Count("download_thread") + Count("write_position"), 0u);
    EXPECT_EQ(Read(QStringLiteral("downloading/f/a")), Content(8192));
}

TEST_F(QueueTest, APeerThatGoesSilentAbortsTheDownload)
{
    ItemPtr l_entry;
    std::unique_ptr<PeerLink> lp_file = StartTransfer(l_entry);
    lp_file->SendRaw(Content(8292));
    ASSERT_TRUE(WaitFor([&] { return Status(l_entry) == "aborted"; }, 8000));
    EXPECT_TRUE(QueueLogged(QStringLiteral("1|Download of f\\a from bob failed: waiting for bytes at 8292: timed out after 3000 ms")));
    EXPECT_EQ(Read(QStringLiteral("downloading/f/a")), Content(8192));
    EXPECT_TRUE(lp_file->WaitClosed());
}

TEST_F(QueueTest, ClosingTheQueueStopsARunningTransferAtOnce)
{
    ItemPtr l_entry;
    std::unique_ptr<PeerLink> lp_file = StartTransfer(l_entry);
    ASSERT_TRUE(WaitFor([&] { return Status(l_entry) == "downloading"; }));
    QElapsedTimer l_clock;
    l_clock.start();
    mp_queue.reset();
    EXPECT_LT(l_clock.elapsed(), 1000);
    EXPECT_TRUE(lp_file->WaitClosed());
    EXPECT_EQ(Count("download_thread") + Count("download_socket") + Count("download_file") + Count("write_position"), 0u);
}

TEST_F(QueueTest, AFinishedTransferIsTakenDownAlsoAfterASweepOfTheGraph)
{
    // Nothing holds the status "downloading" yet: a sweep takes it away with its flag.
    d.RemoveDisconnectedItems();
    ItemPtr l_entry;
    StartTransfer(l_entry)->SendRaw(Content(30000));
    ASSERT_TRUE(WaitFor([&] { return Status(l_entry) == "complete"; }));
    EXPECT_EQ(Count("download_thread") + Count("download_socket") + Count("download_file") + Count("write_position"), 0u);
}

TEST_F(QueueTest, AFileThatAppearedInCompleteIsNeverOverwritten)
{
    BobOnline();
    ItemPtr const l_entry = Add("f", "a.txt", 5);
    Write(QStringLiteral("complete/f/a.txt"), "mine");
    ASSERT_FALSE(Offer(1, "f\\a.txt", 5).isEmpty());
    Connect(1, nullptr)->SendRaw("bob's");
    ASSERT_TRUE(WaitFor([&] { return Status(l_entry) == "complete"; }));
    EXPECT_EQ(Read(QStringLiteral("complete/f/a.txt")), "mine");
    EXPECT_EQ(Read(QStringLiteral("complete/f/a (2).txt")), "bob's");
    EXPECT_TRUE(QueueLogged(QStringLiteral("1|Download of f\\a.txt from bob complete, saved as %1").arg(Local(QStringLiteral("complete/f/a (2).txt")))));
    EXPECT_TRUE(mp_queue->DoesDownloadItemCompleteFilenameExist(l_entry));
}

TEST_F(QueueTest, AHostileSavedNameEndsInALocalErrorAndWritesNothing)
{
    BobOnline();
    // As a damaged data file could hold it: AddDownload refuses such a name.
    ItemPtr const l_entry = d.GetType("download_entry")->NewItem();
    l_entry += User("bob");
    l_entry += d.GetType("file_name")->GetItem("../../x");
    l_entry += d.GetType("remote_folder")->GetItem("..");
    l_entry += d.GetType("file_size")->GetItem("5");
    l_entry += d.GetType("download_order")->GetItem("1");
    mp_queue->DataLoaded();
    // No peer can name this split in a request; the number is given as if one had.
    l_entry += d.GetType("remote_transfer_req")->GetItem("1");
    EXPECT_TRUE(Connect(1)->WaitClosed());
    EXPECT_EQ(Status(l_entry), "local error");
    EXPECT_EQ(QDir(m_folder.path()).entryList(QDir::NoDotAndDotDot | QDir::AllEntries), QStringList());
}
