#include "logging/SystemLog.h"

#include <QMutex>
#include <syslog.h>

namespace {
QMutex s_mutex;
SystemLog::Writer s_writer;
} // namespace

void SystemLog::write(const QString& line)
{
    {
        QMutexLocker locker(&s_mutex);
        if (s_writer) {
            s_writer(line);
            return;
        }
    }
    syslog(LOG_USER | LOG_NOTICE, "%s", line.toLocal8Bit().constData());
}

void SystemLog::setWriter(Writer writer)
{
    QMutexLocker locker(&s_mutex);
    s_writer = std::move(writer);
}
