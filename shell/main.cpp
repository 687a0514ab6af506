#include <QApplication>

#include <sys/resource.h>

#include "shell/MainWindow.h"
#include "shell/TerminationSignals.h"

namespace
{
// Every peer connection is a descriptor; the soft limit is often far below what the system
// allows this process.
void RaiseOpenFileLimit()
{
    rlimit l_limit{};
    if (getrlimit(RLIMIT_NOFILE, &l_limit) == 0 && l_limit.rlim_cur < l_limit.rlim_max)
    {
        l_limit.rlim_cur = l_limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &l_limit);
    }
}
} // namespace

int main(int argc, char* argv[])
{
    RaiseOpenFileLimit();
    QApplication l_application(argc, argv);
    TerminationSignals l_signals;
    MainWindow l_mainWindow;
    QObject::connect(&l_signals, &TerminationSignals::TerminationRequested, &l_mainWindow, &MainWindow::Quit);
    l_mainWindow.show();
    return QApplication::exec();
}
