#include "support/TestRunner.h"

#include <QCoreApplication>

int main(int argc, char** argv)
{
    return runTests<QCoreApplication>(argc, argv);
}
