#include "transfers/QueueFixture.h"
#include "support/SavedGraph.h"
#include "transfers/TransferSupport.h"

TEST_F(QueueTest, AddingAnExistingTripleChangesNothing)
{
    ItemPtr const l_entry = Add("music", "a.mp3");
    EXPECT_EQ(GetGlobal("transfer_order_counter"), "2");
    for (char const* lp_status : {"aborted", "complete", "queued"})
    {
        mp_queue->SetDownloadEntryStatus(l_entry, lp_status);
        mp_queue->AddDownload("bob", "a.mp3", "music", 99);
        EXPECT_EQ(Status(l_entry), lp_status);
    }
    EXPECT_EQ(Count("download_entry"), 1u);
    EXPECT_EQ(l_entry["file_size"].AsString(), "10");
    EXPECT_EQ(GetGlobal("transfer_order_counter"), "2");
}

TEST_F(QueueTest, AnOfflineUserIsSentNothing)
{
    mp_bob = OpenFrom("bob");
    ItemPtr const l_entry = Add("music", "a.mp3");
    EXPECT_EQ(Status(l_entry), "queued");
    EXPECT_TRUE(mp_bob->NothingOf(PeerLink::s_anyCode));
    EXPECT_EQ(Count("unsent_message"), 0u);
}

TEST_F(QueueTest, AnOnlineUserIsAskedToQueueThenForThePlace)
{
    BobOnline();
    ItemPtr const l_first = Add("music\\one", "a.mp3");
    ItemPtr const l_second = Add("", "b.mp3");
    EXPECT_EQ(mp_bob->Next(), Body(43).Str("music\\one\\a.mp3").Bytes());
    EXPECT_EQ(mp_bob->Next(), Body(51).Str("music\\one\\a.mp3").Bytes());
    EXPECT_EQ(mp_bob->Next(), Body(43).Str("\\b.mp3").Bytes());
    EXPECT_EQ(mp_bob->Next(), Body(51).Str("\\b.mp3").Bytes());
    EXPECT_EQ(l_first["download_order"].AsString(), "1");
    EXPECT_EQ(l_second["download_order"].AsString(), "2");
    EXPECT_EQ(GetGlobal("transfer_order_counter"), "3");
}

TEST_F(QueueTest, AFileAlreadyCompleteIsNotAskedFor)
{
    BobOnline();
    Write(QStringLiteral("complete/one/a.mp3"), "0123456789");
    ItemPtr const l_entry = Add("x\\one", "a.mp3");
    EXPECT_EQ(Status(l_entry), "complete");
    EXPECT_TRUE(mp_bob->NothingOf(43));
}

TEST_F(QueueTest, GoingOnlineQueuesInOrderAndSkipsDeniedAndComplete)
{
    mp_bob = OpenFrom("bob");
    char const* const l_statuses[] = {"local error", "denied", "aborted", "complete", "queued", "queued"};
    for (int l_index = 0; l_index < 6; ++l_index)
        mp_queue->SetDownloadEntryStatus(Add("f", std::to_string(l_index)), l_statuses[l_index]);
    Write(QStringLiteral("complete/f/5"), "0123456789");
    User("bob").NewItem("is_online");
    for (char const* lp_name : {"f\\0", "f\\2", "f\\4"})
    {
        EXPECT_EQ(mp_bob->Next(), Body(43).Str(lp_name).Bytes());
        EXPECT_EQ(mp_bob->Next(), Body(51).Str(lp_name).Bytes());
    }
    EXPECT_TRUE(mp_bob->NothingOf(PeerLink::s_anyCode));
    EXPECT_EQ(Status(mp_queue->GetDownloadEntry("bob", "5", "f")), "complete");
    EXPECT_TRUE(QueueLogged(QStringLiteral("1|User bob went online, processing pending downloads")));
    EXPECT_TRUE(QueueLogged(QStringLiteral("2|Queueing 4")));
}

TEST_F(QueueTest, ThePeriodicCheckWaitsWhileAnythingDownloads)
{
    BobOnline();
    ItemPtr const l_aborted = Add("f", "a");
    ItemPtr const l_queued = Add("f", "b");
    ItemPtr const l_denied = Add("f", "c");
    for (int l_index = 0; l_index < 6; ++l_index)
        mp_bob->Next();
    mp_queue->SetDownloadEntryStatus(l_aborted, "aborted");
    mp_queue->SetDownloadEntryStatus(l_denied, "downloading");
    mp_queue->PeriodicCheck();
    EXPECT_TRUE(mp_bob->NothingOf(43));
    mp_queue->SetDownloadEntryStatus(l_denied, "denied");
    mp_queue->PeriodicCheck();
    EXPECT_EQ(mp_bob->Next(), Body(43).Str("f\\a").Bytes());
    EXPECT_EQ(mp_bob->Next(), Body(43).Str("f\\b").Bytes());
    EXPECT_TRUE(mp_bob->NothingOf(43));
    EXPECT_EQ(Status(l_queued), "queued");
}

TEST_F(QueueTest, PlacesAreAskedForAtMostEveryTenMinutes)
{
    BobOnline();
    Add("f", "a");
    mp_queue->SetDownloadEntryStatus(Add("f", "b"), "aborted");
    for (int l_index = 0; l_index < 4; ++l_index)
        mp_bob->Next();
    mp_queue->EveryHalfMinute();
    EXPECT_EQ(mp_bob->Next(), Body(51).Str("f\\a").Bytes());
    EXPECT_TRUE(mp_bob->NothingOf(51));
    mp_queue->EveryHalfMinute();
    EXPECT_TRUE(mp_bob->NothingOf(51));
    Age(User("bob"), "last_place_in_line_request_time", 601);
    mp_queue->EveryHalfMinute();
    EXPECT_EQ(mp_bob->Next(), Body(51).Str("f\\a").Bytes());
}

