#pragma once

#include <QTemporaryDir>

#include "shares/SharedFoldersManager.h"
#include "transfers/QueueFixture.h"
#include "transfers/TransferSupport.h"

// Alice as the uploader: her queue and a public share of real files in a temporary folder,
// with bob, the downloader, played by hand over loopback.
class UploadTest : public QueueTest
{
protected:
    void SetUp() override
    {
        QueueTest::SetUp();
        // File connections belong to the queue, not to the messenger fixture's recorder.
        QObject::disconnect(mp_messenger.get(), &PeerMessenger::FileConnectionAccepted, mp_messenger.get(), nullptr);
        mp_shares = std::make_unique<SharedFoldersManager>();
        mp_queue->SetUploadTimeout(1500);
        ASSERT_TRUE(m_share.isValid());
        Share(m_share.path(), "public");
    }
    void TearDown() override
    {
        mp_queue.reset();
        mp_shares.reset();
        QueueTest::TearDown();
    }

    // A shared folder open to "public" or to the user list group of that name.
    static void Share(QString const& i_path, std::string const& i_access)
    {
        ItemPtr const l_share = d.GetType("shared_folder")->GetItem(Value(i_path.toStdString()));
        l_share += i_access == "public" ? d.GetType("shared_public")->GetGlobalNullItem()
                                        : d.GetType("user_list_group")->GetItem(Value(i_access));
    }
    // A file on disk and in a share, the public one unless i_root names another; i_sub names a
    // folder under the shared one.
    ItemPtr SharedFile(QString const& i_name, QByteArray const& i_bytes, QString const& i_sub = QString(),
                       QString i_root = QString())
    {
        if (i_root.isEmpty())
            i_root = m_share.path();
        QString const l_folder = i_sub.isEmpty() ? i_root : i_root + QLatin1Char('/') + i_sub;
        QDir().mkpath(l_folder);
        QFile l_file(l_folder + QLatin1Char('/') + i_name);
        EXPECT_TRUE(l_file.open(QIODevice::WriteOnly));
        l_file.write(i_bytes);
        ItemPtr const l_folderItem = d.GetType("shared_file_folder")->GetItem(Value(l_folder.toStdString()));
        l_folderItem += d.GetType("shared_folder")->GetItem(Value(i_root.toStdString()));
        ItemPtr const l_item = l_folderItem.NewItem("shared_file");
        l_item += d.GetType("shared_file_name")->GetItem(Value(i_name.toStdString()));
        l_item += d.GetType("shared_file_size")->GetItem(Value(static_cast<long long>(i_bytes.size())));
        return l_item;
    }
    // The path by which a peer asks for a file of the share.
    QByteArray PathOf(QString const& i_name) const { return m_share.filePath(i_name).toUtf8(); }

    static void Online(QByteArray const& i_user)
    {
        if (!User(i_user).HasItem("is_online"))
            User(i_user).NewItem("is_online");
    }
    void Ask(QByteArray const& i_user, QByteArray const& i_path)
    {
        mp_queue->OnQueueUploadRequested(i_user.toStdString(), i_path.toStdString());
    }
    static ItemPtr Entry(QByteArray const& i_user, ItemPtr i_file) { return TransferQueueManager::GetUploadEntry(User(i_user), i_file); }
    static std::string UploadStatus(ItemPtr i_entry) { return TransferQueueManager::UploadStatusOf(i_entry); }
    static long long Number(ItemPtr i_entry, char const* i_type) { return DecimalOf(i_entry[i_type].AsString()).value_or(-1); }
    // The one entry in an active status, or none.
    static ItemPtr Running()
    {
        ItemPtr l_found;
        for (Item* lp_entry : d.GetType("upload_entry")->GetItems())
            if (ItemPtr(lp_entry)["upload_entry_status"]["is_active"])
            {
                EXPECT_FALSE(l_found) << "two uploads are active";
                l_found = lp_entry;
            }
        return l_found;
    }
    // Ends the running upload as its thread would, and starts the next.
    void Finish(char const* i_status = "complete")
    {
        ItemPtr const l_running = Running();
        ASSERT_TRUE(l_running);
        mp_queue->SetUploadEntryStatus(l_running, i_status);
        mp_queue->StartNewUploads();
    }

    // Bob asks over his messaging link and gets the transfer request; its number goes to o_req.
    Fields AskAndTakeRequest(QByteArray const& i_path, quint32* o_req = nullptr)
    {
        mp_bob->Send(Body(43).Str(i_path));
        std::optional<Fields> l_request = mp_bob->Take(40, 3000);
        EXPECT_TRUE(l_request);
        Fields l_fields = l_request.value_or(Fields(QByteArray()));
        EXPECT_EQ(l_fields.U32(), 1u);
        quint32 const l_req = l_fields.U32();
        if (o_req)
            *o_req = l_req;
        return l_fields;
    }
    // Bob accepts; alice then dials his listener for the file connection.
    std::unique_ptr<PeerLink> AcceptAndConnect(quint32 i_req)
    {
        SetAddress("bob", m_bob.ListenPort());
        mp_bob->Send(Body(41).U32(i_req).U8(1));
        return AcceptGreeting("F");
    }
    // The reason of the next message 50, checked against the file named.
    QByteArray DeniedReason(PeerLink& i_link, QByteArray const& i_file)
    {
        std::optional<Fields> l_message = i_link.Take(50, 3000);
        if (!l_message)
            return "<none>";
        EXPECT_EQ(l_message->Str(), i_file);
        return l_message->Str();
    }

    QTemporaryDir m_share;
    std::unique_ptr<SharedFoldersManager> mp_shares;
};
