// The upload queue's order and its answers to requests, driven through the queue's slots; what
// reaches a peer is read from the messages the messenger keeps for users it has no link to.
#include "transfers/UploadFixture.h"

namespace
{
// The codes and first string of the messages kept for a user, oldest first.
QByteArrayList Kept(char const* i_user)
{
    QByteArrayList l_kept;
    ItemPtr const l_user = d.GetType("user")->HasItem(Value(i_user));
    for (Item* lp_item : l_user ? l_user.GetItems("unsent_message").SortNumericBy("send_order", true) : std::list<Item*>())
    {
        MemStream const& l_message = *lp_item->AsPointer<MemStream>();
        QByteArray const l_bytes(l_message.GetReadBuffer(), static_cast<qsizetype>(l_message.GetPendingReadLength()));
        Fields l_fields(l_bytes);
        quint32 const l_code = l_fields.U32();
        if (l_code == 40)
            l_fields.U32(), l_fields.U32();
        QByteArray l_line = QByteArray::number(l_code) + '|' + l_fields.Str();
        if (l_code == 50)
            l_line += '|' + l_fields.Str();
        l_kept << l_line;
    }
    return l_kept;
}

void SetGroups(QByteArray const& i_user, std::vector<std::pair<char const*, char const*>> const& i_groups)
{
    ItemPtr const l_user = d.GetType("user")->GetItem(i_user.toStdString());
    ItemPtr l_listed = l_user["in_user_list"];
    if (!l_listed)
        l_listed = l_user.NewItem("in_user_list");
    for (auto const& [lp_group, lp_priority] : i_groups)
    {
        ItemPtr const l_group = d.GetType("user_list_group")->GetItem(Value(lp_group));
        l_listed += l_group;
        if (lp_priority)
            l_group += d.GetType("group_download_priority")->GetItem(Value(lp_priority));
    }
}
} // namespace

TEST_F(UploadTest, TheQueueGoesByPriorityThenPrivilegeThenArrivalWithoutInterruptingTheRunningUpload)
{
    ItemPtr const l_a = SharedFile(QStringLiteral("a"), "1"), l_b = SharedFile(QStringLiteral("b"), "2"),
                  l_c = SharedFile(QStringLiteral("c"), "3"), l_d = SharedFile(QStringLiteral("d"), "4"),
                  l_e = SharedFile(QStringLiteral("e"), "5");
    for (char const* lp_user : {"dave", "erin", "frank", "gina"})
        Online(lp_user);
    User("frank").NewItem("is_privileged");
    SetGroups("gina", {{"friends", "5"}});
    Ask("dave", PathOf(QStringLiteral("a")));
    Ask("dave", PathOf(QStringLiteral("b")));
    Ask("erin", PathOf(QStringLiteral("c")));
    Ask("frank", PathOf(QStringLiteral("d")));
    Ask("gina", PathOf(QStringLiteral("e")));
    // Dave's first file went out at once; those who came later line up behind it, not before it.
    EXPECT_EQ(Running(), Entry("dave", l_a));
    EXPECT_EQ(UploadStatus(Entry("gina", l_e)), "queued");
    std::vector<ItemPtr> const l_expected{Entry("gina", l_e), Entry("frank", l_d), Entry("dave", l_a), Entry("dave", l_b),
                                          Entry("erin", l_c)};
    for (std::size_t l_place = 0; l_place < l_expected.size(); ++l_place)
        EXPECT_EQ(Number(l_expected[l_place], "effective_upload_order"), static_cast<long long>(l_place));
    EXPECT_EQ(mp_queue->QueuedUploadCount(), 4);
    EXPECT_FALSE(mp_queue->IsFreeToUpload());

    std::vector<ItemPtr> l_served;
    for (int l_turn = 0; l_turn < 5; ++l_turn)
    {
        l_served.push_back(Running());
        Finish();
    }
    EXPECT_EQ(l_served, (std::vector<ItemPtr>{Entry("dave", l_a), Entry("gina", l_e), Entry("frank", l_d), Entry("dave", l_b),
                                              Entry("erin", l_c)}));
    EXPECT_TRUE(mp_queue->IsFreeToUpload());
    EXPECT_EQ(Kept("dave"), (QByteArrayList{"40|" + PathOf(QStringLiteral("a")), "40|" + PathOf(QStringLiteral("b"))}));
}

