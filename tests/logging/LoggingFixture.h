#pragma once

#include "logging/LogFileLogger.h"
#include "logging/Logger.h"
#include "logging/SystemLog.h"

#include <QFile>
#include <QMutex>
#include <QStringList>
#include <QTemporaryDir>
#include <gtest/gtest.h>

// Every test logs into a folder of its own, with the system log captured.
class LoggingFixture : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_stateHome.isValid());
        m_previousStateHome = qgetenv("XDG_STATE_HOME");
        qputenv("XDG_STATE_HOME", m_stateHome.path().toLocal8Bit());
        SystemLog::setWriter([this](const QString& line) {
            QMutexLocker locker(&m_systemLogMutex);
            m_systemLog << line;
        });
        Logger::releaseDefaultLogger();
    }

    void TearDown() override
    {
        Logger::releaseDefaultLogger();
        Logger::setClock({});
        Logger::setEffectiveUid(std::nullopt);
        SystemLog::setWriter({});
        qputenv("XDG_STATE_HOME", m_previousStateHome);
    }

    QStringList systemLog() const
    {
        QMutexLocker locker(&m_systemLogMutex);
        return m_systemLog;
    }

    static QStringList fileLines(const QString& path)
    {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly)) {
            return {};
        }
        QStringList lines = QString::fromLatin1(file.readAll()).split(QLatin1Char('\n'));
        if (!lines.isEmpty() && lines.constLast().isEmpty()) {
            lines.removeLast();
        }
        return lines;
    }

    static QStringList logLines() { return fileLines(LogFileLogger::currentLogFilePath()); }

    QTemporaryDir m_stateHome;

private:
    QByteArray m_previousStateHome;
    mutable QMutex m_systemLogMutex;
    QStringList m_systemLog;
};
