#include "support/AppEnvironment.h"

#include <QApplication>
#include <QFile>
#include <QMessageBox>

#include "shell/MainWindow.h"
#include "support/SavedGraph.h"

std::unique_ptr<QTemporaryDir> AppEnvironment::s_home;

MainWindow* AppEnvironment::Window()
{
    if (!mainWindow)
    {
        // A home without a data file gets one holding only a free listening port, and UPnP off:
        // a test window never looks for a gateway on the machine's network.
        QString const l_file = PrepareHome() + QStringLiteral("/.Tidewick");
        if (!QFile::exists(l_file))
        {
            SavedGraph l_seed;
            l_seed.SetFreeListeningPort();
            l_seed.Set("global", "use_upnp", "no");
            l_seed.Save(l_file);
        }
        // Deliberately never destroyed during the run: the process ends after the tests.
        (new MainWindow)->show();
        QApplication::processEvents();
    }
    return mainWindow;
}

QString AppEnvironment::PrepareHome()
{
    if (!s_home)
    {
        s_home = std::make_unique<QTemporaryDir>();
        qputenv("HOME", s_home->path().toLocal8Bit());
    }
    return s_home->path();
}

QString AppEnvironment::Home()
{
    Window();
    return s_home->path();
}

int CloseInformationBoxes(QString const& i_title)
{
    QApplication::processEvents();
    int l_count = 0;
    for (QWidget* lp_widget : QApplication::topLevelWidgets())
    {
        auto* lp_box = qobject_cast<QMessageBox*>(lp_widget);
        if (!lp_box || !lp_box->isVisible())
            continue;
        if (lp_box->windowTitle() == i_title)
            ++l_count;
        lp_box->close();
    }
    QApplication::processEvents();
    return l_count;
}
