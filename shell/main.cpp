#include <QApplication>

#include "shell/HeapTrim.h"
#include "shell/MainWindow.h"
#include "shell/OpenFileLimit.h"
#include "shell/TerminationSignals.h"

int main(int argc, char* argv[])
{
    KeepLargeBlocksOutOfHeap();
    RaiseOpenFileLimit();
    QApplication l_application(argc, argv);
    TerminationSignals l_signals;
    MainWindow l_mainWindow;
    QObject::connect(&l_signals, &TerminationSignals::TerminationRequested, &l_mainWindow, &MainWindow::Quit);
    l_mainWindow.show();
    return QApplication::exec();
}
