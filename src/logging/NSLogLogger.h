#pragma once

#include "logging/Logger.h"

// Writes to the system log when the log file cannot be had; hidden and debug lines stay out.
class NSLogLogger final : public Logger
{
public:
    NSLogLogger() = default;

    // Straight to the system log, whatever the default logger: "<class name> - <message>". No
    // line of the log's tree is written, so none is returned.
    static LogLine log(int classification, const QString& message);

    std::optional<QByteArray> formatMessage(const QString& message, const LogLine& line,
                                            int classification,
                                            const QString& classString) override;
    void logCString(const QByteArray& line) override;
};