TEST_F(UploadTest, PrivilegeGoesFirstWhateverTheArrivalAndAPriorityChangeWaitsForTheNextNewEntry)
{
    ItemPtr const l_a = SharedFile(QStringLiteral("a"), "1"), l_b = SharedFile(QStringLiteral("b"), "2"),
                  l_c = SharedFile(QStringLiteral("c"), "3");
    Ask("erin", PathOf(QStringLiteral("a")));
    User("frank").NewItem("is_privileged");
    Ask("frank", PathOf(QStringLiteral("b")));
    EXPECT_LT(Number(Entry("frank", l_b), "effective_upload_order"), Number(Entry("erin", l_a), "effective_upload_order"));

    SetGroups("erin", {{"close", "9"}});
    EXPECT_LT(Number(Entry("frank", l_b), "effective_upload_order"), Number(Entry("erin", l_a), "effective_upload_order"));
    Ask("dave", PathOf(QStringLiteral("c")));
    EXPECT_EQ(Number(Entry("erin", l_a), "effective_upload_order"), 0);
    EXPECT_EQ(Number(Entry("frank", l_b), "effective_upload_order"), 1);
    EXPECT_EQ(Number(Entry("dave", l_c), "effective_upload_order"), 2);
    // Nobody is online: nothing started, and the entries wait.
    EXPECT_FALSE(Running());
    EXPECT_EQ(mp_queue->QueuedUploadCount(), 3);
}

TEST_F(UploadTest, APrioritysFloorIsZeroAndTheLargestOfSeveralGroupsCounts)
{
    EXPECT_EQ(TransferQueueManager::GetUserGroupDownloadPriority("nobody"), 0);
    SetGroups("ann", {});
    EXPECT_EQ(TransferQueueManager::GetUserGroupDownloadPriority("ann"), 0);
    SetGroups("bea", {{"low", "-3"}});
    EXPECT_EQ(TransferQueueManager::GetUserGroupDownloadPriority("bea"), 0);
    SetGroups("cid", {{"low", nullptr}, {"mid", "2"}, {"high", "7"}, {"odd", "x"}});
    EXPECT_EQ(TransferQueueManager::GetUserGroupDownloadPriority("cid"), 7);
    SetGroups("dot", {{"unset", nullptr}});
    EXPECT_EQ(TransferQueueManager::GetUserGroupDownloadPriority("dot"), 0);
}

// Orders held as decimal text are compared as numbers: 10 comes after 9, not after 1.
TEST_F(UploadTest, OrdersCompareAsNumbersAndAnOfflineUserIsPassedOverButKept)
{
    SetGlobal("transfer_order_counter", Value("5"));
    std::vector<ItemPtr> l_files;
    for (int l_index = 0; l_index < 12; ++l_index)
    {
        l_files.push_back(SharedFile(QStringLiteral("f%1").arg(l_index), "x"));
        Ask("dave", PathOf(QStringLiteral("f%1").arg(l_index)));
    }
    EXPECT_EQ(Number(Entry("dave", l_files[4]), "upload_order"), 9);
    EXPECT_EQ(Number(Entry("dave", l_files[5]), "upload_order"), 10);
    EXPECT_EQ(GetGlobal("transfer_order_counter"), "17");
    EXPECT_FALSE(Running());

    ItemPtr const l_other = SharedFile(QStringLiteral("other"), "y");
    Online("erin");
    Ask("erin", PathOf(QStringLiteral("other")));
    EXPECT_EQ(Running(), Entry("erin", l_other));
    Finish();
    EXPECT_FALSE(Running());
    EXPECT_EQ(UploadStatus(Entry("dave", l_files[0])), "queued");

    // Dave coming online starts his first file; the rest follow one by one in asking order.
    Online("dave");
    std::vector<ItemPtr> l_served;
    while (ItemPtr const l_running = Running())
    {
        l_served.push_back(l_running);
        Finish();
    }
    std::vector<ItemPtr> l_expected;
    for (ItemPtr const& l_file : l_files)
        l_expected.push_back(Entry("dave", l_file));
    EXPECT_EQ(l_served, l_expected);
}

