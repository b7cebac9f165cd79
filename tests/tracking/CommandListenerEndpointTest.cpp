#include "tracking/CommandListenerEndpoint.h"

#include "PeerBus.h"
#include "RecordingLogger.h"
#include "errors/ExceptionArchive.h"
#include "exception/KSException.h"
#include "foundation/KeyedArchive.h"
#include "messaging/MessagingThread.h"
#include "support/PrivateBus.h"
#include "tracking/CommandListener.h"
#include "tracking/CommandListenerService.h"

#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QSignalSpy>
#include <QTest>
#include <gtest/gtest.h>

namespace {
[[maybe_unused]] const bool s_privateBus = (PrivateBus::use(), true);

const QString kListenerInterface = QStringLiteral("com.kestrom.CommandListenerMessaging");

// Keeps what reaches it, in order, and on which thread.
class ProbeListener : public CommandListener
{
    Q_OBJECT

public:
    void commandDidStart() override
    {
        record(QStringLiteral("start"));
        CommandListener::commandDidStart();
    }
    void commandProgressDidUpdate(const QVariantMap& dictionary) override
    {
        record(QStringLiteral("progress"));
        progress.append(dictionary);
        CommandListener::commandProgressDidUpdate(dictionary);
    }
    void commandDidStopWithException(const ExceptionPtr& exception) override
    {
        record(QStringLiteral("stop"));
        CommandListener::commandDidStopWithException(exception);
    }

    QStringList events;
    QList<QVariantMap> progress;
    bool onMainThread = true;

private:
    void record(const QString& event)
    {
        events.append(event);
        onMainThread =
            onMainThread && QThread::currentThread() == QCoreApplication::instance()->thread();
    }
};
} // namespace

// The command is played by a second connection of this process, so every message really
// crosses the bus into the listener's served object on the messaging thread.
class CommandListenerEndpointTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(MessagingThread::instance().connection().isConnected())
            << "no session bus: run the tests through scripts/headless";
        ASSERT_TRUE(m_peer.isConnected());
        m_log = RecordingLogger::install();
        m_listener = std::make_shared<ProbeListener>();
        m_service.addListener(m_listener, QStringLiteral("cmd-endpoint"));
        m_endpoint = m_listener->endpoint();
        ASSERT_FALSE(m_endpoint.isNone());
    }

    void TearDown() override
    {
        m_service.removeAllListeners();
        m_listener.reset();
        QCoreApplication::processEvents();
        Logger::releaseDefaultLogger();
    }

    QDBusMessage message(const QString& member, const QVariantList& arguments = {}) const
    {
        QDBusMessage call = QDBusMessage::createMethodCall(m_endpoint.service(), m_endpoint.path(),
                                                           kListenerInterface, member);
        call.setArguments(arguments);
        return call;
    }

    // One-way, as commands send these.
    void send(const QString& member, const QVariantList& arguments = {})
    {
        ASSERT_TRUE(m_peer.bus().send(message(member, arguments)));
    }

    // Blocks this thread without running its event loop: once answered, every earlier message
    // of the peer has been handled on the messaging thread, and nothing of it has run here.
    void ping()
    {
        const QDBusMessage reply =
            m_peer.bus().call(message(QStringLiteral("doNothingButReply")), QDBus::Block);
        ASSERT_EQ(reply.type(), QDBusMessage::ReplyMessage) << reply.errorMessage().toStdString();
    }

    PeerBus m_peer{QStringLiteral("peer-endpoint")};
    std::shared_ptr<RecordingLogger> m_log;
    CommandListenerService m_service;
    std::shared_ptr<ProbeListener> m_listener;
    Endpoint m_endpoint;
};

TEST_F(CommandListenerEndpointTest, StartAndProgressReachTheMainThreadInOrder)
{
    QSignalSpy started(m_listener.get(), &CommandListener::startedChanged);
    const QVariantMap sent{{QStringLiteral("task"), QStringLiteral("Copying")},
                           {QStringLiteral("item"), QVariant::fromValue(nullptr)},
                           {QStringLiteral("value"), qint64(3)}};

    send(QStringLiteral("commandStarted"));
    send(QStringLiteral("progressUpdate"), {KeyedArchive::archivedData(sent)});
    ping();
    EXPECT_TRUE(m_listener->events.isEmpty()) << "queued, not run on the messaging thread";

    ASSERT_TRUE(QTest::qWaitFor([&] { return m_listener->progress.size() == 1; }, 30000));
    EXPECT_EQ(m_listener->events,
              (QStringList{QStringLiteral("start"), QStringLiteral("progress")}));
    EXPECT_TRUE(m_listener->onMainThread);
    EXPECT_EQ(m_endpoint.service(), MessagingThread::instance().uniqueName());
    EXPECT_EQ(started.size(), 1);
    EXPECT_TRUE(m_listener->property("commandIsRunning").toBool());

    const QVariantMap received = m_listener->progress.first();
    EXPECT_EQ(received.keys(), sent.keys());
    EXPECT_EQ(received.value(QStringLiteral("task")).toString(), QStringLiteral("Copying"));
    EXPECT_EQ(received.value(QStringLiteral("value")).toLongLong(), 3);
    EXPECT_EQ(received.value(QStringLiteral("item")).metaType(),
              QMetaType::fromType<std::nullptr_t>())
        << "the null object stays the null object";
}

