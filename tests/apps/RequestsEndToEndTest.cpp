#include "MonitorProcessFixture.h"
#include "references/BookmarkPath.h"

#include <QDBusConnection>
#include <QDBusReply>
#include <QDirIterator>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {
const QString kPassword = u"tr0ub4dor-&-3"_s;

// A bus of the test's own that admits every user, so a peer of another uid can knock, with an
// unlocked keyring serving secrets on it.
class OpenBusWithKeyring : public ::testing::Environment
{
public:
    void SetUp() override
    {
        ASSERT_TRUE(m_folder.isValid());
        const QString config = m_folder.filePath(u"bus.conf"_s);
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
        m_daemon.start(u"dbus-daemon"_s, words("--nofork --print-address=1")
                                             << u"--config-file="_s + config);
        ASSERT_TRUE(m_daemon.waitForStarted(30000));
        QByteArray address;
        while (!address.contains('\n') && m_daemon.waitForReadyRead(30000)) {
            address += m_daemon.readAllStandardOutput();
        }
        ASSERT_TRUE(address.contains('\n'));
        qputenv("DBUS_SESSION_BUS_ADDRESS", address.trimmed());
        // A runtime folder of its own, or the keyring joins the one of the outer session.
        const QString runtime = m_folder.filePath(u"runtime"_s);
        ASSERT_TRUE(QDir().mkdir(runtime, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        qputenv("XDG_RUNTIME_DIR", runtime.toLocal8Bit());
        QProcess keyring;
        keyring.start(u"gnome-keyring-daemon"_s, words("--unlock --components=secrets"));
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
            QDBusConnection::connectToBus(QDBusConnection::SessionBus, u"teardown"_s);
        const QDBusReply<uint> pid = bus.interface()->servicePid(u"org.freedesktop.secrets"_s);
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
class RequestsEndToEndTest : public MonitorProcessFixture
{
protected:
    void SetUp() override
    {
        SwitchboardFixture::SetUp();
        startMonitor(QStringLiteral(MONITOR_PROGRAM));
    }

    static std::unique_ptr<ChildProcess> request(const QStringList& arguments)
    {
        auto asking = ctl(QStringList{u"request"_s} + arguments);
        EXPECT_TRUE(asking->finished(60000));
        return asking;
    }

    QTemporaryDir m_files;
};

TEST_F(RequestsEndToEndTest, APasswordComesBackAndReachesNoLog)
{
    QProcess store;
    store.start(u"secret-tool"_s, words("store --label=test service Kestrom account anna"));
    store.write(kPassword.toUtf8());
    store.closeWriteChannel();
    ASSERT_TRUE(store.waitForFinished(30000));
    ASSERT_EQ(store.exitCode(), 0) << store.readAllStandardError().toStdString();

    auto found = request(words("password --id c.1 --account anna"));
    EXPECT_EQ(found->exitCode(), 0);
    EXPECT_TRUE(found->output().contains(u"password "_s + kPassword))
        << found->output().toStdString();
    auto missing = request(words("password --id c.2 --account nobody"));
    EXPECT_EQ(missing->exitCode(), 1);
    EXPECT_TRUE(missing->output().contains(u"no password"_s));
    EXPECT_EQ(logLinesContaining(u"could not retrieve password from keychain"_s), 1);

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
    const QString path = writeScript(m_files.filePath(u"prolog.sh"_s),
                                     "echo \"hello from $WHO\"\ntouch \"$0.started\"\n"
                                     "while [ ! -e \"$0.go\" ]; do sleep 0.05; done\n");

    auto running = ctl(words("request script --id s.1 --env WHO=test --path") << path);
    ASSERT_TRUE(QTest::qWaitFor([&] { return QFile::exists(path + u".started"_s); }, 30000));
    EXPECT_EQ(request(words("cancel --id s.2"))->exitCode(), 0);
    QFile(path + u".go"_s).open(QIODevice::WriteOnly);
    ASSERT_TRUE(running->finished(60000));
    EXPECT_EQ(running->exitCode(), 0) << running->output().toStdString();
    EXPECT_TRUE(running->output().startsWith(u"script still running\n"_s));
    EXPECT_TRUE(running->output().contains(u"script success YES"_s));
    // The output line is nested under the outcome line: its identifier extends the outcome's.
    QFile log(LogFileLogger::currentLogFilePath());
    ASSERT_TRUE(log.open(QIODevice::ReadOnly));
    const QString text = QString::fromUtf8(log.readAll());
    const QRegularExpression nested(
        u"Prolog executed \\[([0-9.]+)\\]\\n.*Details hello from test \\[\\1\\.1\\]"_s);
    EXPECT_TRUE(nested.match(text).hasMatch()) << text.toStdString();

    QFile::setPermissions(path, QFile::permissions(path) | QFile::WriteOther);
    auto refused = request(words("script --id s.3 --path") << path);
    EXPECT_EQ(refused->exitCode(), 1);
    EXPECT_TRUE(refused->output().contains(u"script success NO"_s));
    EXPECT_EQ(logLinesContaining(u"is writable by group or others"_s), 1);
}

TEST_F(RequestsEndToEndTest, PeersOfAnotherUserAreRefused)
{
    if (geteuid() != 0 || QStandardPaths::findExecutable(u"setpriv"_s).isEmpty()) {
        GTEST_SKIP() << "becoming another user needs the super-user and setpriv";
    }
    // The hub, the monitor, a command's listener and the desktop's activation (which only the
    // monitor's own second start may use) all pass the same gate.
    auto served = ctl(words("serve test.foreign"));
    ASSERT_TRUE(served->waitForOutput(u"serving"_s));
    const Endpoint listener = listenerFor(u"test.foreign"_s);
    ASSERT_FALSE(listener.isNone());
    const auto send = [](const QString& destination, const QString& path, const QString& member) {
        return words("dbus-send --session --print-reply")
               << u"--dest="_s + destination << path << member;
    };
    const auto endpoint = monitorEndpoint();
    const QStringList calls[] = {
        send(SwitchboardNames::busName(SwitchboardNames::perUserServiceName()),
             u"/com/kestrom/Switchboard"_s,
             u"com.kestrom.KSComponentMessaging.barrierWithCompletion"_s),
        send(endpoint->service(), endpoint->path(),
             u"com.kestrom.KSComponentInstalling.queryComponentVersionWithReply"_s),
        send(listener.service(), listener.path(),
             u"com.kestrom.CommandListenerMessaging.commandStarted"_s),
        words("gdbus call --session --dest com.kestrom.monitor --object-path /com/kestrom/monitor "
              "--method org.freedesktop.Application.Activate {}"),
    };
    for (const QStringList& call : calls) {
        SCOPED_TRACE(call.join(u' ').toStdString());
        ChildProcess peer(u"setpriv"_s, words("--reuid=65534 --regid=65534 --clear-groups") + call);
        ASSERT_TRUE(peer.finished(30000));
        EXPECT_TRUE(peer.output().contains(u"AccessDenied"_s)) << peer.output().toStdString();
        EXPECT_FALSE(peer.output().contains(u"Monitor-2.2.5.12"_s));
    }
    EXPECT_EQ(logLinesContaining(u"a peer of uid 65534"_s), 3);
}

TEST_F(RequestsEndToEndTest, BookmarksOfMovedArchivesResolveAndOfDeletedOnesDoNot)
{
    BookmarkPath::registerArchivableClass();
    QDir folder(m_files.path());
    const auto bookmarkFile = [&](const QString& archive) {
        EXPECT_TRUE(folder.mkdir(archive));
        const auto bookmark = BookmarkPath::fromUrl(QUrl::fromLocalFile(folder.filePath(archive)));
        EXPECT_TRUE(bookmark);
        QFile file(folder.filePath(archive + u".bookmark"_s));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(bookmark->bookmarkData());
        return file.fileName();
    };
    const QString moved = bookmarkFile(u"moved.stromi"_s);
    const QString deleted = bookmarkFile(u"deleted.stromi"_s);
    ASSERT_TRUE(folder.rename(u"moved.stromi"_s, u"renamed.stromi"_s));
    ASSERT_TRUE(folder.rmdir(u"deleted.stromi"_s));

    auto found = request(words("repository --id r.1 --bookmark-file") << moved);
    EXPECT_EQ(found->exitCode(), 0) << found->output().toStdString();
    EXPECT_EQ(found->output(), u"resolution status 2\nresolution status 0 path "_s +
                                   folder.filePath(u"renamed.stromi"_s) + u'\n');
    auto gone = request(words("repository --id r.2 --bookmark-file") << deleted);
    EXPECT_EQ(gone->exitCode(), 1);
    EXPECT_EQ(gone->output(), u"resolution status 2\nresolution status 1\n"_s);
}
