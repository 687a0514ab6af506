#include <gtest/gtest.h>

#include <QFile>
#include <QSignalSpy>
#include <QElapsedTimer>
#include <QStringList>
#include <QTemporaryDir>
#include <QThread>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>

#include "peer/PeerSchema.h"
#include "server/ServerSchema.h"
#include "shares/SharedFoldersManager.h"
#include "store/Data.h"
#include "store/DataSaver.h"
#include "store/Log.h"
#include "support/MP3Frames.h"
#include "support/WaitFor.h"

namespace fs = std::filesystem;

// A manager on the process's one graph, whose types are declared once, with a temporary folder
// tree to share; every item is removed after each test.
class ShareWalkTest : public ::testing::Test
{
protected:
    static bool DeclareTypes()
    {
        static bool const s_declared = [] { return new DataSaver(), DeclareServerSchema(), DeclarePeerSchema(), true; }();
        return s_declared;
    }
    void SetUp() override
    {
        SetLogSink([this](QString const& i_area, int i_level, QString const& i_text, ItemPtr)
                   { m_log << QStringLiteral("%1|%2|%3").arg(i_area).arg(i_level).arg(i_text); });
        mp_manager->Init();
    }
    void TearDown() override
    {
        mp_manager.reset();
        SetLogSink(nullptr);
        for (auto const& l_entry : d.Types())
            l_entry.second->GetItems().Remove();
        // By bytes: the temporary folder's own clean-up passes over names that are not UTF-8.
        std::error_code l_ignored;
        fs::permissions(m_root, fs::perms::owner_all, l_ignored);
        fs::remove_all(m_root, l_ignored);
    }

    void Write(std::string const& i_path, std::string const& i_bytes = "abc")
    {
        fs::create_directories(fs::path(i_path).parent_path());
        std::ofstream(i_path, std::ios::binary) << i_bytes;
    }
    // Shares the folder and waits for its walk.
    ItemPtr Share(std::string const& i_path)
    {
        ItemPtr const l_folder = d.GetType("shared_folder")->GetItem(Value(i_path));
        EXPECT_TRUE(WaitFor([this] { return !mp_manager->IsScanning(); }));
        return l_folder;
    }
    std::pair<int, int> Rescan()
    {
        QSignalSpy l_done(mp_manager.get(), &SharedFoldersManager::SharedFilesRescanned);
        mp_manager->RescanShares();
        EXPECT_TRUE(WaitFor([&] { return l_done.count() == 1; }));
        return l_done.isEmpty() ? std::pair(-1, -1) : std::pair(l_done[0][0].toInt(), l_done[0][1].toInt());
    }
    static ItemPtr Folder(std::string const& i_path) { return d.GetType("shared_file_folder")->HasItem(Value(i_path)); }
    static Item* FileAt(std::string const& i_folder, std::string const& i_name)
    {
        ItemPtr const l_name = d.GetType("shared_file_name")->HasItem(Value(i_name));
        return Folder(i_folder) && l_name ? d.GetItem(Folder(i_folder), l_name, "shared_file") : ItemPtr();
    }
    static std::string SizeOf(Item* ip_file) { return ItemPtr(ip_file).HasItem("shared_file_size").AsString(); }
    static std::set<std::string> Keys(ItemSet const& i_items)
    {
        std::set<std::string> l_keys;
        for (Item* lp_item : i_items)
            l_keys.insert(lp_item->AsString());
        return l_keys;
    }

    QTemporaryDir m_dir;
    std::string const m_root = m_dir.path().toStdString();
    QStringList m_log;
    bool const m_typesDeclared = DeclareTypes();
    std::unique_ptr<SharedFoldersManager> mp_manager = std::make_unique<SharedFoldersManager>();
    QSignalSpy m_mp3{mp_manager.get(), &SharedFoldersManager::MP3ScanRequired};
};

