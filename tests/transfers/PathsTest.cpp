#include "transfers/QueueFixture.h"

namespace
{
bool IsUtf8(std::string const& i_text)
{
    return QString::fromUtf8(i_text).toUtf8().toStdString() == i_text;
}
} // namespace

TEST_F(QueueTest, LocalPathsUseTheLastFolderComponentOnly)
{
    QString const l_base = m_folder.path().replace(QLatin1Char('/'), QLatin1Char('\\'));
    ItemPtr const l_album = Add("music\\albums\\one", "a.mp3");
    EXPECT_EQ(mp_queue->GetDownloadTargetPath(l_album, false), l_base + QStringLiteral("\\downloading\\one\\a.mp3"));
    EXPECT_EQ(mp_queue->GetDownloadTargetPath(l_album, true), l_base + QStringLiteral("\\complete\\one\\a.mp3"));
    EXPECT_EQ(mp_queue->GetDownloadTargetFolder(Add("", "b.mp3"), false), l_base + QStringLiteral("\\downloading"));
    EXPECT_EQ(mp_queue->GetDownloadTargetFolder(Add("single", "c.mp3"), true), l_base + QStringLiteral("\\complete\\single"));
    EXPECT_EQ(mp_queue->GetDownloadTargetFolder(Add("music\\two\\", "d.mp3"), true), l_base + QStringLiteral("\\complete\\two"));
    EXPECT_EQ(mp_queue->GetDownloadTargetFolder(Add("x/three/", "e.mp3"), true), l_base + QStringLiteral("\\complete\\three"));
}

TEST_F(QueueTest, HostileFoldersGiveNoSubFolderOrATamedOne)
{
    for (char const* lp_folder : {"..", "a\\..", "...", "C:\\", "\\", "/", "music\\.\\", "\\\\srv\\.."})
        EXPECT_EQ(DownloadPath::SubFolder(lp_folder), "") << lp_folder;
    EXPECT_EQ(DownloadPath::SubFolder("/etc"), "etc");
    EXPECT_EQ(DownloadPath::SubFolder("C:\\Users\\..x"), "..x");
    EXPECT_EQ(DownloadPath::SubFolder(std::string("a\x01\x1f\x7f" "b\0c", 7)), "a___b_c");
}

TEST_F(QueueTest, UnusableFileNamesAreRefusedWithoutAnyItem)
{
    std::size_t const l_names = Count("file_name");
    for (std::string const& l_name : {std::string(), std::string(".."), std::string("."), std::string("a/b"), std::string("a\\b"),
                                     std::string("a\0b", 3), std::string("../../.profile")})
    {
        mp_queue->AddDownload("bob", l_name, "music", 10);
        EXPECT_TRUE(QueueLogged(QStringLiteral("1|Refused download of %1 from bob: unusable file name").arg(QString::fromStdString(l_name))))
            << l_name;
    }
    mp_queue->AddDownload("bob", "fine.mp3", "music", -1);
    EXPECT_TRUE(QueueLogged(QStringLiteral("1|Refused download of fine.mp3 from bob: negative size -1")));
    EXPECT_EQ(Count("download_entry"), 0u);
    EXPECT_EQ(Count("file_name"), l_names);
}

TEST_F(QueueTest, LongAndControlNamesStayInsideTheTwoFolders)
{
    std::string l_accents;
    for (int l_index = 0; l_index < 150; ++l_index)
        l_accents += "\xc3\xa9";
    std::string const l_long = DownloadPath::TameComponent(l_accents + ".flac");
    EXPECT_LE(l_long.size(), 255u);
    EXPECT_TRUE(l_long.ends_with(".flac"));
    EXPECT_TRUE(IsUtf8(l_long));
    EXPECT_EQ(DownloadPath::TameComponent("a\tb\x7f.mp3"), "a_b_.mp3");

    std::string const l_base = m_folder.path().toStdString();
    for (auto const& [l_folder, l_name] : {std::pair<std::string, std::string>{"..\\..", "x"}, {"a\\" + l_accents, l_accents + ".mp3"},
                                           {"C:\\", "y"}, {"/", "z"}, {"q\\\x01", "\x02"}})
        for (bool const l_complete : {false, true})
        {
            DownloadPath const l_path(l_base, l_folder, l_name, l_complete);
            ASSERT_TRUE(l_path.IsValid()) << l_folder;
            QString const l_root = QString::fromStdString(l_base) + (l_complete ? QStringLiteral("/complete/") : QStringLiteral("/downloading/"));
            EXPECT_TRUE(l_path.File().startsWith(l_root)) << l_path.File().toStdString();
            EXPECT_EQ(QDir::cleanPath(l_path.File()), l_path.File());
        }
    std::string const l_deep = std::string(4100, 'd');
    EXPECT_FALSE(DownloadPath(l_base + "/" + l_deep, "f", "name", false).IsValid());
    EXPECT_FALSE(DownloadPath(l_base, "f", "..", false).IsValid());
}

TEST_F(QueueTest, SameLocalNamesAreNumberedAndKeepTheirNumber)
{
    mp_queue->AddDownload("bob", "a.mp3", "x\\one", 10);
    mp_queue->AddDownload("carol", "a.mp3", "y\\one", 10);
    Write(QStringLiteral("downloading/one/a (3).mp3"), "foreign");
    mp_queue->AddDownload("dave", "a.mp3", "z\\one", 10);
    mp_queue->AddDownload("erin", "a.mp3", "z\\two", 10);
    QString const l_base = m_folder.path().replace(QLatin1Char('/'), QLatin1Char('\\')) + QStringLiteral("\\downloading\\");
    ItemPtr const l_carol = mp_queue->GetDownloadEntry("carol", "a.mp3", "y\\one");
    EXPECT_EQ(mp_queue->GetDownloadTargetPath(mp_queue->GetDownloadEntry("bob", "a.mp3", "x\\one"), false), l_base + QStringLiteral("one\\a.mp3"));
    EXPECT_EQ(mp_queue->GetDownloadTargetPath(l_carol, false), l_base + QStringLiteral("one\\a (2).mp3"));
    EXPECT_EQ(mp_queue->GetDownloadTargetPath(mp_queue->GetDownloadEntry("dave", "a.mp3", "z\\one"), false), l_base + QStringLiteral("one\\a (4).mp3"));
    EXPECT_EQ(mp_queue->GetDownloadTargetPath(mp_queue->GetDownloadEntry("erin", "a.mp3", "z\\two"), false), l_base + QStringLiteral("two\\a.mp3"));

    mp_queue->RemoveDownload(mp_queue->GetDownloadEntry("bob", "a.mp3", "x\\one"));
    EXPECT_EQ(mp_queue->GetDownloadTargetPath(l_carol, false), l_base + QStringLiteral("one\\a (2).mp3"));

    // A restart reads the name back from the data file.
    QString const l_file = m_folder.filePath(QStringLiteral("saved.dat"));
    ASSERT_TRUE(dataSaver->Save(&d, l_file.toLocal8Bit().constData()));
    mp_queue.reset();
    for (auto const& l_entry : d.Types())
        l_entry.second->GetItems().Remove();
    SetGlobal("download_folder", Value(m_folder.path().toStdString()));
    mp_queue = std::make_unique<TransferQueueManager>();
    dataSaver->Load(&d, l_file.toLocal8Bit().constData());
    EXPECT_EQ(mp_queue->GetDownloadTargetPath(mp_queue->GetDownloadEntry("carol", "a.mp3", "y\\one"), false),
              l_base + QStringLiteral("one\\a (2).mp3"));
}
