#include "foundation/KeyedArchive.h"
#include "messaging/KSPublishedConnection.h"
#include "messaging/SwitchboardFixture.h"
#include "support/PrivateBus.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDir>

namespace {
[[maybe_unused]] const bool s_privateBus = (PrivateBus::use(), true);

const QString kMonitorName = QStringLiteral("com.kestrom.monitor");
const QString kNotifications = QStringLiteral("org.freedesktop.Notifications");

QDBusConnection testBus()
{
    return QDBusConnection::connectToBus(QDBusConnection::SessionBus,
                                         QStringLiteral("desktop-end-to-end"));
}

// A mount namespace of the monitor's own lets the test mount a volume that nobody else sees.
bool canUnshareMounts()
{
    return QProcess::execute(QStringLiteral("unshare"),
                             {QStringLiteral("-m"), QStringLiteral("true")}) == 0;
}
} // namespace

// The desktop's notification server, as small as the monitor needs it.
class FakeNotificationServer : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")
public:
    struct Shown
    {
        QString summary;
        QString body;
        QVariantMap hints;
    };
    QList<Shown> m_shown;

public Q_SLOTS:
    uint Notify(const QString&, uint, const QString&, const QString& summary, const QString& body,
                const QStringList&, const QVariantMap& hints, int)
    {
        m_shown.append({summary, body, hints});
        return uint(m_shown.size());
    }
    void CloseNotification(uint) {}
};

// Hears the launcher badge as a dock would.
class LauncherEntryListener : public QObject
{
    Q_OBJECT
public:
    QList<qint64> m_counts;

public Q_SLOTS:
    void update(const QString&, const QVariantMap& properties)
    {
        m_counts.append(properties.value(QStringLiteral("count")).toLongLong());
    }
};

class DesktopEndToEndTest : public SwitchboardFixture
{
protected:
    void SetUp() override
    {
        SwitchboardFixture::SetUp();
        ASSERT_TRUE(m_configHome.isValid());
        qputenv("XDG_CONFIG_HOME", m_configHome.path().toLocal8Bit());
        QDBusConnection bus = testBus();
        ASSERT_TRUE(bus.registerObject(QStringLiteral("/org/freedesktop/Notifications"), &m_server,
                                       QDBusConnection::ExportAllSlots));
        ASSERT_TRUE(bus.registerService(kNotifications));
        ASSERT_TRUE(
            bus.connect(QString(), QString(), QStringLiteral("com.canonical.Unity.LauncherEntry"),
                        QStringLiteral("Update"), &m_launcher, SLOT(update(QString, QVariantMap))));
        m_canMount = canUnshareMounts();
        const QString monitor = QStringLiteral(MONITOR_PROGRAM);
        const QStringList options{QStringLiteral("-platform"), QStringLiteral("offscreen")};
        m_monitor = m_canMount ? std::make_unique<ChildProcess>(
                                     QStringLiteral("unshare"),
                                     QStringList{QStringLiteral("-m"),
                                                 QStringLiteral("--propagation=private"), monitor} +
                                         options)
                               : std::make_unique<ChildProcess>(monitor, options);
        ASSERT_TRUE(m_monitor->started());
        ASSERT_TRUE(QTest::qWaitFor(
            [] { return KSPublishedConnection::lookUpEndpoint(kMonitorName).has_value(); }, 30000))
            << m_monitor->output().toStdString();
    }

    void TearDown() override
    {
        m_monitor.reset();
        testBus().unregisterService(kNotifications);
        testBus().unregisterObject(QStringLiteral("/org/freedesktop/Notifications"));
        SwitchboardFixture::TearDown();
    }

    static QDBusMessage monitoringCall(const QString& member, const QVariantList& arguments)
    {
        const auto endpoint = KSPublishedConnection::lookUpEndpoint(kMonitorName);
        QDBusMessage call =
            QDBusMessage::createMethodCall(endpoint->service(), endpoint->path(),
                                           QStringLiteral("com.kestrom.StromMonitoring"), member);
        call.setArguments(arguments);
        return call;
    }

    bool shown(const QString& summary) const
    {
        return std::any_of(m_server.m_shown.cbegin(), m_server.m_shown.cend(),
                           [&summary](const auto& one) { return one.summary == summary; });
    }

    QTemporaryDir m_configHome;
    FakeNotificationServer m_server;
    LauncherEntryListener m_launcher;
    std::unique_ptr<ChildProcess> m_monitor;
    bool m_canMount = false;
};

