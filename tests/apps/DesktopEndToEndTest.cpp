#include "MonitorProcessFixture.h"
#include "foundation/KeyedArchive.h"
#include "support/PrivateBus.h"

#include <QDBusConnection>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {
[[maybe_unused]] const bool s_privateBus = (PrivateBus::use(), true);

const QString kNotifications = u"org.freedesktop.Notifications"_s;
const QString kNotificationsPath = u"/org/freedesktop/Notifications"_s;

QDBusConnection testBus()
{
    return QDBusConnection::connectToBus(QDBusConnection::SessionBus, u"desktop-end-to-end"_s);
}
} // namespace

// The desktop as small as the monitor needs it: a notification server, and a dock that hears
// the launcher badge.
class FakeDesktop : public QObject
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
    QList<qint64> m_counts;
    QList<bool> m_countsVisible;

public Q_SLOTS:
    Q_SCRIPTABLE uint Notify(const QString&, uint, const QString&, const QString& summary,
                             const QString& body, const QStringList&, const QVariantMap& hints, int)
    {
        m_shown.append({summary, body, hints});
        return uint(m_shown.size());
    }
    Q_SCRIPTABLE void CloseNotification(uint) {}
    void dockBadge(const QString&, const QVariantMap& properties)
    {
        m_counts.append(properties.value(u"count"_s).toLongLong());
        m_countsVisible.append(properties.value(u"count-visible"_s).toBool());
    }
};

class DesktopEndToEndTest : public MonitorProcessFixture
{
protected:
    void SetUp() override
    {
        SwitchboardFixture::SetUp();
        ASSERT_TRUE(m_configHome.isValid());
        qputenv("XDG_CONFIG_HOME", m_configHome.path().toLocal8Bit());
        QDBusConnection bus = testBus();
        ASSERT_TRUE(bus.registerObject(kNotificationsPath, &m_desktop,
                                       QDBusConnection::ExportScriptableSlots));
        ASSERT_TRUE(bus.registerService(kNotifications));
        ASSERT_TRUE(bus.connect(QString(), QString(), u"com.canonical.Unity.LauncherEntry"_s,
                                u"Update"_s, &m_desktop, SLOT(dockBadge(QString, QVariantMap))));
        // In a mount namespace of its own the monitor sees a volume that nobody else sees.
        m_canMount = QProcess::execute(u"unshare"_s, words("-m true")) == 0;
        const QString monitor = QStringLiteral(MONITOR_PROGRAM);
        if (m_canMount) {
            startMonitor(u"unshare"_s, words("-m --propagation=private") << monitor);
        } else {
            startMonitor(monitor);
        }
    }

    void TearDown() override
    {
        MonitorProcessFixture::TearDown();
        testBus().unregisterService(kNotifications);
        testBus().unregisterObject(kNotificationsPath);
    }

    // Whether a notification with the summary (and the body, when one is given) was shown.
    bool shown(const QString& summary, const QString& body = {}) const
    {
        return std::any_of(m_desktop.m_shown.cbegin(), m_desktop.m_shown.cend(),
                           [&](const auto& one) {
                               return one.summary == summary && (body.isNull() || one.body == body);
                           });
    }

    QTemporaryDir m_configHome;
    FakeDesktop m_desktop;
    bool m_canMount = false;
};

