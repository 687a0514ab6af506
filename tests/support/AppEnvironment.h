#pragma once

#include <QTemporaryDir>
#include <memory>

class MainWindow;

// One main window per test process, over a home folder of its own: the window declares the
// graph's types, which can be declared only once.
class AppEnvironment
{
public:
    static MainWindow* Window();
    static QString Home();
    // The home folder before the window exists, for a test that seeds it.
    static QString PrepareHome();

private:
    static std::unique_ptr<QTemporaryDir> s_home;
};

// Closes every information box that is open, and says how many had the title.
int CloseInformationBoxes(QString const& i_title);
