// log_writer_tool lines COUNT TAG   writes COUNT lines "TAG line N" to the product log
// log_writer_tool rotate KEEP        rotates the product log, keeping KEEP numbered files
#include "logging/Logger.h"

#include <QCoreApplication>
#include <QStringList>

using namespace Qt::StringLiterals;

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QStringList arguments = app.arguments();
    Logger::setApplicationCode(9);
    if (arguments.size() == 4 && arguments.at(1) == u"lines"_s) {
        const int count = arguments.at(2).toInt();
        for (int i = 0; i < count; ++i) {
            Logger::log(0, u"%1 line %2"_s.arg(arguments.at(3)).arg(i));
        }
        return 0;
    }
    if (arguments.size() == 3 && arguments.at(1) == u"rotate"_s) {
        Logger::defaultLogger()->rotateLogKeeping(arguments.at(2).toUInt());
        return 0;
    }
    return 2;
}