TEST_F(DesktopEndToEndTest, CommandsAreAnnouncedAndCountedOnTheLauncher)
{
    // Started and completed are off until the user asks for them.
    const QString monitoring = u"com.kestrom.StromMonitoring"_s;
    for (int type : {0, 1}) {
        ASSERT_TRUE(MessagingThread::instance().connection().send(
            monitorCall(monitoring, u"setUserNotificationForType"_s, {type, true})));
    }
    const QDBusMessage enabled = ask(monitoring, u"queryEnabledUserNotificationForType"_s, {1});
    ASSERT_TRUE(enabled.arguments().value(0).toBool()) << enabled.errorMessage().toStdString();

    auto capture = ctl(words("command capture --id test.capture.1 --steps 3 --interval-ms 20"));
    ASSERT_TRUE(capture->finished(60000));
    // The pane shows while the capture runs and retires a while after its success.
    ASSERT_TRUE(QTest::qWaitFor(
        [this] { return !m_desktop.m_counts.isEmpty() && m_desktop.m_counts.last() == 0; }, 60000));
    EXPECT_EQ(m_desktop.m_counts, (QList<qint64>{1, 0}));
    // A count of zero is no badge at all, not a "0".
    EXPECT_EQ(m_desktop.m_countsVisible, (QList<bool>{true, false}));

    auto verify =
        ctl(words("command verify --id test.verify.1 --steps 2 --interval-ms 20 --scenario fail"));
    ASSERT_TRUE(verify->finished(60000));
    ASSERT_TRUE(QTest::qWaitFor([this] { return shown(u"Verify incomplete"_s); }, 30000));
    QStringList summaries;
    for (const auto& one : m_desktop.m_shown) {
        summaries.append(one.summary);
        const bool sound = one.summary.endsWith(u" incomplete"_s);
        EXPECT_EQ(one.hints.value(u"sound-name"_s).toString(),
                  sound ? u"message-new-instant"_s : QString())
            << one.summary.toStdString();
    }
    EXPECT_EQ(summaries, (QStringList{u"Capture started"_s, u"Capture complete"_s,
                                      u"Verify started"_s, u"Verify incomplete"_s}));
}

TEST_F(DesktopEndToEndTest, ArchivesThatNeedRepairAreAnnouncedAtTheStartAndWhenTheyComeToIt)
{
    auto watch = ctl(words("watch RepositoryStatusChanged"));
    ASSERT_TRUE(watch->waitForOutput(u"watching"_s));
    QTemporaryDir folder;
    // Made while the monitor is not yet watching, the first is found when status events begin;
    // the second, made while it watches, is heard from the switchboard.
    for (const QString& name : {u"Early"_s, u"Later"_s}) {
        auto create =
            ctl(QStringList{u"archive"_s, u"create"_s, folder.filePath(name + u".stromi"_s)}
                << words("--needs-repair --no-history"));
        // This thread serves the notification server: wait with its event loop running.
        EXPECT_TRUE(create->waitForOutput(u"mirror "_s)) << create->output().toStdString();
        ASSERT_TRUE(QTest::qWaitFor([&] { return shown(u"Archive Needs Repair"_s, name); }, 30000))
            << name.toStdString() << m_monitor->output().toStdString();
    }
    ASSERT_TRUE(watch->waitForOutput(folder.filePath(u"Later.stromi"_s)))
        << watch->output().toStdString();

    // The status window grades both; with their mirrors gone, a peer's notice empties it.
    const auto hasStatus = [] {
        return answer(u"StromMonitoring"_s, u"queryStatusWindowHasStatus"_s).toBool();
    };
    EXPECT_TRUE(QTest::qWaitFor(hasStatus, 30000));
    QDir mirrors(m_configHome.filePath(u"Kestrom/Status"_s));
    ASSERT_EQ(mirrors.entryList({u"*.plist"_s}).size(), 2) << mirrors.path().toStdString();
    for (const QString& name : mirrors.entryList({u"*.plist"_s})) {
        ASSERT_TRUE(mirrors.remove(name));
    }
    ASSERT_TRUE(ctl(words("post RepositoryStatusDidChange --source Repository"))->finished());
    EXPECT_TRUE(QTest::qWaitFor([&] { return !hasStatus(); }, 30000));
}

// A disk reaches the switchboard; the tmpfs mounted before it, as sandboxes do all the time,
// does not. The capture history is looked at again.
TEST_F(DesktopEndToEndTest, AMountedDiskReachesTheSwitchboardAndNoOtherMountDoes)
{
    if (!m_canMount) {
        GTEST_SKIP() << "this machine cannot give the monitor a mount namespace";
    }
    auto watch = ctl(words("watch DiskEventVolumeDidMount"));
    ASSERT_TRUE(watch->waitForOutput(u"watching"_s));
    QTemporaryDir scratch;
    QTemporaryDir sandbox;
    QTemporaryDir disk;
    const QString image = scratch.filePath(u"disk.img"_s);
    ASSERT_EQ(QProcess::execute(u"truncate"_s, {u"-s"_s, u"8M"_s, image}), 0);
    ASSERT_EQ(QProcess::execute(u"mkfs.ext4"_s, {u"-q"_s, image}), 0);
    const auto mountInMonitor = [this](const QStringList& arguments) {
        return QProcess::execute(u"nsenter"_s,
                                 QStringList{u"-t"_s, QString::number(m_monitor->pid())}
                                     << words("-m mount") << arguments);
    };
    ASSERT_EQ(mountInMonitor(words("-t tmpfs kestrom-test") << sandbox.path()), 0);
    if (mountInMonitor(words("-o loop") << image << disk.path()) != 0) {
        GTEST_SKIP() << "this machine cannot mount a loop image";
    }
    ASSERT_TRUE(watch->waitForOutput(u"notification from EventAgent"_s))
        << watch->output().toStdString();
    EXPECT_TRUE(watch->output().contains(disk.path())) << watch->output().toStdString();
    EXPECT_FALSE(watch->output().contains(sandbox.path())) << watch->output().toStdString();
    EXPECT_EQ(logLinesContaining(u"posting volume %1 mount notification"_s.arg(disk.path())), 1);
    EXPECT_EQ(logLinesContaining(u"posting volume %1 mount notification"_s.arg(sandbox.path())), 0);
}

