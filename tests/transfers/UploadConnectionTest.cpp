// Uploads on the wire: bob asks over his messaging link, answers the transfer request, and
// takes the file connection that alice opens to his listener.
#include <QDeadlineTimer>
#include <QThread>
#include <QtEndian>

#include <algorithm>
#include <cerrno>
#include <sys/socket.h>

#include "transfers/UploadFixture.h"

namespace
{
QByteArray Offset(quint64 i_offset)
{
    QByteArray l_bytes(8, '\0');
    qToLittleEndian(i_offset, l_bytes.data());
    return l_bytes;
}

// Reads what the connection still holds, below the socket, until it ends: 0 for an orderly end
// after everything the other side had, the error of a reset, or EAGAIN if it goes on.
int HowItEnds(qintptr i_descriptor)
{
    char l_sink[65536];
    QDeadlineTimer const l_deadline(5000);
    while (!l_deadline.hasExpired())
    {
        ssize_t const l_read = recv(static_cast<int>(i_descriptor), l_sink, sizeof l_sink, MSG_DONTWAIT);
        if (l_read == 0)
            return 0;
        if (l_read < 0 && errno != EAGAIN)
            return errno;
        if (l_read < 0)
            QThread::msleep(10);
    }
    return EAGAIN;
}
} // namespace

TEST_F(UploadTest, AnAcceptedUploadSendsTheRequestNumberThenTheFileFromTheOffsetAndReportsItsSpeedOnce)
{
    LogIn();
    BobOnline();
    // Paced, so that the speed is measured over a time the clock can tell.
    mp_queue->SetUploadSpeedLimit(100);
    mp_queue->EnableUploadSpeedLimit(true);
    ItemPtr const l_file = SharedFile(QStringLiteral("song.bin"), Content(50000));
    quint32 l_req = 0;
    Fields l_request = AskAndTakeRequest(PathOf(QStringLiteral("song.bin")), &l_req);
    EXPECT_EQ(l_request.Str(), PathOf(QStringLiteral("song.bin")));
    EXPECT_EQ(l_request.U64(), 50000u);
    ItemPtr const l_entry = Entry("bob", l_file);
    EXPECT_EQ(UploadStatus(l_entry), "requesting");

    std::unique_ptr<PeerLink> lp_file = AcceptAndConnect(l_req);
    ASSERT_TRUE(lp_file);
    QByteArray l_number(4, '\0');
    qToLittleEndian(l_req, l_number.data());
    EXPECT_EQ(lp_file->TakeRaw(4), l_number);
    EXPECT_EQ(UploadStatus(l_entry), "uploading");
    QSignalSpy l_progress(mp_queue.get(), &TransferQueueManager::UploadProgressed);
    // The offset may come in pieces of a byte.
    lp_file->SendSplit(Offset(1000), {1, 2, 3, 4, 5, 6, 7}, 20);
    EXPECT_EQ(lp_file->TakeRaw(49000, 10000), Content(50000).mid(1000));
    ASSERT_TRUE(WaitFor([&] { return UploadStatus(l_entry) == "complete"; }));
    EXPECT_GE(l_progress.count(), 1);
    EXPECT_TRUE(QueueLogged(QStringLiteral("1|Received file transfer response from user bob for req %1, transfer accepted").arg(l_req)));
    EXPECT_EQ(Count("upload_thread") + Count("upload_socket") + Count("upload_file") + Count("read_position"), 0u);

    std::optional<Fields> l_speed = mp_central->Take(121, 3000);
    ASSERT_TRUE(l_speed);
    EXPECT_GT(l_speed->U32(), 0u);
    EXPECT_TRUE(mp_central->NothingOf(121));

    // Asked again, a complete file goes again; a second answer of the open request is ignored.
    quint32 l_again = 0;
    AskAndTakeRequest(PathOf(QStringLiteral("song.bin")), &l_again);
    EXPECT_NE(l_again, l_req);
    mp_bob->Send(Body(41).U32(l_again).U8(1));
    std::unique_ptr<PeerLink> lp_second = AcceptGreeting("F");
    ASSERT_TRUE(lp_second);
    ASSERT_TRUE(WaitFor([&] { return UploadStatus(l_entry) == "uploading"; }));
    mp_bob->Send(Body(41).U32(l_again).U8(0).Str("Changed my mind"));
    ASSERT_TRUE(WaitFor([&] { return QueueLogged(QStringLiteral("2|Upload is uploading, not waiting for an answer; ignoring it")); }));
    EXPECT_EQ(UploadStatus(l_entry), "uploading");
    // A peer that sends no offset frees the slot within the thread's bound; no speed is reported.
    EXPECT_EQ(lp_second->TakeRaw(4).size(), 4);
    ASSERT_TRUE(WaitFor([&] { return UploadStatus(l_entry) == "aborted"; }, 5000));
    EXPECT_EQ(mp_bob->Take(46, 3000).value_or(Fields(QByteArray())).Str(), PathOf(QStringLiteral("song.bin")));
    EXPECT_TRUE(mp_central->NothingOf(121));
}

