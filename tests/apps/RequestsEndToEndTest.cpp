#include "messaging/KSPublishedConnection.h"
#include "messaging/SwitchboardFixture.h"
#include "references/BookmarkPath.h"

#include <QDBusConnection>
#include <QDBusReply>
#include <QDirIterator>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <unistd.h>

namespace {
const QString kMonitorName = QStringLiteral("com.kestrom.monitor");
const QString kPassword = QStringLiteral("tr0ub4dor-&-3");

// A bus of the test's own that admits every user, so a peer of another uid can knock, with an
// unlocked keyring serving secrets on it.
class OpenBusWithKeyring : public ::testing::Environment
{
public:
    void SetUp() override
    {
        ASSERT_TRUE(m_folder.isValid());
        const QString config = m_folder.filePath(QStringLiteral("bus.conf"));
        QFile file(config);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(
            "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
            " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
            "<busconfig><type>session</type><listen>unix:tmpdir=/tmp</listen>"
            "<auth>EXTERNAL</auth><policy context=\"default\"><allow user=\"*\"/>"
            "<allow send_destination=\"*\"/><allow receive_sender=\"*\"/><allow own=\"*\"/>"
            "</policy></busconfig>\n");
        file.close();
        m_daemon.start(QStringLiteral("dbus-daemon"),
                       {QStringLiteral("--config-file=") + config, QStringLiteral("--nofork"),
                        QStringLiteral("--print-address=1")});
        ASSERT_TRUE(m_daemon.waitForStarted(30000));
        QByteArray address;
        while (!address.contains('\n') && m_daemon.waitForReadyRead(30000)) {
            address += m_daemon.readAllStandardOutput();
        }
        ASSERT_TRUE(address.contains('\n'));
        qputenv("DBUS_SESSION_BUS_ADDRESS", address.trimmed());
        // A runtime folder of its own, or the keyring joins the one of the outer session.
        const QString runtime = m_folder.filePath(QStringLiteral("runtime"));
        ASSERT_TRUE(QDir().mkdir(runtime, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        qputenv("XDG_RUNTIME_DIR", runtime.toLocal8Bit());
        QProcess keyring;
        keyring.start(QStringLiteral("gnome-keyring-daemon"),
                      {QStringLiteral("--unlock"), QStringLiteral("--components=secrets")});
        keyring.write("kestrom-test\n");
        keyring.closeWriteChannel();
        ASSERT_TRUE(keyring.waitForFinished(30000));
        for (const QByteArray& line : keyring.readAllStandardOutput().split('\n')) {
            if (const qsizetype equals = line.indexOf('='); equals > 0) {
                qputenv(line.left(equals).constData(), line.mid(equals + 1));
            }
        }
    }

    void TearDown() override
    {
        // The keyring daemon detached itself: found by the name it holds, stopped by its pid.
        const QDBusConnection bus =
            QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("teardown"));
        const QDBusReply<uint> pid =
            bus.interface()->servicePid(QStringLiteral("org.freedesktop.secrets"));
        if (pid.isValid()) {
            ::kill(pid_t(pid.value()), SIGTERM);
        }
        m_daemon.kill();
        m_daemon.waitForFinished(30000);
    }

private:
    QTemporaryDir m_folder;
    QProcess m_daemon;
};

[[maybe_unused]] const bool s_bus =
    (::testing::AddGlobalTestEnvironment(new OpenBusWithKeyring), true);
} // namespace

// The real hub, the real monitor and kestromctl playing the commands that ask.
class RequestsEndToEndTest : public SwitchboardFixture
{
protected:
    void SetUp() override
    {
        SwitchboardFixture::SetUp();
        m_monitor = std::make_unique<ChildProcess>(
            QStringLiteral(MONITOR_PROGRAM),
            QStringList{QStringLiteral("-platform"), QStringLiteral("offscreen")});
        ASSERT_TRUE(m_monitor->started());
        ASSERT_TRUE(QTest::qWaitFor(
            [] { return KSPublishedConnection::lookUpEndpoint(kMonitorName).has_value(); }, 30000));
    }
    void TearDown() override
    {
        m_monitor.reset();
        SwitchboardFixture::TearDown();
    }

