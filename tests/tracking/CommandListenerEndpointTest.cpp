#include "tracking/CommandListenerEndpoint.h"

#include "CommandPeerFixture.h"
#include "errors/ExceptionArchive.h"
#include "foundation/KeyedArchive.h"
#include "support/PrivateBus.h"

#include <QDBusPendingCall>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {
[[maybe_unused]] const bool s_privateBus = (PrivateBus::use(), true);

// Keeps what reaches it, in order, and whether all of it reached the main thread.
class ProbeListener : public CommandListener
{
public:
    void commandDidStart() override
    {
        record(u"start"_s);
        CommandListener::commandDidStart();
    }
    void commandProgressDidUpdate(const QVariantMap& dictionary) override
    {
        record(u"progress"_s);
        progress.append(dictionary);
        CommandListener::commandProgressDidUpdate(dictionary);
    }
    void commandDidStopWithException(const ExceptionPtr& exception) override
    {
        record(u"stop"_s);
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

// The peer sends what a command sends, so every message really crosses the bus into the
// listener's served object on the messaging thread.
class CommandListenerEndpointTest : public CommandPeerFixture
{
protected:
    void SetUp() override
    {
        ASSERT_NO_FATAL_FAILURE(CommandPeerFixture::SetUp());
        service().addListener(m_listener, u"cmd-endpoint"_s);
        m_listenerEndpoint = m_listener->endpoint();
        ASSERT_FALSE(m_listenerEndpoint.isNone());
    }

    QDBusMessage message(const QString& member, const QVariantList& arguments = {}) const
    {
        return listenerMessage(m_listenerEndpoint, member, arguments);
    }

    // One-way, as commands send these.
    void send(const QString& member, const QVariantList& arguments = {})
    {
        ASSERT_TRUE(m_peer.bus().send(message(member, arguments)));
    }

    // Blocks this thread without running its event loop: once answered, every earlier message
    // of the peer has been handled on the messaging thread, and nothing of it has run here.
    QDBusMessage ping() { return m_peer.bus().call(message(u"doNothingButReply"_s), QDBus::Block); }

    std::shared_ptr<ProbeListener> m_listener = std::make_shared<ProbeListener>();
    Endpoint m_listenerEndpoint;
};

// Progress that does not decode to a dictionary is logged and dropped on the way.
TEST_F(CommandListenerEndpointTest, StartAndDecodableProgressReachTheMainThreadInOrder)
{
    const QVariantMap sent{{u"task"_s, u"Copying"_s},
                           {u"item"_s, QVariant::fromValue(nullptr)},
                           {u"value"_s, qint64(3)}};

    send(u"commandStarted"_s);
    send(u"progressUpdate"_s, {QByteArray("\xff\x01garbage")});
    send(u"progressUpdate"_s, {KeyedArchive::archivedData(QVariantList{u"not a dictionary"_s})});
    send(u"progressUpdate"_s, {KeyedArchive::archivedData(sent)});
    ASSERT_EQ(ping().type(), QDBusMessage::ReplyMessage);
    EXPECT_TRUE(m_listener->events.isEmpty()) << "queued, not run on the messaging thread";

    ASSERT_TRUE(QTest::qWaitFor([&] { return m_listener->progress.size() == 1; }, 30000));
    EXPECT_EQ(m_listener->events, (QStringList{u"start"_s, u"progress"_s}));
    EXPECT_TRUE(m_listener->onMainThread);
    EXPECT_EQ(m_log->classesOf(u"undecodable progress update"_s), (QList<int>{4, 4}));
    EXPECT_EQ(m_listenerEndpoint.service(), MessagingThread::instance().uniqueName());

    const QVariantMap received = m_listener->progress.first();
    EXPECT_EQ(received.keys(), sent.keys());
    EXPECT_EQ(received.value(u"task"_s).toString(), u"Copying"_s);
    EXPECT_EQ(received.value(u"value"_s).toLongLong(), 3);
    EXPECT_EQ(received.value(u"item"_s).metaType(), QMetaType::fromType<std::nullptr_t>())
        << "the null object stays the null object";
}

// Only real exception data is a failure; data that cannot be read at all still ends the
// command. A later stop replaces the earlier one's exception.
TEST_F(CommandListenerEndpointTest, AStopIsAnsweredOnceHandledAndItsDataIsAnExceptionOrNothing)
{
    send(u"commandStarted"_s);
    const QByteArray data =
        ExceptionArchive::dataForException(KSException(u"IO"_s, u"disk full"_s));
    QDBusPendingCall stop =
        m_peer.bus().asyncCall(message(u"commandStoppedWithExceptionData"_s, {data}));
    ASSERT_EQ(ping().type(), QDBusMessage::ReplyMessage);
    // The messaging thread has taken the stop and answered the later ping, while this thread
    // has not run: the stop's answer is still held back.
    EXPECT_FALSE(stop.isFinished());
    EXPECT_FALSE(m_listener->hasStopped());

    ASSERT_TRUE(QTest::qWaitFor([&] { return stop.isFinished(); }, 30000));
    EXPECT_FALSE(stop.isError()) << stop.error().message().toStdString();
    EXPECT_EQ(m_listener->events, (QStringList{u"start"_s, u"stop"_s}));
    ASSERT_NE(m_listener->exception(), nullptr);
    EXPECT_EQ(m_listener->exception()->name(), u"IO"_s);
    EXPECT_EQ(m_listener->exception()->reason(), u"disk full"_s);
    EXPECT_FALSE(service().hasListenerForCommandIdentifier(u"cmd-endpoint"_s))
        << "a stopped command's listener stops listening";

    // Data, the exception's name it ends with (empty: success) and the line it logs.
    const std::tuple<QByteArray, const char*, const char*> stops[] = {
        {QByteArray("not an archive"), "Bug", "undecodable exception data from command"},
        {QByteArray(), "", nullptr},
        {KeyedArchive::archivedData(u"words"_s), "", "exception object was actually"},
    };
    qsizetype count = 1;
    for (const auto& [stopData, name, logged] : stops) {
        SCOPED_TRACE(count);
        send(u"commandStoppedWithExceptionData"_s, {stopData}); // one-way: nobody waits
        ++count;
        ASSERT_TRUE(
            QTest::qWaitFor([&] { return m_listener->events.count(u"stop"_s) == count; }, 30000));
        EXPECT_EQ(m_listener->exception() ? m_listener->exception()->name() : QString(),
                  QString::fromLatin1(name));
        if (logged) {
            EXPECT_EQ(m_log->linesContaining(QString::fromLatin1(logged)).size(), 1);
        }
    }

    // The served object only holds the listener weakly: once gone, it is no longer served.
    const std::weak_ptr<ProbeListener> weak = m_listener;
    m_listener.reset();
    QCoreApplication::processEvents();
    ASSERT_TRUE(weak.expired());
    EXPECT_EQ(ping().type(), QDBusMessage::ErrorMessage) << "no longer served";
}
