#pragma once

#include "logging/Logger.h"

// Discards every line; says so once per process on the system log.
class NullLogger final : public Logger
{
public:
    NullLogger() = default;

    std::optional<QByteArray> formatMessage(const QString& message, const LogLine& line,
                                            int classification,
                                            const QString& classString) override;
};
