// log_writer_tool lines COUNT TAG   writes COUNT lines "TAG line N" to the product log
// log_writer_tool rotate KEEP        rotates the product log, keeping KEEP numbered files
#include "logging/Logger.h"

#include <QCoreApplication>
#include <QStringList>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QStringList arguments = app.arguments();
    Logger::setApplicationCode(9);
    if (arguments.size() == 4 && arguments.at(1) == QStringLiteral("lines")) {
        const int count = arguments.at(2).toInt();
        for (int i = 0; i < count; ++i) {
            Logger::log(0, QStringLiteral("%1 line %2").arg(arguments.at(3)).arg(i));
        }
        return 0;
    }
    if (arguments.size() == 3 && arguments.at(1) == QStringLiteral("rotate")) {
        Logger::defaultLogger()->rotateLogKeeping(arguments.at(2).toUInt());
        return 0;
    }
    return 2;
}