TEST_F(UploadTest, AskingAgainChangesNothingWhileWaitingOrRunningAndEndedEntriesReturnToTheirPlace)
{
    ItemPtr const l_a = SharedFile(QStringLiteral("a"), "1"), l_b = SharedFile(QStringLiteral("b"), "2");
    Online("dave");
    Ask("dave", PathOf(QStringLiteral("a")));
    Ask("dave", PathOf(QStringLiteral("b")));
    ItemPtr const l_first = Entry("dave", l_a), l_second = Entry("dave", l_b);
    for (char const* lp_status : {"requesting", "connecting", "uploading", "queued"})
    {
        mp_queue->SetUploadEntryStatus(lp_status == std::string("queued") ? l_second : l_first, lp_status);
        Ask("dave", PathOf(lp_status == std::string("queued") ? QStringLiteral("b") : QStringLiteral("a")));
        EXPECT_TRUE(QueueLogged(QStringLiteral("2|Already queued"))) << lp_status;
        m_queueLog.clear();
    }
    EXPECT_EQ(Kept("dave").size(), 1);
    EXPECT_EQ(d.GetType("upload_entry")->ItemCount(), 2u);

    for (char const* lp_status : {"complete", "aborted", "denied", "local error"})
    {
        Finish(lp_status);
        ASSERT_EQ(Running(), l_second) << lp_status;
        Finish();
        Ask("dave", PathOf(QStringLiteral("a")));
        EXPECT_TRUE(QueueLogged(QStringLiteral("2|%1, re-queueing").arg(QString::fromLatin1(lp_status))));
        EXPECT_EQ(Running(), l_first) << lp_status;
        EXPECT_EQ(Number(l_first, "upload_order"), 1);
        EXPECT_EQ(Number(l_first, "effective_upload_order"), 0);
        Ask("dave", PathOf(QStringLiteral("b")));
        EXPECT_EQ(UploadStatus(l_second), "queued");
    }
}

TEST_F(UploadTest, FilesNotSharedWithTheAskerAreRefusedWithoutAnEntry)
{
    QTemporaryDir l_other;
    Share(l_other.path(), "friends");
    SharedFile(QStringLiteral("mine.bin"), "x", QString(), l_other.path());
    ItemPtr const l_song = SharedFile(QStringLiteral("Song.mp3"), "abc", QStringLiteral("Sub"));
    QByteArray const l_forGroup = (l_other.path() + QStringLiteral("/mine.bin")).toUtf8();
    QByteArray const l_unknown = PathOf(QStringLiteral("nothing.bin"));
    QByteArray const l_escape = PathOf(QStringLiteral("Sub/../../../etc/passwd"));
    Ask("dave", l_unknown);
    Ask("dave", l_forGroup);
    Ask("dave", l_escape);
    Ask("dave", QByteArray(131072, 'a'));
    User("erin").NewItem("unshared");
    Ask("erin", PathOf(QStringLiteral("Sub/Song.mp3")));
    EXPECT_EQ(d.GetType("upload_entry")->ItemCount(), 0u);
    EXPECT_EQ(Kept("dave").mid(0, 3), (QByteArrayList{"50|" + l_unknown + "|File not shared.", "50|" + l_forGroup + "|File not shared.",
                                                       "50|" + l_escape + "|File not shared."}));
    EXPECT_EQ(Kept("erin"), QByteArrayList{"50|" + PathOf(QStringLiteral("Sub/Song.mp3")) + "|File not shared."});
    EXPECT_TRUE(QueueLogged(QStringLiteral("2|Denied, file not shared")));

    // The same file asked for in another case and with backslashes is found, and every later
    // message names it as the asker spelled it.
    SetGroups("dave", {{"friends", nullptr}});
    Ask("dave", l_forGroup);
    QByteArray const l_spelled = PathOf(QStringLiteral("SUB/song.MP3")).replace('/', '\\');
    Ask("dave", l_spelled);
    EXPECT_EQ(d.GetType("upload_entry")->ItemCount(), 2u);
    EXPECT_EQ(Entry("dave", l_song)["filename_as_requested"].AsString(), l_spelled.toStdString());
}

