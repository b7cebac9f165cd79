#pragma once

#include "FakeCommand.h"
#include "PeerBus.h"
#include "RecordingLogger.h"
#include "exception/KSException.h"
#include "messaging/MessagingThread.h"
#include "tracking/CommandListenerService.h"
#include "tracking/CommandManager.h"
#include "tracking/CommandOnXPCConnection.h"

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

    // "name: reason" of the exception the work raised; empty when it raised none.
    template <typename Work> static QString raised(Work work)
    {
        try {
            work();
        } catch (const KSException& exception) {
            return exception.name() + QStringLiteral(": ") + exception.reason();
        }
        return {};
    }

    // Connected the way the monitor connects a manager to a command it tracks.
    template <typename Manager>
    std::shared_ptr<Manager> connected(std::shared_ptr<Manager> manager, const QString& identifier)
    {
        manager->connectToCommand(std::make_shared<CommandOnXPCConnection>(
            QStringLiteral("capture"), m_endpoint, identifier));
        return manager;
    }

    // Told of a command that is not there, giving up at once. The manager is registered before
    // the command is told, so the failure leaves it registered and connected to nobody.
    void connectToNothing(CommandManager& manager, const QString& identifier)
    {
        auto connection = std::make_shared<CommandOnXPCConnection>(QStringLiteral("capture"),
                                                                   m_peer.nowhere(), identifier);
        connection->setTolerance(0);
        EXPECT_THROW(manager.connectToCommand(connection), KSException);
    }

    PeerBus m_peer{QStringLiteral("peer-command")};
    std::shared_ptr<RecordingLogger> m_log;
    FakeCommand* m_command = nullptr;
    Endpoint m_endpoint;
};
