#pragma once

#include <QLocale>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

// What every test main does: listing tests needs neither an application object nor a display;
// running them does, with texts and dates as an English reader in a fixed zone sees them.
template <typename Application>
int runTests(int argc, char** argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--gtest_list_tests") == 0) {
            return RUN_ALL_TESTS();
        }
    }
    setenv("TZ", "Europe/Berlin", 0);
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    Application app(argc, argv);
    return RUN_ALL_TESTS();
}
