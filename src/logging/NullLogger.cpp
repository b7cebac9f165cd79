#include "logging/NullLogger.h"

#include "logging/SystemLog.h"

#include <atomic>

namespace {
std::atomic<bool> s_announced{false};
} // namespace

std::optional<QByteArray> NullLogger::formatMessage(const QString& /*message*/,
                                                    const LogLine& /*line*/, int /*classification*/,
                                                    const QString& /*classString*/)
{
    if (!s_announced.exchange(true)) {
        SystemLog::write(QStringLiteral("log output is being discarded"));
    }
    return QByteArray();
}