TEST_F(ShareWalkTest, TokensComeFromBothPassesOverTheLowerCasedPath)
{
    auto const l_tokensOf = [](std::string const& i_folder, std::string const& i_name)
    {
        ItemPtr const l_file = d.GetType("shared_file")->NewItem();
        l_file += d.GetType("shared_file_folder")->GetItem(Value(i_folder));
        l_file += d.GetType("shared_file_name")->GetItem(Value(i_name));
        sharedFoldersManager->TokenizeSharedFile(l_file);
        return Keys(l_file.GetItems("search_token"));
    };
    EXPECT_EQ(l_tokensOf("/M/Up-Down", "One Two.MP3"),
              (std::set<std::string>{"m", "up", "down", "one", "two", "mp3", "up-down", "two.mp3"}));
    // Bytes of multi-byte characters neither separate nor change case; only ASCII letters do.
    EXPECT_EQ(l_tokensOf("/x", "Caf\xC3\xA9-\xC3\x89T\xC3\xA9"),
              (std::set<std::string>{"x", "caf\xC3\xA9", "\xC3\x89t\xC3\xA9", "caf\xC3\xA9-\xC3\x89t\xC3\xA9"}));

    std::string const l_kept = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
    for (int l_byte = 0; l_byte < 256; ++l_byte)
        EXPECT_EQ(SharedFoldersManager::IsSearchTokenSeparator(static_cast<unsigned char>(l_byte)),
                  l_byte < 0x80 && l_kept.find(static_cast<char>(l_byte)) == std::string::npos)
            << l_byte;
}

TEST_F(ShareWalkTest, WalkKeepsFilesAndFoldersSkipsHiddenAndOtherEntriesAndFollowsLinks)
{
    // The shared folder itself may be hidden; what is hidden below it is not shared.
    std::string const l_share = m_root + "/.music";
    std::string const l_notUtf8 = "n\xff\xfe.txt";
    for (char const* lp_file : {"/a.mp3", "/B.MP3", "/c.Mp3", "/x.mp3x", "/.hidden.mp3", "/.secret/in.txt", "/n\xff\xfe.txt"})
        Write(l_share + lp_file);
    Write(l_share + "/sub/deep/d.txt", "12345");
    fs::create_directories(l_share + "/empty");
    QFile l_big(QString::fromStdString(m_root + "/big.bin"));
    ASSERT_TRUE(l_big.open(QIODevice::WriteOnly) && l_big.resize(5LL << 30)); // sparse
    fs::create_symlink(m_root + "/big.bin", l_share + "/big-link");
    fs::create_symlink(l_share + "/sub", l_share + "/sub-link");
    fs::create_symlink(m_root + "/nowhere", l_share + "/broken");
    ASSERT_EQ(::mkfifo((l_share + "/fifo").c_str(), 0600), 0);
    Share(l_share);

    EXPECT_TRUE(m_log.contains(QString::fromStdString("Shared|1|Adding folder " + l_share + "/sub/deep as part of sharing " + l_share)));
    // Every folder, the empty one too, hangs straight off the share; a linked folder under the
    // link's own path.
    std::set<std::string> const l_expected{l_share, l_share + "/sub", l_share + "/sub/deep", l_share + "/empty",
                                           l_share + "/sub-link", l_share + "/sub-link/deep"};
    EXPECT_EQ(Keys(d.GetType("shared_folder")->HasItem(Value(l_share)).GetItems("shared_file_folder")), l_expected);
    EXPECT_EQ(d.GetType("shared_file_folder")->ItemCount(), l_expected.size());
    EXPECT_EQ(Keys(Folder(l_share).GetItems("shared_file").GetItems("shared_file_name")), (std::set<std::string>{"a.mp3", "B.MP3", "c.Mp3", "x.mp3x", "big-link", l_notUtf8}));
    // A name that is not UTF-8 keeps its bytes, so the file opens again.
    EXPECT_EQ(::access((l_share + "/" + ItemPtr(FileAt(l_share, l_notUtf8)).HasItem("shared_file_name").AsString()).c_str(), R_OK), 0);
    EXPECT_EQ(SizeOf(FileAt(l_share, "big-link")), "5368709120");
    EXPECT_EQ(SizeOf(FileAt(l_share + "/sub-link/deep", "d.txt")), "5");
    QStringList l_scans;
    for (QList<QVariant> const& l_call : m_mp3)
        l_scans << l_call[0].toString();
    l_scans.sort();
    EXPECT_EQ(l_scans, QStringList({QString::fromStdString(l_share + "/B.MP3"), QString::fromStdString(l_share + "/a.mp3")}));
}

