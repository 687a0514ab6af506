// What the tree installs and the Debian package made of it: exactly the expected files, a valid
// desktop entry and AppStream description, readable manual pages, programs that start from
// where they were installed, and a package that installs on this machine and passes lintian.
#include <gtest/gtest.h>

#include <QDir>
#include <QDirIterator>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <optional>

#include <unistd.h>

namespace
{
struct ProgramRun
{
    int m_exitCode = -1;
    QByteArray m_output;
};

// Runs a program to its end within two minutes; its standard output and error together.
ProgramRun RunProgram(QString const& i_program, QStringList const& i_arguments, QProcessEnvironment const& i_environment = QProcessEnvironment::systemEnvironment())
{
    QProcess l_process;
    l_process.setProcessChannelMode(QProcess::MergedChannels);
    l_process.setProcessEnvironment(i_environment);
    l_process.start(i_program, i_arguments);
    if (!l_process.waitForFinished(120000))
    {
        l_process.kill();
        l_process.waitForFinished();
        return {-1, l_process.readAll() + "\n(timed out)"};
    }
    ProgramRun l_run{l_process.exitStatus() == QProcess::NormalExit ? l_process.exitCode() : -1, l_process.readAll()};
    return l_run;
}

// The installed files, relative to the root they were installed under, with the paths the
// build configured.
QStringList ExpectedFiles()
{
    QString const l_prefix = QStringLiteral(TIDEWICK_INSTALL_PREFIX);
    QString const l_id = QStringLiteral("org.tidewick.Tidewick");
    QString l_unitDir = QStringLiteral(TIDEWICK_UNIT_DIR);
    if (QDir::isRelativePath(l_unitDir))
        l_unitDir = l_prefix + QLatin1Char('/') + l_unitDir;
    QStringList l_files = {
        l_prefix + QStringLiteral("/bin/tidewick"),
        l_prefix + QStringLiteral("/bin/tidewick-central"),
        l_prefix + QStringLiteral("/share/applications/") + l_id + QStringLiteral(".desktop"),
        l_prefix + QStringLiteral("/share/metainfo/") + l_id + QStringLiteral(".metainfo.xml"),
        l_prefix + QStringLiteral("/share/icons/hicolor/scalable/apps/") + l_id + QStringLiteral(".svg"),
        l_prefix + QStringLiteral("/share/man/man1/tidewick.1.gz"),
        l_prefix + QStringLiteral("/share/man/man1/tidewick-central.1.gz"),
        l_prefix + QStringLiteral("/share/doc/tidewick/copyright"),
        l_prefix + QStringLiteral("/share/doc/tidewick/changelog.gz"),
        l_unitDir + QStringLiteral("/tidewick-central.service"),
        QStringLiteral(TIDEWICK_SYSCONF_DIR) + QStringLiteral("/default/tidewick-central"),
    };
    for (int l_size : {16, 22, 24, 32, 48, 64, 128, 256})
        l_files << l_prefix + QStringLiteral("/share/icons/hicolor/%1x%1/apps/").arg(l_size) + l_id + QStringLiteral(".png");
    for (QString& l_file : l_files)
        l_file = QDir::cleanPath(l_file);
    l_files.sort();
    return l_files;
}

QStringList FilesUnder(QString const& i_root)
{
    QStringList l_files;
    QDirIterator l_walk(i_root, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
    while (l_walk.hasNext())
        l_files << l_walk.next().mid(i_root.size());
    l_files.sort();
    return l_files;
}

// A tool the tests need, or nothing with the reason to skip.
std::optional<QString> Tool(char const* i_name)
{
    QString const l_path = QStandardPaths::findExecutable(QString::fromLatin1(i_name));
    if (l_path.isEmpty())
        return std::nullopt;
    return l_path;
}

// The PNG's width and height, read from its header.
std::pair<int, int> PngSize(QString const& i_file)
{
    QFile l_file(i_file);
    if (!l_file.open(QIODevice::ReadOnly))
        return {0, 0};
    QByteArray const l_head = l_file.read(24);
    if (l_head.size() < 24 || !l_head.startsWith("\x89PNG"))
        return {0, 0};
    auto l_word = [&](int i_at) {
        return (uchar(l_head[i_at]) << 24) | (uchar(l_head[i_at + 1]) << 16) | (uchar(l_head[i_at + 2]) << 8) | uchar(l_head[i_at + 3]);
    };
    return {l_word(16), l_word(20)};
}
} // namespace

TEST(Installation, PutsExactlyTheExpectedFilesInPlaceAndEachIsValid)
{
    QTemporaryDir l_root;
    QProcessEnvironment l_environment = QProcessEnvironment::systemEnvironment();
    l_environment.insert(QStringLiteral("DESTDIR"), l_root.path());
    ProgramRun const l_install = RunProgram(QStringLiteral(CMAKE_COMMAND_PATH), {QStringLiteral("--install"), QStringLiteral(TIDEWICK_BINARY_DIR)}, l_environment);
    ASSERT_EQ(l_install.m_exitCode, 0) << l_install.m_output.toStdString();
    ASSERT_EQ(FilesUnder(l_root.path()), ExpectedFiles());

    QString const l_share = l_root.path() + QStringLiteral(TIDEWICK_INSTALL_PREFIX) + QStringLiteral("/share");
    for (int l_size : {16, 22, 24, 32, 48, 64, 128, 256})
        EXPECT_EQ(PngSize(l_share + QStringLiteral("/icons/hicolor/%1x%1/apps/org.tidewick.Tidewick.png").arg(l_size)),
                  std::pair(l_size, l_size));

    ProgramRun const l_help = RunProgram(l_root.path() + QStringLiteral(TIDEWICK_INSTALL_PREFIX) + QStringLiteral("/bin/tidewick-central"), {QStringLiteral("--help")});
    EXPECT_EQ(l_help.m_exitCode, 0);
    EXPECT_TRUE(l_help.m_output.contains("--accounts <FILE>")) << l_help.m_output.toStdString();

    for (char const* lp_page : {"tidewick", "tidewick-central"})
    {
        ProgramRun const l_page = RunProgram(QStringLiteral("gzip"), {QStringLiteral("-dc"), l_share + QStringLiteral("/man/man1/%1.1.gz").arg(QLatin1String(lp_page))});
        EXPECT_EQ(l_page.m_exitCode, 0);
        EXPECT_TRUE(l_page.m_output.startsWith(".TH " + QByteArray(lp_page).toUpper() + " 1")) << lp_page;
        EXPECT_TRUE(l_page.m_output.contains("Tidewick " TIDEWICK_VERSION)) << lp_page;
    }

    std::optional<QString> const l_desktopCheck = Tool("desktop-file-validate");
    std::optional<QString> const l_appstream = Tool("appstreamcli");
    if (!l_desktopCheck || !l_appstream)
        GTEST_SKIP() << "desktop-file-validate or appstreamcli is missing: install desktop-file-utils and appstream";
    ProgramRun const l_desktop = RunProgram(*l_desktopCheck, {l_share + QStringLiteral("/applications/org.tidewick.Tidewick.desktop")});
    EXPECT_EQ(l_desktop.m_exitCode, 0) << l_desktop.m_output.toStdString();
    EXPECT_TRUE(l_desktop.m_output.trimmed().isEmpty()) << l_desktop.m_output.toStdString();
    ProgramRun const l_metainfo = RunProgram(*l_appstream, {QStringLiteral("validate"), QStringLiteral("--no-net"),
                                                     l_share + QStringLiteral("/metainfo/org.tidewick.Tidewick.metainfo.xml")});
    EXPECT_EQ(l_metainfo.m_exitCode, 0) << l_metainfo.m_output.toStdString();
}

TEST(DebianPackage, InstallsStartsAndPassesLintian)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "installing the package needs root";
    std::optional<QString> const l_lintian = Tool("lintian");
    if (!Tool("dpkg") || !Tool("dpkg-shlibdeps") || !l_lintian)
        GTEST_SKIP() << "dpkg, dpkg-shlibdeps or lintian is missing: install dpkg-dev and lintian";
    if (RunProgram(QStringLiteral("dpkg-query"), {QStringLiteral("-W"), QStringLiteral("-f=${Status}"), QStringLiteral("tidewick")})
            .m_output.contains("install ok installed"))
        GTEST_SKIP() << "a tidewick package is installed on this machine already; not replacing it";

