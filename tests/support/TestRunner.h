#pragma once

#include <QCoreApplication>
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
    const int result = RUN_ALL_TESTS();
    // Work a test left queued runs now: dropped with the application object, it would be
    // destroyed under the framework's event lock, and a widget it holds would deadlock there.
    QCoreApplication::sendPostedEvents();
    return result;
}