TEST_F(UploadTest, AnEmptyQueueIsIdleAndFree)
{
    mp_queue->StartNewUploads();
    EXPECT_FALSE(Running());
    EXPECT_EQ(mp_queue->QueuedUploadCount(), 0);
    EXPECT_TRUE(mp_queue->IsFreeToUpload());
    SharedFoldersManager::UploadSlots const l_slots = SharedFoldersManager::UploadSlotState();
    EXPECT_TRUE(l_slots.m_free);
    EXPECT_EQ(l_slots.m_queued, 0u);

    // Search answers follow the queue: busy with one waiting.
    SharedFile(QStringLiteral("a"), "1");
    SharedFile(QStringLiteral("b"), "2");
    Online("dave");
    Ask("dave", PathOf(QStringLiteral("a")));
    Ask("dave", PathOf(QStringLiteral("b")));
    EXPECT_FALSE(SharedFoldersManager::UploadSlotState().m_free);
    EXPECT_EQ(SharedFoldersManager::UploadSlotState().m_queued, 1u);
}

TEST_F(UploadTest, StalledRequestsAndConnectionsTimeOutWithANoticeButOnlyAfterHalfAMinute)
{
    ItemPtr const l_a = SharedFile(QStringLiteral("a"), "1"), l_b = SharedFile(QStringLiteral("b"), "2");
    Online("dave");
    Ask("dave", PathOf(QStringLiteral("a")));
    Ask("dave", PathOf(QStringLiteral("b")));
    ItemPtr const l_first = Entry("dave", l_a);
    EarlyInASecond();
    Age(l_first, "last_status_change_time", 29);
    mp_queue->EveryHalfMinute();
    EXPECT_EQ(UploadStatus(l_first), "requesting");

    Age(l_first, "last_status_change_time", 30);
    mp_queue->EveryHalfMinute();
    EXPECT_EQ(UploadStatus(l_first), "aborted");
    EXPECT_TRUE(QueueLogged(QStringLiteral("1|Upload of a to dave timed out in requesting phase, aborting")));
    EXPECT_TRUE(QueueLogged(QStringLiteral("1|Upload of a to dave aborted, sending upload failed notification.")));
    ItemPtr const l_second = Entry("dave", l_b);
    EXPECT_EQ(UploadStatus(l_second), "requesting");

    mp_queue->SetUploadEntryStatus(l_second, "connecting");
    Age(l_second, "last_status_change_time", 45);
    mp_queue->EveryHalfMinute();
    EXPECT_EQ(UploadStatus(l_second), "aborted");
    EXPECT_EQ(Kept("dave"), (QByteArrayList{"40|" + PathOf(QStringLiteral("a")), "46|" + PathOf(QStringLiteral("a")),
                                            "40|" + PathOf(QStringLiteral("b")), "46|" + PathOf(QStringLiteral("b"))}));

    // Finished uploads are forgotten after a day, failed ones keep their place.
    mp_queue->SetUploadEntryStatus(l_second, "complete");
    Age(l_second, "last_status_change_time", 24 * 3600);
    Age(l_first, "last_status_change_time", 24 * 3600);
    mp_queue->PeriodicCheck();
    EXPECT_FALSE(Entry("dave", l_b));
    EXPECT_TRUE(Entry("dave", l_a));
}

TEST_F(UploadTest, TheRequestNumberGoesOnFromTheSavedOneAcrossThirtyTwoBits)
{
    EXPECT_EQ(GetGlobal("transfer_req_counter"), "1");
    SetGlobal("transfer_req_counter", Value("4294967295"));
    ItemPtr const l_a = SharedFile(QStringLiteral("a"), "1"), l_b = SharedFile(QStringLiteral("b"), "2");
    Online("dave");
    Ask("dave", PathOf(QStringLiteral("a")));
    EXPECT_EQ(Entry("dave", l_a)["transfer_req"].AsString(), "4294967295");
    Finish();
    Ask("dave", PathOf(QStringLiteral("b")));
    EXPECT_EQ(Entry("dave", l_b)["transfer_req"].AsString(), "0");
}
