#include "support/TestRunner.h"

#include <QApplication>

// Widget tests render offscreen unless a platform is asked for, so they run the same on a
// desktop, under Xvfb and in CI.
int main(int argc, char** argv)
{
    setenv("QT_QPA_PLATFORM", "offscreen", 0);
    return runTests<QApplication>(argc, argv);
}
