#include "platform/linux/FreedesktopFileViewer.h"
#include "platform/linux/LogindSleepWatcher.h"
#include "platform/linux/SessionBusApplicationWatcher.h"
#include "support/PrivateBus.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {
[[maybe_unused]] const bool s_privateBus = (PrivateBus::use(), true);
} // namespace

// A file manager that keeps what it was asked to show.
class FakeFileManager : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.FileManager1")
public:
    QList<QStringList> m_shown;
    QStringList m_startupIds;

public Q_SLOTS:
    Q_SCRIPTABLE void ShowItems(const QStringList& uris, const QString& startupId)
    {
        m_shown.append(uris);
        m_startupIds.append(startupId);
    }
};

TEST(FreedesktopFileViewerTest, ItemsGoAsFileURIsAndAMissingFileManagerIsReported)
{
    FreedesktopFileViewer viewer;
    QStringList failures;
    viewer.showItems({u"/tmp/My Archive.kestrom"_s},
                     [&failures](const QString& error) { failures.append(error); });
    ASSERT_TRUE(QTest::qWaitFor([&] { return !failures.isEmpty(); }, 30000));
    EXPECT_TRUE(failures.first().startsWith(u"org.freedesktop.DBus.Error.ServiceUnknown"_s))
        << failures.first().toStdString();

    QDBusConnection server = QDBusConnection::connectToBus(QDBusConnection::SessionBus, u"fm"_s);
    FakeFileManager manager;
    ASSERT_TRUE(server.registerObject(u"/org/freedesktop/FileManager1"_s, &manager,
                                      QDBusConnection::ExportScriptableSlots));
    ASSERT_TRUE(server.registerService(u"org.freedesktop.FileManager1"_s));
    viewer.showItems({u"/tmp/My Archive.kestrom"_s},
                     [&failures](const QString& error) { failures.append(error); });
    ASSERT_TRUE(QTest::qWaitFor([&] { return !manager.m_shown.isEmpty(); }, 30000));
    EXPECT_EQ(manager.m_shown.first(), QStringList{u"file:///tmp/My%20Archive.kestrom"_s});
    EXPECT_EQ(manager.m_startupIds.first(), QString());
    QTest::qWait(50); // a failure would come with the reply, already here
    EXPECT_EQ(failures.size(), 1);
}

// The session bus stands in for the system bus; the test owns logind's name on it.
TEST(LogindSleepWatcherTest, OnlyLogindsWakeIsHeard)
{
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", qgetenv("DBUS_SESSION_BUS_ADDRESS"));
    QDBusConnection logind = QDBusConnection::connectToBus(QDBusConnection::SessionBus, u"ld"_s);
    ASSERT_TRUE(logind.registerService(u"org.freedesktop.login1"_s));
    QDBusConnection stranger = QDBusConnection::connectToBus(QDBusConnection::SessionBus, u"x"_s);

    LogindSleepWatcher watcher;
    int wakes = 0;
    watcher.setWakeHandler([&wakes] { ++wakes; });
    const auto prepareForSleep = [](QDBusConnection& bus, bool sleeping) {
        QDBusMessage signal =
            QDBusMessage::createSignal(u"/org/freedesktop/login1"_s,
                                       u"org.freedesktop.login1.Manager"_s, u"PrepareForSleep"_s);
        signal << sleeping;
        bus.send(signal);
    };
    prepareForSleep(stranger, false);
    prepareForSleep(logind, true);
    prepareForSleep(logind, false);
    ASSERT_TRUE(QTest::qWaitFor([&] { return wakes > 0; }, 30000));
    // The three signals arrive in order: had the stranger's or the sleep counted, it would show.
    QTest::qWait(50);
    EXPECT_EQ(wakes, 1);
}

// An application is a well-known name with a desktop entry of the same identifier; a name
// without one is a service, and unique names are connections.
TEST(SessionBusApplicationWatcherTest, NamesWithADesktopEntryComeAndGoAsApplications)
{
    QTemporaryDir data;
    ASSERT_TRUE(QDir(data.path()).mkpath(u"applications"_s));
    QFile entry(data.filePath(u"applications/org.example.Editor.desktop"_s));
    ASSERT_TRUE(entry.open(QIODevice::WriteOnly));
    entry.write("[Desktop Entry]\nType=Application\nName=Editor\nExec=true\n");
    entry.close();
    const QByteArray dataHome = qgetenv("XDG_DATA_HOME");
    qputenv("XDG_DATA_HOME", QFile::encodeName(data.path()));

    SessionBusApplicationWatcher watcher;
    QStringList events;
    watcher.startWatching([&events](const QString& name) { events << u"launched "_s + name; },
                          [&events](const QString& name) { events << u"ended "_s + name; });
    {
        QDBusConnection editor =
            QDBusConnection::connectToBus(QDBusConnection::SessionBus, u"ed"_s);
        ASSERT_TRUE(editor.registerService(u"org.example.Service"_s));
        ASSERT_TRUE(editor.registerService(u"org.example.Editor"_s));
        ASSERT_TRUE(QTest::qWaitFor([&] { return !events.isEmpty(); }, 30000));
        EXPECT_EQ(watcher.runningApplications(), QStringList{u"org.example.Editor"_s});
    }
    // The application's connection ends, as when it quits.
    QDBusConnection::disconnectFromBus(u"ed"_s);
    ASSERT_TRUE(QTest::qWaitFor([&] { return events.size() == 2; }, 30000));
    EXPECT_EQ(events,
              (QStringList{u"launched org.example.Editor"_s, u"ended org.example.Editor"_s}));
    EXPECT_TRUE(watcher.runningApplications().isEmpty());
    qputenv("XDG_DATA_HOME", dataHome);
}

#include "DesktopServicesTest.moc"