TEST_F(QueueTest, NotificationsActOnFoundEntriesOnly)
{
    BobOnline();
    ItemPtr const l_entry = Add("f", "a");
    mp_bob->Next();
    mp_bob->Next();
    std::size_t const l_names = Count("file_name");
    std::size_t const l_folders = Count("remote_folder");

    mp_bob->Send(Body(46).Str("f\\a"));
    EXPECT_EQ(mp_bob->Next(), Body(43).Str("f\\a").Bytes());
    mp_bob->Send(Body(46).Str("g\\z"));
    ASSERT_TRUE(WaitFor([&] { return QueueLogged(QStringLiteral("2|Download not found.")); }));

    for (int l_place : {7, 3, 3})
        mp_bob->Send(Body(44).Str("f\\a").U32(l_place));
    mp_bob->Send(Body(44).Str("g\\z").U32(1));
    Settle(*mp_bob);
    EXPECT_EQ(l_entry["place_in_line"].AsString(), "3");
    EXPECT_EQ(Count("place_in_line"), 1u);

    for (char const* lp_reason : {"Banned", "Too many files", "Banned"})
        mp_bob->Send(Body(50).Str("f\\a").Str(lp_reason));
    mp_bob->Send(Body(50).Str("g\\z").Str("Nope"));
    m_events.clear();
    Settle(*mp_bob);
    EXPECT_EQ(Status(l_entry), "denied");
    EXPECT_EQ(l_entry["denial_reason"].AsString(), "Banned");
    EXPECT_EQ(Count("denial_reason"), 1u);
    EXPECT_EQ(Count("file_name"), l_names);
    EXPECT_EQ(Count("remote_folder"), l_folders);
    EXPECT_TRUE(QueueLogged(QStringLiteral("1|Received peer notification from bob that upload of g\\z was denied, reason: Nope")));
}

TEST_F(QueueTest, LoadingQueuesAllButCompleteAndRepairsDamagedEntries)
{
    char const* const l_statuses[] = {"aborted", "denied", "local error", "complete"};
    for (int l_index = 0; l_index < 4; ++l_index)
        mp_queue->SetDownloadEntryStatus(Add("f", std::to_string(l_index)), l_statuses[l_index]);
    ReplaceValue(mp_queue->GetDownloadEntry("bob", "1", "f"), "denial_reason", Value("Banned"));
    ItemPtr const l_noName = Add("f", "x");
    l_noName.Disconnect("file_name");
    ItemPtr const l_badSize = Add("f", "y");
    l_badSize += d.GetType("file_size")->GetItem("12a");
    ItemPtr const l_badOrder = Add("f", "z");
    l_badOrder += d.GetType("download_order")->GetItem("-3");
    ItemPtr(mp_queue->GetDownloadEntry("bob", "0", "f")) += d.GetType("download_order")->GetItem("40");
    SetGlobal("transfer_order_counter", Value("oops"));

    QSignalSpy l_loaded(mp_queue.get(), &TransferQueueManager::TransfersLoaded);
    mp_queue->DataLoaded();
    EXPECT_EQ(l_loaded.count(), 1);
    EXPECT_EQ(Count("download_entry"), 5u);
    for (char const* lp_name : {"0", "1", "2"})
        EXPECT_EQ(Status(mp_queue->GetDownloadEntry("bob", lp_name, "f")), "queued") << lp_name;
    EXPECT_EQ(Status(mp_queue->GetDownloadEntry("bob", "3", "f")), "complete");
    EXPECT_FALSE(mp_queue->GetDownloadEntry("bob", "1", "f")["denial_reason"]);
    EXPECT_EQ(l_badOrder["download_order"].AsString(), "41");
    EXPECT_EQ(GetGlobal("transfer_order_counter"), "42");
    EXPECT_TRUE(QueueLogged(QStringLiteral("1|Dropped a saved download of y from bob: its size is no number")));
    EXPECT_TRUE(QueueLogged(QStringLiteral("1|Dropped a saved download of  from bob: no file_name")));
}

TEST_F(QueueTest, ASeededDataFileIsLoadedAndSavedBackWithEveryPart)
{
    QString const l_file = m_folder.filePath(QStringLiteral("seed.dat"));
    SavedGraph l_seed;
    l_seed.Set("global", "download_folder", m_folder.path().toStdString());
    l_seed.AddDownload({"bob", "a.mp3", "music\\one", "10", "denied", "3", "a (2).mp3"});
    l_seed.AddDownload({"bob", "b.mp3", "", "20", "complete", "4", std::nullopt});
    l_seed.AddDownload({"bob", std::nullopt, "x", "5", "queued", "5", std::nullopt});
    ASSERT_TRUE(l_seed.Save(l_file));

    mp_queue.reset();
    for (auto const& l_entry : d.Types())
        l_entry.second->GetItems().Remove();
    mp_queue = std::make_unique<TransferQueueManager>();
    dataSaver->Load(&d, l_file.toLocal8Bit().constData());
    ASSERT_TRUE(dataSaver->Save(&d, l_file.toLocal8Bit().constData()));

    SavedGraph l_saved;
    l_saved.Load(l_file);
    std::vector<SavedGraph::Download> const l_expected{{"bob", "b.mp3", "", "20", "complete", "4", "b.mp3"},
                                                       {"bob", "a.mp3", "music\\one", "10", "queued", "3", "a (2).mp3"}};
    EXPECT_EQ(l_saved.Downloads(), l_expected);
    EXPECT_EQ(l_saved.Setting("global", "transfer_order_counter"), "5");
}