TEST_F(ShareWalkTest, KnownFilesKeepTheirItemsSizesAndScanResults)
{
    // A share reached through a link keeps the link's path in its keys, so that a file read
    // from the data file is known again.
    fs::create_directories(m_root + "/real");
    fs::create_symlink(m_root + "/real", m_root + "/link");
    std::string const l_share = m_root + "/link";
    Write(l_share + "/saved.mp3", "longer than before");
    ItemPtr const l_saved = d.GetType("shared_file")->NewItem();
    l_saved += d.GetType("shared_file_folder")->GetItem(Value(l_share));
    l_saved += d.GetType("shared_file_name")->GetItem(Value("saved.mp3"));
    l_saved += d.GetType("shared_file_size")->GetItem(Value("1"));
    l_saved += d.GetType("is_scanned")->GetGlobalNullItem();
    Write(l_share + "/gone.txt");
    Share(l_share);
    EXPECT_EQ(FileAt(l_share, "saved.mp3"), l_saved.Get());
    EXPECT_EQ(SizeOf(l_saved), "1");
    EXPECT_TRUE(m_mp3.isEmpty());
    EXPECT_TRUE(Keys(l_saved.GetItems("search_token")).count("saved.mp3"));

    ASSERT_TRUE(FileAt(l_share, "gone.txt"));
    fs::remove(l_share + "/gone.txt");
    Write(l_share + "/new.txt");
    EXPECT_EQ(Rescan(), std::pair(1, 1));
    EXPECT_EQ(FileAt(l_share, "saved.mp3"), l_saved.Get());
    EXPECT_TRUE(l_saved.IsConnected("is_scanned"));
    EXPECT_FALSE(FileAt(l_share, "gone.txt"));
}

TEST_F(ShareWalkTest, LinkCyclesAreNotEntered)
{
    fs::create_directories(m_root + "/a");
    fs::create_symlink(m_root + "/a", m_root + "/a/loop");
    fs::create_symlink(m_root, m_root + "/up");
    Write(m_root + "/a/f.txt");
    Share(m_root);
    EXPECT_TRUE(m_log.contains(QString::fromStdString("Shared|2|Skipping folder " + m_root + "/a/loop: it links back to " + m_root + "/a")));
    EXPECT_TRUE(m_log.contains(QString::fromStdString("Shared|2|Skipping folder " + m_root + "/up: it links back to " + m_root)));
    EXPECT_EQ(d.GetType("shared_file_folder")->ItemCount(), 2u);
    EXPECT_EQ(d.GetType("shared_file")->ItemCount(), 1u);
}

TEST_F(ShareWalkTest, UnreadableAndVanishedFoldersReadAsEmpty)
{
    std::string const l_share = m_root + "/share";
    Write(l_share + "/locked/in.txt");
    Write(l_share + "/top.txt");
    Share(l_share);
    ASSERT_EQ(d.GetType("shared_file")->ItemCount(), 2u);
    // As root, a mode of 000 does not stop reading: the check needs an ordinary user.
    if (::geteuid() != 0)
    {
        ::chmod((l_share + "/locked").c_str(), 0);
        EXPECT_EQ(Rescan(), std::pair(0, 1));
        ::chmod((l_share + "/locked").c_str(), 0700);
        EXPECT_TRUE(Folder(l_share + "/locked").IsConnected(d.GetType("shared_folder")->HasItem(Value(l_share))));
        EXPECT_EQ(Rescan(), std::pair(1, 0));
    }
    fs::remove_all(l_share);
    EXPECT_EQ(Rescan(), std::pair(0, 2));
    EXPECT_TRUE(d.GetType("shared_folder")->HasItem(Value(l_share)));
    EXPECT_EQ(d.GetType("shared_file")->ItemCount(), 0u);
    EXPECT_EQ(d.GetType("shared_file_folder")->ItemCount(), 1u);

    // Keys from the data file are untrusted: one that is not an absolute path is not walked.
    Share("");
    Share("relative");
    EXPECT_EQ(Rescan(), std::pair(0, 0));
    EXPECT_EQ(m_log.filter(QStringLiteral("not an absolute path")).size(), 4);
    EXPECT_EQ(d.GetType("shared_file_folder")->ItemCount(), 1u);
}

