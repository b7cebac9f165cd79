#include <QApplication>
#include <QLocale>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>

namespace {
bool isListingOnly(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--gtest_list_tests") == 0) {
            return true;
        }
    }
    return false;
}
} // namespace

// Widget tests need a QApplication; they render offscreen unless a platform is asked for, so
// they run the same on a desktop, under Xvfb and in CI.
int main(int argc, char** argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    if (isListingOnly(argc, argv)) {
        return RUN_ALL_TESTS();
    }
    setenv("QT_QPA_PLATFORM", "offscreen", 0);
    setenv("TZ", "Europe/Berlin", 0);
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    QApplication app(argc, argv);
    return RUN_ALL_TESTS();
}
