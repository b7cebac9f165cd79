#include "platform/linux/DBusUserNotificationCenter.h"

#include "support/PrivateBus.h"

#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusMessage>
#include <QTest>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {
[[maybe_unused]] const bool s_privateBus = (PrivateBus::use(), true);
} // namespace

// A notification server that says what it can do and, when told to, holds its replies to
// Notify until the test releases them.
class FakeNotificationServer : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")
public:
    struct Shown
    {
        QString application;
        uint replaces;
        QString icon;
        QString summary;
        QString body;
        QVariantMap hints;
    };
    QStringList m_capabilities;
    bool m_holdReplies = false;
    QList<QDBusMessage> m_held;
    QList<Shown> m_shown;
    QList<uint> m_closed;

    void release(uint id)
    {
        ASSERT_FALSE(m_held.isEmpty());
        m_bus.send(m_held.takeFirst().createReply(id));
    }

    QDBusConnection m_bus = QDBusConnection::connectToBus(QDBusConnection::SessionBus, u"server"_s);

public Q_SLOTS:
    Q_SCRIPTABLE QStringList GetCapabilities() { return m_capabilities; }
    Q_SCRIPTABLE uint Notify(const QString& application, uint replaces, const QString& icon,
                             const QString& summary, const QString& body, const QStringList&,
                             const QVariantMap& hints, int)
    {
        m_shown.append({application, replaces, icon, summary, body, hints});
        if (m_holdReplies) {
            setDelayedReply(true);
            m_held.append(message());
        }
        return uint(100 + m_shown.size());
    }
    Q_SCRIPTABLE void CloseNotification(uint id) { m_closed.append(id); }
};

class DBusUserNotificationCenterTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_server.m_bus.registerObject(u"/org/freedesktop/Notifications"_s, &m_server,
                                                  QDBusConnection::ExportScriptableSlots));
        ASSERT_TRUE(m_server.m_bus.registerService(u"org.freedesktop.Notifications"_s));
    }

    void TearDown() override
    {
        m_server.m_bus.unregisterService(u"org.freedesktop.Notifications"_s);
        m_server.m_bus.unregisterObject(u"/org/freedesktop/Notifications"_s);
    }

    std::unique_ptr<DBusUserNotificationCenter> makeCenter()
    {
        return std::make_unique<DBusUserNotificationCenter>(DBusUserNotificationCenter::Application{
            u"Kestrom Activity Monitor"_s, u"com.kestrom.monitor"_s, u"com.kestrom.monitor"_s});
    }

    bool shownCount(qsizetype count)
    {
        return QTest::qWaitFor([&] { return m_server.m_shown.size() == count; }, 30000);
    }

    FakeNotificationServer m_server;
};

TEST_F(DBusUserNotificationCenterTest, NotificationsAreTheMonitorsAndTheirBodiesAreText)
{
    const QString description = u"<b>Nightly</b> & <a href=\"x\">more</a>"_s;
    for (const bool markup : {true, false}) {
        SCOPED_TRACE(markup);
        m_server.m_shown.clear();
        m_server.m_capabilities =
            markup ? QStringList{u"body"_s, u"body-markup"_s} : QStringList{u"body"_s};
        const auto center = makeCenter();
        center->deliverNotification({u"Capture started"_s, description, {}, {}, false});
        ASSERT_TRUE(shownCount(1));
        const FakeNotificationServer::Shown shown = m_server.m_shown.first();
        EXPECT_EQ(shown.application, u"Kestrom Activity Monitor"_s);
        EXPECT_EQ(shown.icon, u"com.kestrom.monitor"_s);
        EXPECT_EQ(shown.hints.value(u"desktop-entry"_s).toString(), u"com.kestrom.monitor"_s);
        EXPECT_EQ(shown.summary, u"Capture started"_s);
        EXPECT_EQ(shown.body, markup ? u"&lt;b&gt;Nightly&lt;/b&gt; &amp; &lt;a "
                                       u"href=&quot;x&quot;&gt;more&lt;/a&gt;"_s
                                     : description);
    }
}

// The server's number for a notification comes only in its reply: what is asked for meanwhile
// waits for it, and the last wish wins.
TEST_F(DBusUserNotificationCenterTest, AReplacementOrWithdrawalBeforeTheServersNumberWaitsForIt)
{
    m_server.m_holdReplies = true;
    const auto center = makeCenter();
    center->deliverNotification({u"Capture started"_s, {}, u"run-1"_s, {}, false});
    ASSERT_TRUE(shownCount(1));
    center->deliverNotification({u"Capture incomplete"_s, {}, u"run-1"_s, {}, true});
    center->deliverNotification({u"Capture complete"_s, {}, u"run-1"_s, {}, false});
    center->removeDeliveredNotification(u"run-2"_s);

    m_server.release(101);
    ASSERT_TRUE(shownCount(2));
    EXPECT_EQ(m_server.m_shown.at(1).summary, u"Capture complete"_s);
    EXPECT_EQ(m_server.m_shown.at(1).replaces, 101U);

    // Withdrawn while its replacement awaits a number: closed as soon as the number comes.
    center->removeDeliveredNotification(u"run-1"_s);
    m_server.release(102);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !m_server.m_closed.isEmpty(); }, 30000));
    EXPECT_EQ(m_server.m_closed, QList<uint>{102});

    // A withdrawal that comes first stays a withdrawal.
    center->deliverNotification({u"Verify started"_s, {}, u"run-3"_s, {}, false});
    ASSERT_TRUE(shownCount(3));
    center->removeDeliveredNotification(u"run-3"_s);
    m_server.release(103);
    ASSERT_TRUE(QTest::qWaitFor([&] { return m_server.m_closed.size() == 2; }, 30000));
    EXPECT_EQ(m_server.m_closed.last(), 103U);
    EXPECT_EQ(m_server.m_shown.size(), 3);
}

#include "DBusUserNotificationCenterTest.moc"