TEST_F(ShareWalkTest, AFolderReachedThroughTwoSharesIsOneFolderCountedOnce)
{
    Write(m_root + "/common/a.txt");
    ItemPtr const l_outer = Share(m_root);
    ItemPtr const l_inner = Share(m_root + "/common");
    ItemPtr const l_common = Folder(m_root + "/common");
    EXPECT_TRUE(l_common.IsConnected(l_outer) && l_common.IsConnected(l_inner));
    Write(m_root + "/common/b.txt");
    EXPECT_EQ(Rescan(), std::pair(1, 0));
    EXPECT_EQ(d.GetType("shared_file")->ItemCount(), 2u);
}

TEST_F(ShareWalkTest, LookUpByPathIgnoresCaseAndDoubledSeparatorsButNotBackslashes)
{
    Write(m_root + "/Sub/File.TXT");
    Share(m_root);
    Item* lp_file = FileAt(m_root + "/Sub", "File.TXT");
    ASSERT_TRUE(lp_file);
    EXPECT_EQ(mp_manager->GetSharedFileItem(m_root + "/sub/FILE.txt").Get(), lp_file);
    EXPECT_EQ(mp_manager->GetSharedFileItem(m_root + "//Sub//File.TXT").Get(), lp_file);
    std::string l_backslashed = m_root + "/Sub/File.TXT";
    std::replace(l_backslashed.begin(), l_backslashed.end(), '/', '\\');
    EXPECT_FALSE(mp_manager->GetSharedFileItem(l_backslashed));
}

TEST_F(ShareWalkTest, WalksLiveWithChangesMadeWhileTheyRun)
{
    for (int l_folder = 0; l_folder < 20; ++l_folder)
        for (int l_file = 0; l_file < 100; ++l_file)
            Write(m_root + "/a/" + std::to_string(l_folder) + "/" + std::to_string(l_file));
    Write(m_root + "/b/one.txt");
    QSignalSpy l_rescanned(mp_manager.get(), &SharedFoldersManager::SharedFilesRescanned);
    QSignalSpy l_progress(mp_manager.get(), &SharedFoldersManager::ScanProgress);

    // Unshared before its results arrive: nothing of it reaches the graph.
    d.GetType("shared_folder")->GetItem(Value(m_root + "/a"))->Remove();
    ASSERT_TRUE(WaitFor([this] { return !mp_manager->IsScanning(); }));
    EXPECT_EQ(d.GetType("shared_file")->ItemCount(), 0u);
    EXPECT_FALSE(d.GetType("shared_folder")->HasItem(Value(m_root + "/a")));

    // Two rescans asked for during a walk run once, after it; all its files are known by then.
    d.GetType("shared_folder")->GetItem(Value(m_root + "/a"));
    mp_manager->RescanShares();
    mp_manager->RescanShares();
    ASSERT_TRUE(WaitFor([&] { return l_rescanned.count() == 1; }));
    EXPECT_EQ(l_rescanned[0], (QList<QVariant>{0, 0}));

    // A folder shared during a rescan is walked in turn and not counted.
    Write(m_root + "/a/new.txt");
    mp_manager->RescanShares();
    d.GetType("shared_folder")->GetItem(Value(m_root + "/b"));
    ASSERT_TRUE(WaitFor([&] { return l_rescanned.count() == 2 && !mp_manager->IsScanning(); }));
    EXPECT_FALSE(WaitFor([&] { return l_rescanned.count() > 2; }, 300));
    EXPECT_EQ(l_rescanned[1], (QList<QVariant>{1, 0}));
    EXPECT_TRUE(FileAt(m_root + "/b", "one.txt"));
    EXPECT_EQ(l_progress.last(), (QList<QVariant>{2002, 22, false}));

    // Destroyed in the middle of a walk: the worker stops and is waited for.
    d.GetType("shared_folder")->GetItem(Value(m_root + "/c"));
    mp_manager.reset();
}

