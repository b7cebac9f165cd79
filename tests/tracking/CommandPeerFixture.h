#pragma once

#include "FakeCommand.h"
#include "PeerBus.h"
#include "RecordingLogger.h"
#include "messaging/MessagingThread.h"
#include "tracking/CommandListenerService.h"

#include <QCoreApplication>
#include <gtest/gtest.h>

// A command played by a peer connection of this process, tracked the way the monitor tracks
// commands: by the shared service under the monitor's published name.
class CommandPeerFixture : public ::testing::Test
{
protected:
    static CommandListenerService& service() { return CommandListenerService::sharedService(); }

    // Queued main-thread work, including work that queues more, is done.
    static void drainMainQueue()
    {
        for (int turn = 0; turn < 4; ++turn) {
            QCoreApplication::sendPostedEvents();
        }
    }

    void SetUp() override
    {
        ASSERT_TRUE(MessagingThread::instance().connection().isConnected())
            << "no session bus: run the tests through scripts/headless";
        m_log = RecordingLogger::install();
        service().setSwitchboardName(QStringLiteral("com.kestrom.monitor"));
        m_command = new FakeCommand;
        m_endpoint = m_peer.serve(m_command, QStringLiteral("/test/capture"));
    }

    void TearDown() override
    {
        service().removeAllListeners();
        drainMainQueue();
        QCoreApplication::processEvents();
        Logger::releaseDefaultLogger();
    }

    PeerBus m_peer{QStringLiteral("peer-command")};
    std::shared_ptr<RecordingLogger> m_log;
    FakeCommand* m_command = nullptr;
    Endpoint m_endpoint;
};