TEST_F(CommandListenerEndpointTest, TheStopIsAnsweredOnlyAfterTheMainThreadHandledIt)
{
    QSignalSpy stopped(m_listener.get(), &CommandListener::stoppedChanged);
    send(QStringLiteral("commandStarted"));
    const QByteArray data = ExceptionArchive::dataForException(
        KSException(QStringLiteral("IO"), QStringLiteral("disk full")));

    QDBusPendingCall stop =
        m_peer.bus().asyncCall(message(QStringLiteral("commandStoppedWithExceptionData"), {data}));
    ping();
    // The messaging thread has taken the stop and answered the later ping, while this thread
    // has not run: the stop's answer is still held back.
    EXPECT_FALSE(stop.isFinished());
    EXPECT_FALSE(m_listener->hasStopped());

    ASSERT_TRUE(QTest::qWaitFor([&] { return stop.isFinished(); }, 30000));
    EXPECT_FALSE(stop.isError()) << stop.error().message().toStdString();
    EXPECT_EQ(m_listener->events, (QStringList{QStringLiteral("start"), QStringLiteral("stop")}));
    EXPECT_TRUE(m_listener->hasStopped());
    EXPECT_FALSE(m_listener->commandIsRunning());
    EXPECT_EQ(stopped.size(), 1);
    ASSERT_NE(m_listener->exception(), nullptr);
    EXPECT_EQ(m_listener->exception()->name(), QStringLiteral("IO"));
    EXPECT_EQ(m_listener->exception()->reason(), QStringLiteral("disk full"));
    EXPECT_FALSE(m_service.hasListenerForCommandIdentifier(QStringLiteral("cmd-endpoint")))
        << "a stopped command's listener stops listening";
}

TEST_F(CommandListenerEndpointTest, AnEmptyOneWayStopIsASuccess)
{
    send(QStringLiteral("commandStoppedWithExceptionData"), {QByteArray()});
    ASSERT_TRUE(QTest::qWaitFor([&] { return m_listener->hasStopped(); }, 30000));
    EXPECT_EQ(m_listener->exception(), nullptr);
}

TEST_F(CommandListenerEndpointTest, UndecodableExceptionDataStopsWithAnInternalError)
{
    QDBusPendingCall stop = m_peer.bus().asyncCall(
        message(QStringLiteral("commandStoppedWithExceptionData"), {QByteArray("not an archive")}));
    ASSERT_TRUE(QTest::qWaitFor([&] { return stop.isFinished(); }, 30000));
    EXPECT_FALSE(stop.isError());

    ASSERT_TRUE(m_listener->hasStopped());
    ASSERT_NE(m_listener->exception(), nullptr);
    EXPECT_EQ(m_listener->exception()->name(), QStringLiteral("Bug"));
    EXPECT_FALSE(m_log->linesContaining(QStringLiteral("undecodable exception data from command"))
                     .isEmpty());
}

TEST_F(CommandListenerEndpointTest, UndecodableProgressIsLoggedAndDropped)
{
    send(QStringLiteral("progressUpdate"), {QByteArray("\xff\x01garbage")});
    send(QStringLiteral("progressUpdate"),
         {KeyedArchive::archivedData(QVariantList{QStringLiteral("not a dictionary")})});
    ping();
    QCoreApplication::processEvents();

    EXPECT_TRUE(m_listener->progress.isEmpty());
    const auto lines = m_log->linesContaining(QStringLiteral("undecodable progress update"));
    ASSERT_EQ(lines.size(), 2);
    EXPECT_EQ(lines.first().classification, 4);
}

TEST_F(CommandListenerEndpointTest, AListenerThatHasGoneIsNoLongerServed)
{
    // The served object only holds the listener weakly.
    const Endpoint endpoint = m_endpoint;
    m_service.removeAllListeners();
    const std::weak_ptr<ProbeListener> weak = m_listener;
    m_listener.reset();
    QCoreApplication::processEvents();
    ASSERT_TRUE(weak.expired());

    const QDBusMessage reply = m_peer.bus().call(
        QDBusMessage::createMethodCall(endpoint.service(), endpoint.path(), kListenerInterface,
                                       QStringLiteral("doNothingButReply")),
        QDBus::Block);
    EXPECT_EQ(reply.type(), QDBusMessage::ErrorMessage) << "no longer served";
}

#include "CommandListenerEndpointTest.moc"