// Graded from the status file a capture left: a capture that logged issues is a warning with
// its own words; an archive that is not there is not found, and nothing is made up for it.
TEST_F(DesktopEndToEndTest, ArchiveStatusIsGradedFromItsFileAndAMissingArchiveIsNotFound)
{
    QTemporaryDir folder;
    const QString archive = folder.filePath(u"Photos.stromi"_s);
    auto create =
        ctl(QStringList{u"archive"_s, u"create"_s, archive}
            << words("--capture-warning --captured-days-ago 0 --verified-days-ago 0 --no-history"));
    ASSERT_TRUE(create->finished());
    ASSERT_EQ(create->exitCode(), 0) << create->output().toStdString();
    auto graded = ctl(QStringList{u"archive"_s, u"status"_s, archive});
    ASSERT_TRUE(graded->finished());
    EXPECT_EQ(graded->exitCode(), 0);
    EXPECT_TRUE(graded->output().contains(u"grade warning"_s)) << graded->output().toStdString();
    EXPECT_TRUE(graded->output().contains(u"capture Capture logged issues"_s))
        << graded->output().toStdString();

    const QString missing = u"/nonexistent/Gone.stromi"_s;
    auto status = ctl(QStringList{u"archive"_s, u"status"_s, missing});
    ASSERT_TRUE(status->finished());
    EXPECT_EQ(status->exitCode(), 1);
    EXPECT_TRUE(status->output().contains(u"archive not found: "_s + missing))
        << status->output().toStdString();
    EXPECT_FALSE(QFileInfo::exists(missing));
}

// A client asking which archives hold some items is answered from the capture history that a
// capture left, whichever thread the monitor finds them on.
TEST_F(DesktopEndToEndTest, TheArchivesHoldingItemsComeFromTheirCaptureHistory)
{
    QTemporaryDir folder;
    const QString archive = folder.filePath(u"Photos.stromi"_s);
    const QString held = folder.filePath(u"cat.jpg"_s);
    QFile item(held);
    ASSERT_TRUE(item.open(QIODevice::WriteOnly));
    item.close();
    auto create = ctl(QStringList{u"archive"_s, u"create"_s, archive, u"--outline"_s, held});
    ASSERT_TRUE(create->finished());
    ASSERT_EQ(create->exitCode(), 0) << create->output().toStdString();
    ASSERT_TRUE(MessagingThread::instance().connection().send(
        monitorCall(u"com.kestrom.StromMonitoring"_s, u"refreshRecentRepositoryCache"_s, {})));

    const auto holders = [](const QStringList& paths) {
        const QVariant answered = answer(u"StromMonitoring"_s, u"queryRepositoriesForItems"_s,
                                         {KeyedArchive::archivedData(QVariant(paths))});
        QStringList found;
        for (const QVariant& record :
             KeyedArchive::unarchivedObject(answered.toByteArray(),
                                            KeyedArchive::propertyListClasses())
                 .toList()) {
            found << record.toMap().value(u"path"_s).toString();
        }
        return found;
    };
    ASSERT_TRUE(QTest::qWaitFor([&] { return !holders({held}).isEmpty(); }, 30000));
    EXPECT_EQ(holders({folder.filePath(u"dog.jpg"_s), held}), QStringList{archive});
    EXPECT_TRUE(holders({folder.filePath(u"dog.jpg"_s)}).isEmpty());
}

#include "DesktopEndToEndTest.moc"