TEST_F(ShareWalkTest, ScanResultsReachTheFilesOnTheMainThreadAndQuittingDoesNotWaitForAScan)
{
    bool l_loggedElsewhere = false;
    SetLogSink([&](QString const& i_area, int i_level, QString const& i_text, ItemPtr)
               {
                   l_loggedElsewhere |= QThread::currentThread() != mp_manager->thread();
                   m_log << QStringLiteral("%1|%2|%3").arg(i_area).arg(i_level).arg(i_text);
               });
    std::string const l_share = m_root + "/music";
    std::string l_constant, l_variable;
    MP3Frames::Append(l_constant, MP3Frames::Frame{}, 300);
    MP3Frames::Append(l_variable, MP3Frames::Frame{.m_bitrate = 128}, 100);
    MP3Frames::Append(l_variable, MP3Frames::Frame{.m_bitrate = 192}, 100);
    std::string const l_nordicName = "\xC3\x86r\xC3\xB8 \xE2\x80\x93 S\xC3\xB8ndag p\xC3\xA5 fj\xC3\xB6r\xC3\xB0.mp3";
    Write(l_share + "/" + l_nordicName, l_constant);
    Write(l_share + "/variable.MP3", l_variable);
    Write(l_share + "/text.mp3", "no frames in here");
    Share(l_share);

    Item* const lp_scanned = d.GetType("is_scanned")->GetGlobalNullItem();
    ASSERT_TRUE(WaitFor([&] { return lp_scanned->ConnectedOfType(d.GetType("shared_file")).size() == 2; }));
    ItemPtr const l_nordic = FileAt(l_share, l_nordicName);
    auto const l_rate = [](ItemPtr i_file) { return i_file.HasItem("bitrate").AsString() + " " + i_file.HasItem("bitrate_mode").AsString(); };
    EXPECT_EQ(l_rate(l_nordic), "128 cbr");
    EXPECT_EQ(l_rate(FileAt(l_share, "variable.MP3")), "160 vbr");
    // The attribute text of a file of the own share, which has no length.
    EXPECT_EQ(SharedFoldersManager::GetFileItemDisplayString(l_nordic), QStringLiteral("128 CBR"));
    EXPECT_EQ(l_nordic.HasItem("mpeg_version").AsString(), "1");
    EXPECT_EQ(l_nordic.HasItem("channel_mode").AsString(), "joint stereo");
    EXPECT_EQ(l_nordic.HasItem("audio_frequency").AsString(), "0");
    EXPECT_TRUE(m_log.contains(QStringLiteral("MP3 Scanning|1|Scanned ") + QString::fromUtf8(l_share + "/" + l_nordicName)));

    // Asked again, the answer waits for the event loop; it comes after the text file's, which
    // gave none.
    l_nordic -= lp_scanned;
    int const l_lines = m_log.size();
    emit mp_manager->MP3ScanRequired(QString::fromLatin1(l_share + "/" + l_nordicName));
    EXPECT_EQ(m_log.size(), l_lines);
    EXPECT_FALSE(l_nordic.HasItem("is_scanned"));
    ASSERT_TRUE(WaitFor([&] { return bool(l_nordic.HasItem("is_scanned")); }));
    EXPECT_FALSE(ItemPtr(FileAt(l_share, "text.mp3")).HasItem("is_scanned"));
    EXPECT_EQ(m_log.filter(QStringLiteral("Scanned")).size(), 3) << m_log.join(u'\n').toStdString();
    EXPECT_FALSE(l_loggedElsewhere);

    // A file far too large to read while the test waits: sparse, zeros from end to end.
    QFile l_huge(QString::fromStdString(m_root + "/huge.mp3"));
    ASSERT_TRUE(l_huge.open(QIODevice::WriteOnly) && l_huge.resize(64LL << 30));
    emit mp_manager->MP3ScanRequired(l_huge.fileName());
    QThread::msleep(200);
    QElapsedTimer l_clock;
    l_clock.start();
    mp_manager.reset();
    EXPECT_LT(l_clock.elapsed(), 5000);
}
