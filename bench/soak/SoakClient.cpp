#include <QApplication>
#include <QCommandLineParser>
#include <QDir>
#include <QFile>

#include "SoakDriver.h"
#include "shell/HeapTrim.h"
#include "shell/MainWindow.h"
#include "shell/OpenFileLimit.h"
#include "shell/TerminationSignals.h"
#include "support/SavedGraph.h"

// The real client, its window and everything under it as the program builds them, with one side
// of the soak driving it. The first start in a home seeds its data file: the name, a download
// folder in the home, the shared folder, and the room to enter on login.
namespace
{
bool Seed(SoakPlan const& i_plan, QString const& i_share)
{
    QString const l_file = QDir::homePath() + QStringLiteral("/.Tidewick");
    if (QFile::exists(l_file))
        return true;
    // The seed's saver stands in for the window's while it lives, so it goes first.
    SavedGraph l_seed;
    l_seed.SetIdentity(i_plan.m_self, (QDir::homePath() + QStringLiteral("/downloads")).toStdString());
    l_seed.ShareFolder(QDir(i_share).absolutePath().toStdString(), SavedGraph::Access::Everyone);
    l_seed.AddAutojoinRoom(i_plan.m_room);
    return l_seed.Save(l_file);
}
} // namespace

int main(int argc, char* argv[])
{
    KeepLargeBlocksOutOfHeap();
    RaiseOpenFileLimit();
    QApplication l_application(argc, argv);
    QCommandLineParser l_parser;
    l_parser.addHelpOption();
    auto const l_option = [&l_parser](char const* i_name, char const* i_help, char const* i_default = nullptr) {
        QCommandLineOption l_added(QString::fromLatin1(i_name), QString::fromLatin1(i_help), QStringLiteral("V"),
                                   i_default ? QString::fromLatin1(i_default) : QString());
        l_parser.addOption(l_added);
        return l_added;
    };
    QCommandLineOption const l_self = l_option("name", "This side's user name.");
    QCommandLineOption const l_peer = l_option("peer", "The other side's user name.");
    QCommandLineOption const l_share = l_option("share", "The folder this side shares.");
    QCommandLineOption const l_peerShare = l_option("peer-share", "The folder the other side shares.");
    QCommandLineOption const l_meeting = l_option("meeting", "The folder both sides meet in.");
    QCommandLineOption const l_seconds = l_option("seconds", "Seconds of load.", "3600");
    QCommandLineOption const l_downloadEvery = l_option("download-every", "Milliseconds between downloads queued; 0 for none.", "4000");
    QCommandLineOption const l_chatEvery = l_option("chat-every", "Milliseconds between chat lines sent; 0 for none.", "500");
    QCommandLineOption const l_room = l_option("room", "The room both sides chat in.", "soak");
    l_parser.process(l_application);
    for (QCommandLineOption const& l_needed : {l_self, l_peer, l_share, l_peerShare, l_meeting})
        if (l_parser.value(l_needed).isEmpty())
        {
            std::fprintf(stderr, "soak_client: --%s is needed\n", qPrintable(l_needed.names().constFirst()));
            return 2;
        }

    SoakPlan l_plan;
    l_plan.m_self = l_parser.value(l_self).toStdString();
    l_plan.m_peer = l_parser.value(l_peer).toStdString();
    l_plan.m_room = l_parser.value(l_room).toStdString();
    l_plan.m_peerShare = QDir(l_parser.value(l_peerShare)).absolutePath();
    l_plan.m_meeting = l_parser.value(l_meeting);
    l_plan.m_loadSeconds = l_parser.value(l_seconds).toInt();
    l_plan.m_downloadEveryMs = l_parser.value(l_downloadEvery).toInt();
    l_plan.m_chatEveryMs = l_parser.value(l_chatEvery).toInt();
    if (!Seed(l_plan, l_parser.value(l_share)))
    {
        std::fprintf(stderr, "soak_client: could not write the data file in %s\n", qPrintable(QDir::homePath()));
        return 2;
    }

    TerminationSignals l_signals;
    MainWindow l_mainWindow;
    QObject::connect(&l_signals, &TerminationSignals::TerminationRequested, &l_mainWindow, &MainWindow::close);
    l_mainWindow.show();
    SoakDriver l_driver(l_plan);
    return QApplication::exec();
}
