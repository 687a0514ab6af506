#include <gtest/gtest.h>

#ifdef TIDEWICK_TEST_GUI
#include <QApplication>
using TestApplication = QApplication;
#else
#include <QCoreApplication>
using TestApplication = QCoreApplication;
#endif

int main(int argc, char** argv)
{
    // Pictures are taken on the display the caller names; everything else runs headless.
    if (!qEnvironmentVariableIsSet("TIDEWICK_SCREENSHOT_DIR"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    TestApplication l_app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