TEST_F(DesktopEndToEndTest, CommandsAreAnnouncedAndCountedOnTheLauncher)
{
    // Started and completed are off until the user asks for them.
    QDBusConnection bus = MessagingThread::instance().connection();
    for (int type : {0, 1}) {
        ASSERT_TRUE(
            bus.send(monitoringCall(QStringLiteral("setUserNotificationForType"), {type, true})));
    }
    const QDBusMessage enabled =
        bus.call(monitoringCall(QStringLiteral("queryEnabledUserNotificationForType"), {1}),
                 QDBus::Block, 30000);
    ASSERT_TRUE(enabled.arguments().value(0).toBool()) << enabled.errorMessage().toStdString();

    auto capture =
        ctl({QStringLiteral("command"), QStringLiteral("capture"), QStringLiteral("--id"),
             QStringLiteral("test.capture.1"), QStringLiteral("--steps"), QStringLiteral("3"),
             QStringLiteral("--interval-ms"), QStringLiteral("20")});
    ASSERT_TRUE(capture->finished(60000));
    // The pane shows while the capture runs and retires a while after its success.
    ASSERT_TRUE(QTest::qWaitFor(
        [this] { return !m_launcher.m_counts.isEmpty() && m_launcher.m_counts.last() == 0; },
        60000));
    EXPECT_EQ(m_launcher.m_counts, (QList<qint64>{1, 0}));

    auto verify = ctl({QStringLiteral("command"), QStringLiteral("verify"), QStringLiteral("--id"),
                       QStringLiteral("test.verify.1"), QStringLiteral("--steps"),
                       QStringLiteral("2"), QStringLiteral("--interval-ms"), QStringLiteral("20"),
                       QStringLiteral("--scenario"), QStringLiteral("fail")});
    ASSERT_TRUE(verify->finished(60000));
    ASSERT_TRUE(
        QTest::qWaitFor([this] { return shown(QStringLiteral("Verify incomplete")); }, 30000));
    QStringList summaries;
    for (const auto& one : m_server.m_shown) {
        summaries.append(one.summary);
        const bool sound = one.summary.endsWith(QStringLiteral(" incomplete"));
        EXPECT_EQ(one.hints.value(QStringLiteral("sound-name")).toString(),
                  sound ? QStringLiteral("message-new-instant") : QString())
            << one.summary.toStdString();
    }
    EXPECT_EQ(summaries,
              (QStringList{QStringLiteral("Capture started"), QStringLiteral("Capture complete"),
                           QStringLiteral("Verify started"), QStringLiteral("Verify incomplete")}));
}

TEST_F(DesktopEndToEndTest, ArchivesThatNeedRepairAreAnnouncedAtTheStartAndWhenTheyComeToIt)
{
    auto watch = ctl({QStringLiteral("watch"), QStringLiteral("RepositoryStatusChanged")});
    ASSERT_TRUE(watch->waitForOutput(QStringLiteral("watching")));
    QTemporaryDir folder;
    const auto announced = [this](const QString& name) {
        return std::any_of(
            m_server.m_shown.cbegin(), m_server.m_shown.cend(), [&name](const auto& one) {
                return one.summary == QStringLiteral("Archive Needs Repair") && one.body == name;
            });
    };
    const auto create = [&](const QString& name) {
        auto process = ctl({QStringLiteral("archive"), QStringLiteral("create"),
                            folder.filePath(name + QStringLiteral(".stromi")),
                            QStringLiteral("--needs-repair"), QStringLiteral("--no-history")});
        // This thread serves the notification server: wait with its event loop running.
        EXPECT_TRUE(process->waitForOutput(QStringLiteral("mirror ")))
            << process->output().toStdString();
    };
    // Made while the monitor is not yet watching: found when status events begin.
    create(QStringLiteral("Early"));
    ASSERT_TRUE(QTest::qWaitFor([&] { return announced(QStringLiteral("Early")); }, 30000))
        << m_monitor->output().toStdString();
    // Made while it watches: heard from the switchboard.
    create(QStringLiteral("Later"));
    ASSERT_TRUE(QTest::qWaitFor([&] { return announced(QStringLiteral("Later")); }, 30000));
    ASSERT_TRUE(watch->waitForOutput(folder.filePath(QStringLiteral("Later.stromi"))))
        << watch->output().toStdString();
}

TEST_F(DesktopEndToEndTest, AMountedVolumeReachesTheSwitchboard)
{
    if (!m_canMount) {
        GTEST_SKIP() << "this machine cannot give the monitor a mount namespace";
    }
    auto watch = ctl({QStringLiteral("watch"), QStringLiteral("DiskEventVolumeDidMount")});
    ASSERT_TRUE(watch->waitForOutput(QStringLiteral("watching")));
    QTemporaryDir volume;
    const QString pid = QString::number(m_monitor->pid());
    ASSERT_EQ(
        QProcess::execute(QStringLiteral("nsenter"),
                          {QStringLiteral("-t"), pid, QStringLiteral("-m"), QStringLiteral("mount"),
                           QStringLiteral("-t"), QStringLiteral("tmpfs"),
                           QStringLiteral("kestrom-test"), volume.path()}),
        0);
    ASSERT_TRUE(watch->waitForOutput(QStringLiteral("notification from EventAgent")))
        << watch->output().toStdString();
    EXPECT_TRUE(watch->output().contains(volume.path())) << watch->output().toStdString();
    EXPECT_EQ(logLinesContaining(
                  QStringLiteral("posting volume %1 mount notification").arg(volume.path())),
              1);
}

#include "DesktopEndToEndTest.moc"