TEST_F(UploadTest, OffsetsAtOrPastTheEndAndEmptyFilesAbortWithANotice)
{
    BobOnline();
    ItemPtr const l_file = SharedFile(QStringLiteral("s.bin"), Content(3000));
    ItemPtr const l_empty = SharedFile(QStringLiteral("empty.bin"), QByteArray());
    struct Case
    {
        char const* m_name;
        ItemPtr m_file;
        quint64 m_offset;
    };
    for (Case const& l_case : {Case{"s.bin", l_file, 3000}, Case{"s.bin", l_file, ~0ULL}, Case{"s.bin", l_file, 1ULL << 63},
                               Case{"empty.bin", l_empty, 0}})
    {
        QByteArray const l_path = PathOf(QString::fromLatin1(l_case.m_name));
        quint32 l_req = 0;
        AskAndTakeRequest(l_path, &l_req);
        std::unique_ptr<PeerLink> lp_file = AcceptAndConnect(l_req);
        ASSERT_TRUE(lp_file);
        EXPECT_EQ(lp_file->TakeRaw(4).size(), 4);
        lp_file->SendRaw(Offset(l_case.m_offset));
        ItemPtr const l_entry = Entry("bob", l_case.m_file);
        ASSERT_TRUE(WaitFor([&] { return UploadStatus(l_entry) == "aborted"; })) << l_case.m_offset;
        EXPECT_TRUE(QueueLogged(QStringLiteral("1|Upload of %1 to bob failed: the peer asked for offset %2 of a file of %3 bytes")
                                    .arg(QLatin1String(l_case.m_name))
                                    .arg(l_case.m_offset)
                                    .arg(l_case.m_file == l_empty ? 0 : 3000)));
        EXPECT_EQ(mp_bob->Take(46, 3000).value_or(Fields(QByteArray())).Str(), l_path);
        EXPECT_TRUE(lp_file->WaitClosed());
    }
}

TEST_F(UploadTest, APeerThatStopsReadingTimesOutAndItsConnectionIsReset)
{
    BobOnline();
    // Far more than the buffers of both ends hold.
    ItemPtr const l_file = SharedFile(QStringLiteral("big.bin"), Content(16 << 20));
    quint32 l_req = 0;
    AskAndTakeRequest(PathOf(QStringLiteral("big.bin")), &l_req);
    std::unique_ptr<PeerLink> lp_file = AcceptAndConnect(l_req);
    ASSERT_TRUE(lp_file);
    EXPECT_EQ(lp_file->TakeRaw(4).size(), 4);
    lp_file->SendRaw(Offset(0));
    lp_file->StopReading();
    ItemPtr const l_entry = Entry("bob", l_file);
    ASSERT_TRUE(WaitFor([&] { return UploadStatus(l_entry) == "aborted"; }, 8000));
    EXPECT_TRUE(QueueLogged(QStringLiteral("1|Upload of big.bin to bob failed: sending: timed out after 1500 ms")));
    EXPECT_EQ(mp_bob->Take(46, 3000).value_or(Fields(QByteArray())).Str(), PathOf(QStringLiteral("big.bin")));
    // What reached bob is all he gets: nothing buffered on alice's side goes after the time-out.
    EXPECT_EQ(HowItEnds(lp_file->Descriptor()), ECONNRESET);
}

