#pragma once

#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <memory>

#include "peer/PeerFixture.h"
#include "transfers/TransferQueueManager.h"

// Alice's transfer queue beside her peer messenger, downloading into a temporary folder, and
// bob, the uploader, played by hand over loopback. Lines of the queue's log are kept as
// "level|text".
class QueueTest : public PeerTest
{
protected:
    void SetUp() override
    {
        PeerTest::SetUp();
        ASSERT_TRUE(m_folder.isValid());
        SetGlobal("download_folder", Value(m_folder.path().toStdString()));
        // File connections belong to the queue, not to the messenger fixture's recorder.
        QObject::disconnect(mp_messenger.get(), &PeerMessenger::FileConnectionRequested, mp_messenger.get(), nullptr);
        mp_queue = std::make_unique<TransferQueueManager>();
        mp_queue->SetDownloadTimeout(3000);
        SetLogSink([this](QString const& i_area, int i_level, QString const& i_text, ItemPtr)
                   { if (i_area == QLatin1String("Transfer Queue")) m_queueLog << QStringLiteral("%1|%2").arg(i_level).arg(i_text); });
    }
    void TearDown() override
    {
        mp_queue.reset();
        mp_bob.reset();
        PeerTest::TearDown();
    }

    // Bob's messaging connection, with bob online.
    void BobOnline()
    {
        if (!mp_bob)
            mp_bob = OpenFrom("bob");
        if (!User("bob").HasItem("is_online"))
            User("bob").NewItem("is_online");
    }
    ItemPtr Add(std::string const& i_folder, std::string const& i_name, long long i_size = 10)
    {
        mp_queue->AddDownload("bob", i_name, i_folder, i_size);
        return mp_queue->GetDownloadEntry("bob", i_name, i_folder);
    }
    static std::string Status(ItemPtr i_entry) { return TransferQueueManager::StatusOf(i_entry); }
    // Bob offers an upload; the answer is message 41 after its code.
    QByteArray Offer(quint32 i_req, QByteArray const& i_path, quint64 i_size)
    {
        mp_bob->Send(Body(40).U32(1).U32(i_req).Str(i_path).U64(i_size));
        return mp_bob->TakeFrame(41).mid(4);
    }
    // Bob's file connection for a request; the offset alice sends goes to o_offset.
    std::unique_ptr<PeerLink> Connect(quint32 i_req, quint64* o_offset = nullptr)
    {
        std::unique_ptr<PeerLink> lp_link = DialIn();
        lp_link->SendGreeting("bob", "F");
        lp_link->SendBareU32(i_req);
        if (o_offset)
        {
            QByteArray const l_bytes = lp_link->TakeRaw(8);
            EXPECT_EQ(l_bytes.size(), 8);
            *o_offset = l_bytes.size() == 8 ? qFromLittleEndian<quint64>(l_bytes.constData()) : ~0ULL;
        }
        return lp_link;
    }
    // Bob's file connection for a file "f\\a" of 30000 bytes that he offered as request 1.
    std::unique_ptr<PeerLink> StartTransfer(ItemPtr& o_entry)
    {
        BobOnline();
        o_entry = Add("f", "a", 30000);
        EXPECT_FALSE(Offer(1, "f\\a", 30000).isEmpty());
        return Connect(1);
    }
    // Bytes whose every position differs from its neighbours, so a shifted or cut copy shows.
    static QByteArray Content(int i_size)
    {
        QByteArray l_bytes(i_size, '\0');
        for (int l_index = 0; l_index < i_size; ++l_index)
            l_bytes[l_index] = static_cast<char>(l_index * 7 + l_index / 251);
        return l_bytes;
    }
    QString Local(QString const& i_relative) const { return m_folder.filePath(i_relative); }
    void Write(QString const& i_relative, QByteArray const& i_bytes) const
    {
        QDir().mkpath(QFileInfo(Local(i_relative)).path());
        QFile l_file(Local(i_relative));
        ASSERT_TRUE(l_file.open(QIODevice::WriteOnly));
        l_file.write(i_bytes);
    }
    QByteArray Read(QString const& i_relative) const
    {
        QFile l_file(Local(i_relative));
        return l_file.open(QIODevice::ReadOnly) ? l_file.readAll() : QByteArray("<none>");
    }
    bool QueueLogged(QString const& i_line) const { return m_queueLog.contains(i_line); }

    QTemporaryDir m_folder;
    std::unique_ptr<TransferQueueManager> mp_queue;
    std::unique_ptr<PeerLink> mp_bob;
    QStringList m_queueLog;
};