    static std::unique_ptr<ChildProcess> request(const QStringList& arguments)
    {
        auto asking = ctl(QStringList{QStringLiteral("request")} + arguments);
        EXPECT_TRUE(asking->finished(60000));
        return asking;
    }

    std::unique_ptr<ChildProcess> m_monitor;
    QTemporaryDir m_files;
};

TEST_F(RequestsEndToEndTest, APasswordComesBackAndReachesNoLog)
{
    QProcess store;
    store.start(QStringLiteral("secret-tool"),
                {QStringLiteral("store"), QStringLiteral("--label=test"), QStringLiteral("service"),
                 QStringLiteral("Kestrom"), QStringLiteral("account"), QStringLiteral("anna")});
    store.write(kPassword.toUtf8());
    store.closeWriteChannel();
    ASSERT_TRUE(store.waitForFinished(30000));
    ASSERT_EQ(store.exitCode(), 0) << store.readAllStandardError().toStdString();

    auto found = request({QStringLiteral("password"), QStringLiteral("--id"), QStringLiteral("c.1"),
                          QStringLiteral("--account"), QStringLiteral("anna")});
    EXPECT_EQ(found->exitCode(), 0);
    EXPECT_TRUE(found->output().contains(QStringLiteral("password ") + kPassword))
        << found->output().toStdString();
    auto missing =
        request({QStringLiteral("password"), QStringLiteral("--id"), QStringLiteral("c.2"),
                 QStringLiteral("--account"), QStringLiteral("nobody")});
    EXPECT_EQ(missing->exitCode(), 1);
    EXPECT_TRUE(missing->output().contains(QStringLiteral("no password")));
    EXPECT_EQ(logLinesContaining(QStringLiteral("could not retrieve password from keychain")), 1);

    ASSERT_TRUE(m_monitor->stop());
    int files = 0;
    for (QDirIterator it(m_stateHome.path(), QDir::Files, QDirIterator::Subdirectories);
         it.hasNext();) {
        QFile log(it.next());
        ASSERT_TRUE(log.open(QIODevice::ReadOnly));
        EXPECT_FALSE(log.readAll().contains(kPassword.toUtf8())) << log.fileName().toStdString();
        ++files;
    }
    EXPECT_GE(files, 1);
}

TEST_F(RequestsEndToEndTest, ScriptsRunAsTheUserSaysAndOnlyTheirOwnCancelStopsThem)
{
    const QDir folder(m_files.path());
    const QString path = folder.filePath(QStringLiteral("prolog.sh"));
    QFile script(path);
    ASSERT_TRUE(script.open(QIODevice::WriteOnly));
    script.write("#!/bin/sh\necho \"hello from $WHO\"\ntouch \"$0.started\"\n"
                 "while [ ! -e \"$0.go\" ]; do sleep 0.05; done\n");
    script.close();
    script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);

    auto running = ctl({QStringLiteral("request"), QStringLiteral("script"), QStringLiteral("--id"),
                        QStringLiteral("s.1"), QStringLiteral("--path"), path,
                        QStringLiteral("--env"), QStringLiteral("WHO=test")});
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return QFile::exists(path + QStringLiteral(".started")); }, 30000));
    auto other = request({QStringLiteral("cancel"), QStringLiteral("--id"), QStringLiteral("s.2")});
    EXPECT_EQ(other->exitCode(), 0);
    QFile(path + QStringLiteral(".go")).open(QIODevice::WriteOnly);
    ASSERT_TRUE(running->finished(60000));
    EXPECT_EQ(running->exitCode(), 0) << running->output().toStdString();
    EXPECT_TRUE(running->output().startsWith(QStringLiteral("script still running\n")));
    EXPECT_TRUE(running->output().contains(QStringLiteral("script success YES")));
    // The output line is nested under the outcome line: its identifier extends the outcome's.
    QFile log(LogFileLogger::currentLogFilePath());
    ASSERT_TRUE(log.open(QIODevice::ReadOnly));
    const QString text = QString::fromUtf8(log.readAll());
    const QRegularExpression nested(QStringLiteral(
        "Prolog executed \\[([0-9.]+)\\]\\n.*Details hello from test \\[\\1\\.1\\]"));
    EXPECT_TRUE(nested.match(text).hasMatch()) << text.toStdString();

    script.setPermissions(script.permissions() | QFile::WriteOther);
    auto refused = request({QStringLiteral("script"), QStringLiteral("--id"), QStringLiteral("s.3"),
                            QStringLiteral("--path"), path});
    EXPECT_EQ(refused->exitCode(), 1);
    EXPECT_TRUE(refused->output().contains(QStringLiteral("script success NO")));
    EXPECT_EQ(logLinesContaining(QStringLiteral("is writable by group or others")), 1);
}