TEST_F(UploadTest, AnswersForUnknownForeignOrRefusedRequestsAndVanishedFiles)
{
    BobOnline();
    ItemPtr const l_a = SharedFile(QStringLiteral("a.bin"), Content(10)), l_b = SharedFile(QStringLiteral("b.bin"), Content(20));
    quint32 l_req = 0;
    AskAndTakeRequest(PathOf(QStringLiteral("a.bin")), &l_req);
    mp_bob->Send(Body(43).Str(PathOf(QStringLiteral("b.bin"))));

    mp_bob->Send(Body(41).U32(l_req + 100).U8(1));
    ASSERT_TRUE(WaitFor([&] { return QueueLogged(QStringLiteral("2|req not found")); }));
    std::unique_ptr<PeerLink> lp_carol = OpenFrom("carol");
    lp_carol->Send(Body(41).U32(l_req).U8(1));
    ASSERT_TRUE(WaitFor([&] {
        return QueueLogged(QStringLiteral("2|Upload user bob not the same as user who opened the connection, not doing anything"));
    }));
    EXPECT_EQ(UploadStatus(Entry("bob", l_a)), "requesting");

    // A refusal keeps the reason, and the next file is asked for.
    mp_bob->Send(Body(41).U32(l_req).U8(0).Str("Too many files"));
    std::optional<Fields> l_next = mp_bob->Take(40, 3000);
    ASSERT_TRUE(l_next);
    EXPECT_EQ(UploadStatus(Entry("bob", l_a)), "denied");
    EXPECT_EQ(Entry("bob", l_a)["denial_reason"].AsString(), "Too many files");
    l_next->U32();
    quint32 const l_nextReq = l_next->U32();
    EXPECT_EQ(l_next->Str(), PathOf(QStringLiteral("b.bin")));

    // A file gone since the scan is a local error, told to the peer.
    QFile::remove(m_share.filePath(QStringLiteral("b.bin")));
    mp_bob->Send(Body(41).U32(l_nextReq).U8(1));
    EXPECT_EQ(DeniedReason(*mp_bob, PathOf(QStringLiteral("b.bin"))), "File read error.");
    EXPECT_EQ(UploadStatus(Entry("bob", l_b)), "local error");
    EXPECT_EQ(Count("upload_file"), 0u);
}

TEST_F(UploadTest, AFileConnectionNobodyWaitsForIsClosed)
{
    LogIn();
    SetAddress("bob", m_bob.ListenPort());
    mp_messenger->ConnectToUser("bob", "F");
    // The greeting may not have left before the socket was closed; the close is what counts.
    std::unique_ptr<PeerLink> lp_file = m_bob.Accept();
    ASSERT_TRUE(lp_file);
    EXPECT_TRUE(lp_file->WaitClosed());
    EXPECT_EQ(Count("upload_socket"), 0u);
}

TEST_F(UploadTest, UnsharingStopsTheRunningUploadAndRefusesEveryEntryOfTheUser)
{
    BobOnline();
    mp_queue->SetUploadSpeedLimit(8);
    mp_queue->EnableUploadSpeedLimit(true);
    ItemPtr const l_big = SharedFile(QStringLiteral("big.bin"), Content(400000)), l_small = SharedFile(QStringLiteral("s.bin"), "x");
    SharedFile(QStringLiteral("done.bin"), "y");
    mp_bob->Send(Body(43).Str(PathOf(QStringLiteral("done.bin"))));
    ASSERT_TRUE(mp_bob->Take(40, 3000));
    Finish();
    quint32 l_req = 0;
    AskAndTakeRequest(PathOf(QStringLiteral("big.bin")), &l_req);
    mp_bob->Send(Body(43).Str(PathOf(QStringLiteral("s.bin"))));
    std::unique_ptr<PeerLink> lp_file = AcceptAndConnect(l_req);
    ASSERT_TRUE(lp_file);
    EXPECT_EQ(lp_file->TakeRaw(4).size(), 4);
    lp_file->SendRaw(Offset(0));
    EXPECT_EQ(lp_file->TakeRaw(8192).size(), 8192);
    ASSERT_EQ(UploadStatus(Entry("bob", l_small)), "queued");

    mp_queue->UnshareUser("bob");
    EXPECT_EQ(d.GetType("upload_entry")->ItemCount(), 0u);
    EXPECT_EQ(Count("upload_thread") + Count("upload_socket") + Count("upload_file") + Count("read_position"), 0u);
    EXPECT_TRUE(User("bob")["unshared"]);
    QByteArrayList l_refused;
    for (int l_count = 0; l_count < 3; ++l_count)
        if (std::optional<Fields> l_message = mp_bob->Take(50, 3000))
        {
            QByteArray const l_file = l_message->Str();
            l_refused << l_file + '|' + l_message->Str();
        }
    std::sort(l_refused.begin(), l_refused.end());
    EXPECT_EQ(l_refused, (QByteArrayList{PathOf(QStringLiteral("big.bin")) + "|File not shared.",
                                         PathOf(QStringLiteral("done.bin")) + "|File not shared.",
                                         PathOf(QStringLiteral("s.bin")) + "|File not shared."}));
    EXPECT_TRUE(lp_file->WaitClosed());

    mp_bob->Send(Body(43).Str(PathOf(QStringLiteral("s.bin"))));
    EXPECT_EQ(DeniedReason(*mp_bob, PathOf(QStringLiteral("s.bin"))), "File not shared.");
    mp_queue->ReshareUser("bob");
    EXPECT_FALSE(User("bob")["unshared"]);
    EXPECT_EQ(d.GetType("upload_entry")->ItemCount(), 0u);
    EXPECT_FALSE(Entry("bob", l_big));
}
