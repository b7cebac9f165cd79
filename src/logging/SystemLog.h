#pragma once

#include <QString>
#include <functional>

// The system log facility (syslog). Problems of the log file itself are told here, never in
// the log file. Tests replace the writer to see what would have gone out.
class SystemLog
{
public:
    using Writer = std::function<void(const QString& line)>;

    static void write(const QString& line);
    // An empty writer restores syslog.
    static void setWriter(Writer writer);
};