    QTemporaryDir l_out;
    ProgramRun const l_pack = RunProgram(QStringLiteral(CPACK_COMMAND_PATH), {QStringLiteral("-G"), QStringLiteral("DEB"), QStringLiteral("--config"),
                                                                     QStringLiteral(TIDEWICK_BINARY_DIR "/CPackConfig.cmake"), QStringLiteral("-B"), l_out.path()});
    ASSERT_EQ(l_pack.m_exitCode, 0) << l_pack.m_output.toStdString();
    QString const l_deb = l_out.path() + QStringLiteral("/tidewick_" TIDEWICK_VERSION "_amd64.deb");
    ASSERT_TRUE(QFile::exists(l_deb)) << l_pack.m_output.toStdString();

    // Dependencies come from the programs' libraries: the Qt and zlib ones at least.
    ProgramRun const l_control = RunProgram(QStringLiteral("dpkg-deb"), {QStringLiteral("-f"), l_deb, QStringLiteral("Depends")});
    for (char const* lp_library : {"libqt6core6", "libqt6network6", "libqt6widgets6", "zlib1g", "libminiupnpc"})
        EXPECT_TRUE(l_control.m_output.contains(lp_library)) << lp_library << ": " << l_control.m_output.toStdString();

    ProgramRun const l_lint = RunProgram(*l_lintian, {QStringLiteral("--tag-display-limit"), QStringLiteral("0"), l_deb});
    for (QByteArray const& l_line : l_lint.m_output.split('\n'))
        EXPECT_FALSE(l_line.startsWith("E:")) << l_line.toStdString();

    ProgramRun const l_install = RunProgram(QStringLiteral("dpkg"), {QStringLiteral("-i"), l_deb});
    EXPECT_EQ(l_install.m_exitCode, 0) << l_install.m_output.toStdString();
    ProgramRun const l_help = RunProgram(QStringLiteral("/usr/bin/tidewick-central"), {QStringLiteral("--help")});
    EXPECT_EQ(l_help.m_exitCode, 0) << l_help.m_output.toStdString();
    EXPECT_TRUE(l_help.m_output.contains("--accounts <FILE>"));
    ProgramRun const l_listed = RunProgram(QStringLiteral("dpkg"), {QStringLiteral("-L"), QStringLiteral("tidewick")});
    for (QString const& l_file : ExpectedFiles())
        EXPECT_TRUE(l_listed.m_output.contains(l_file.toUtf8() + '\n')) << l_file.toStdString();

    ProgramRun const l_remove = RunProgram(QStringLiteral("dpkg"), {QStringLiteral("--purge"), QStringLiteral("tidewick")});
    EXPECT_EQ(l_remove.m_exitCode, 0) << l_remove.m_output.toStdString();
    EXPECT_FALSE(QFile::exists(QStringLiteral("/usr/bin/tidewick-central")));
}