TEST_F(RequestsEndToEndTest, PeersOfAnotherUserAreRefused)
{
    if (geteuid() != 0 || QStandardPaths::findExecutable(QStringLiteral("setpriv")).isEmpty()) {
        GTEST_SKIP() << "becoming another user needs the super-user and setpriv";
    }
    const auto endpoint = KSPublishedConnection::lookUpEndpoint(kMonitorName);
    const auto knock = [](const QString& destination, const QString& path, const QString& member) {
        auto peer = std::make_unique<ChildProcess>(
            QStringLiteral("setpriv"),
            QStringList{QStringLiteral("--reuid=65534"), QStringLiteral("--regid=65534"),
                        QStringLiteral("--clear-groups"), QStringLiteral("dbus-send"),
                        QStringLiteral("--session"), QStringLiteral("--print-reply"),
                        QStringLiteral("--dest=") + destination, path, member});
        EXPECT_TRUE(peer->finished(30000));
        return peer->output();
    };
    const QString hub =
        knock(SwitchboardNames::busName(SwitchboardNames::perUserServiceName()),
              QStringLiteral("/com/kestrom/Switchboard"),
              QStringLiteral("com.kestrom.KSComponentMessaging.barrierWithCompletion"));
    EXPECT_TRUE(hub.contains(QStringLiteral("AccessDenied"))) << hub.toStdString();
    const QString monitor = knock(endpoint->service(), endpoint->path(),
                                  QStringLiteral("com.kestrom.KSComponentInstalling."
                                                 "queryComponentVersionWithReply"));
    EXPECT_TRUE(monitor.contains(QStringLiteral("AccessDenied"))) << monitor.toStdString();
    EXPECT_FALSE(monitor.contains(QStringLiteral("Monitor-2.2.5.12")));
    EXPECT_EQ(logLinesContaining(QStringLiteral("a peer of uid 65534")), 2);
}

TEST_F(RequestsEndToEndTest, BookmarksOfMovedArchivesResolveAndOfDeletedOnesDoNot)
{
    BookmarkPath::registerArchivableClass();
    QDir folder(m_files.path());
    const auto bookmarkFile = [&](const QString& archive) {
        EXPECT_TRUE(folder.mkdir(archive));
        const auto bookmark = BookmarkPath::fromUrl(QUrl::fromLocalFile(folder.filePath(archive)));
        EXPECT_TRUE(bookmark);
        QFile file(folder.filePath(archive + QStringLiteral(".bookmark")));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(bookmark->bookmarkData());
        return file.fileName();
    };
    const QString moved = bookmarkFile(QStringLiteral("moved.stromi"));
    const QString deleted = bookmarkFile(QStringLiteral("deleted.stromi"));
    ASSERT_TRUE(folder.rename(QStringLiteral("moved.stromi"), QStringLiteral("renamed.stromi")));
    ASSERT_TRUE(folder.rmdir(QStringLiteral("deleted.stromi")));

    auto found = request({QStringLiteral("repository"), QStringLiteral("--id"),
                          QStringLiteral("r.1"), QStringLiteral("--bookmark-file"), moved});
    EXPECT_EQ(found->exitCode(), 0) << found->output().toStdString();
    EXPECT_EQ(found->output(), QStringLiteral("resolution status 2\nresolution status 0 path ") +
                                   folder.filePath(QStringLiteral("renamed.stromi")) +
                                   QLatin1Char('\n'));
    auto gone = request({QStringLiteral("repository"), QStringLiteral("--id"),
                         QStringLiteral("r.2"), QStringLiteral("--bookmark-file"), deleted});
    EXPECT_EQ(gone->exitCode(), 1);
    EXPECT_EQ(gone->output(), QStringLiteral("resolution status 2\nresolution status 1\n"));
}
