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
        return nonLossyASCII(message);
    }
    return nonLossyASCII(QStringLiteral("(%1) %2").arg(classString, message));
}

void NSLogLogger::logCString(const QByteArray& line)
{
    SystemLog::write(QString::fromLatin1(line));
}
