#pragma once

#include "exception/Exception.h"
#include "exception/LogHook.h"

#include <QMutex>
#include <QStringList>

// Installs itself as the log hook for the life of a test and keeps every line it is given.
class RecordingLogSink : public LogHook::Sink
{
public:
    struct Line
    {
        int logClass;
        QString text;
    };

    RecordingLogSink() { LogHook::install(this); }
    ~RecordingLogSink() override { LogHook::install(nullptr); }
    RecordingLogSink(const RecordingLogSink&) = delete;
    RecordingLogSink& operator=(const RecordingLogSink&) = delete;

    void logMessage(int logClass, const QString& message) override { add(logClass, message); }
    void logPlaceholder(int logClass, const QString& text, const QString& key) override
    {
        add(logClass, key + QStringLiteral(": ") + text);
    }
    void logException(int logClass, const Exception& exception) override
    {
        add(logClass, exception.description());
    }

    QList<Line> lines() const
    {
        QMutexLocker locker(&m_mutex);
        return m_lines;
    }

private:
    void add(int logClass, const QString& text)
    {
        QMutexLocker locker(&m_mutex);
        m_lines.append({logClass, text});
    }

    mutable QMutex m_mutex;
    QList<Line> m_lines;
};
