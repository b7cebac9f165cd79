#include <QCoreApplication>
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

int main(int argc, char** argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    if (isListingOnly(argc, argv)) {
        return RUN_ALL_TESTS();
    }
    // Texts and dates are checked as an English reader in a fixed zone sees them.
    setenv("TZ", "Europe/Berlin", 0);
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    QCoreApplication app(argc, argv);
    return RUN_ALL_TESTS();
}
