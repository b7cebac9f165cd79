#include "logging/NSLogLogger.h"

#include "logging/SystemLog.h"

std::optional<QByteArray> NSLogLogger::formatMessage(const QString& message,
                                                     const LogLine& /*line*/, int classification,
                                                     const QString& classString)
{
    if (classification == 8 || classification == 9) {
        return std::nullopt;
    }
    if (classification == 0) {
        return logText(message);
    }
    QByteArray bytes = "(" + logText(classString) + ") ";
    appendLogText(bytes, message);
    return bytes;
}

LogLine NSLogLogger::log(int classification, const QString& message)
{
    SystemLog::write(QString::fromLatin1(logText(nameOfClassification(classification)) + " - " +
                                         logText(message)));
    return nullptr;
}

void NSLogLogger::logCString(const QByteArray& line)
{
    SystemLog::write(QString::fromLatin1(line));
}
