#pragma once

#include "logging/Logger.h"

#include <QList>
#include <QMutex>
#include <memory>

// The default logger for one test: it keeps every line (from any thread) with its class and the
// line it was attached to, and writes nothing.
class RecordingLogger : public Logger
{
public:
    struct Line
    {
        int classification;
        QString message;
        LogLine line;
        LogLine parent;
    };

    static std::shared_ptr<RecordingLogger> install()
    {
        auto logger = std::make_shared<RecordingLogger>();
        Logger::setDefaultLogger(logger);
        return logger;
    }

    LogLine logLine(int classification, const LogLine& inLine, const QString& message) override
    {
        const LogLine line = Logger::logLine(classification, inLine, message);
        QMutexLocker locker(&m_mutex);
        m_lines.append({classification, message, line, inLine});
        return line;
    }

    std::optional<QByteArray> formatMessage(const QString&, const LogLine&, int,
                                            const QString&) override
    {
        return std::nullopt;
    }

    // The lines containing the text, or those written under the parent line when one is given.
    QList<Line> linesContaining(const QString& text, const LogLine& parent = nullptr) const
    {
        QMutexLocker locker(&m_mutex);
        QList<Line> found;
        for (const Line& line : m_lines) {
            if (line.message.contains(text) &&
                (!parent || (line.parent && sameLine(line.parent, parent)))) {
                found.append(line);
            }
        }
        return found;
    }

    QStringList messagesContaining(const QString& text, const LogLine& parent = nullptr) const
    {
        QStringList messages;
        for (const Line& line : linesContaining(text, parent)) {
            messages.append(line.message);
        }
        return messages;
    }

    // The classes of those lines, in order: their number and class in one comparison.
    QList<int> classesOf(const QString& text, const LogLine& parent = nullptr) const
    {
        QList<int> classes;
        for (const Line& line : linesContaining(text, parent)) {
            classes.append(line.classification);
        }
        return classes;
    }

private:
    mutable QMutex m_mutex;
    QList<Line> m_lines;
};
