#include "CentralServer.h"
#include "ServerLog.h"
#include "ServerOptions.h"
#include "TerminationWatcher.h"

#include <QCoreApplication>

#include <cstdio>
#include <sys/resource.h>

namespace
{
// A descriptor per connection: the usual soft limit of 1024 would stop the server well below
// the connections it allows, so it takes what the hard limit lets it.
void RaiseDescriptorLimit()
{
    rlimit l_limit{};
    if (getrlimit(RLIMIT_NOFILE, &l_limit) != 0 || l_limit.rlim_cur >= l_limit.rlim_max)
        return;
    l_limit.rlim_cur = l_limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &l_limit);
}
}

int main(int argc, char** argv)
{
    RaiseDescriptorLimit();
    QCoreApplication l_app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("tidewick-central"));
    QCoreApplication::setApplicationVersion(QStringLiteral("0.1"));

    ServerOptions l_options;
    QString l_error;
    if (!l_options.Parse(QCoreApplication::arguments(), l_error))
    {
        std::fprintf(stderr, "tidewick-central: %s\n", qPrintable(l_error));
        return 2;
    }
    TerminationWatcher l_watcher;
    if (!l_watcher.Install(l_error))
    {
        std::fprintf(stderr, "tidewick-central: %s\n", qPrintable(l_error));
        return 1;
    }
    QObject::connect(&l_watcher, &TerminationWatcher::TerminationRequested, &l_app,
        [](int i_signal) {
            ServerLog::Write(QStringLiteral("stopping on signal %1").arg(i_signal));
            QCoreApplication::quit();
        });

    CentralServer l_server(l_options);
    if (!l_server.Start(l_error))
    {
        std::fprintf(stderr, "tidewick-central: %s\n", qPrintable(l_error));
        return 1;
    }
    return QCoreApplication::exec();
}
