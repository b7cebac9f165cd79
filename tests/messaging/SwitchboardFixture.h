#pragma once

#include "logging/LogFileLogger.h"
#include "logging/Logger.h"
#include "messaging/KSSwitchboardConnection.h"
#include "messaging/MessagingThread.h"
#include "messaging/SwitchboardNames.h"
#include "support/ChildProcess.h"

#include <QDBusConnectionInterface>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

// Each test gets the real hub as a separate process on the test's private bus, and a log
// folder of its own.
class SwitchboardFixture : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_stateHome.isValid());
        qputenv("XDG_STATE_HOME", m_stateHome.path().toLocal8Bit());
        Logger::releaseDefaultLogger();
        ASSERT_TRUE(MessagingThread::instance().connection().isConnected())
            << "no session bus: run the tests through scripts/headless";
        startHub();
    }

    void TearDown() override
    {
        m_hub.reset();
        Logger::releaseDefaultLogger();
    }

    void startHub()
    {
        m_hub = std::make_unique<ChildProcess>(QStringLiteral(SWITCHBOARD_PROGRAM), QStringList());
        ASSERT_TRUE(m_hub->started());
        ASSERT_TRUE(QTest::qWaitFor([] { return hubIsServing(); }, 30000))
            << m_hub->output().toStdString();
    }

    void killHub()
    {
        ASSERT_TRUE(m_hub->stop(SIGKILL));
        ASSERT_TRUE(QTest::qWaitFor([] { return !hubIsServing(); }, 30000));
    }

    static bool hubIsServing()
    {
        return MessagingThread::instance()
            .connection()
            .interface()
            ->isServiceRegistered(SwitchboardNames::busName(SwitchboardNames::perUserServiceName()))
            .value();
    }

    static std::unique_ptr<ChildProcess> ctl(const QStringList& arguments)
    {
        auto process =
            std::make_unique<ChildProcess>(QStringLiteral(KESTROMCTL_PROGRAM), arguments);
        EXPECT_TRUE(process->started());
        return process;
    }

    static qsizetype logLinesContaining(const QString& text)
    {
        QFile file(LogFileLogger::currentLogFilePath());
        return file.open(QIODevice::ReadOnly) ? QString::fromLatin1(file.readAll()).count(text) : 0;
    }

    QTemporaryDir m_stateHome;
    std::unique_ptr<ChildProcess> m_hub;
};
