#include "core/CommandScriptExecutor.h"
#include "core/SessionCommandRequests.h"
#include "core/TextPipeReader.h"
#include "fakes/FakeSecretStore.h"
#include "fakes/ManualTimers.h"
#include "logging/LogFileLogger.h"
#include "logging/Logger.h"
#include "platform/PeerUser.h"
#include "preferences/WTUserPreferences.h"

#include <QDBusConnection>
#include <QDir>
#include <QFile>
#include <QSemaphore>
#include <QTemporaryDir>
#include <QTest>
#include <csignal>
#include <gtest/gtest.h>
#include <thread>
#include <unistd.h>

using namespace std::chrono_literals;
using namespace Qt::StringLiterals;

namespace {
struct Post
{
    QString name;
    QString source;
    QVariantMap info;
};

constexpr auto kRw = QFile::ReadOwner | QFile::WriteOwner;
constexpr auto kRwx = kRw | QFile::ExeOwner;

QString writeScript(const QDir& folder, const QString& name, const QByteArray& body,
                    QFile::Permissions permissions = kRwx)
{
    const QString path = folder.filePath(name);
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("#!/bin/sh\n" + body);
    file.close();
    file.setPermissions(permissions);
    return path;
}

// The requests with a recording switchboard, a keyring in memory, a resolver the test steers
// and timers on a clock the test moves; log lines go to a file of the test's own.
class CommandRequestsTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        qputenv("XDG_STATE_HOME", m_state.path().toLocal8Bit());
        Logger::releaseDefaultLogger();
        SessionCommandRequests::Switchboard board;
        board.post = [this](const QString& name, const QString& source, const QVariantMap& info) {
            QMutexLocker locker(&m_mutex);
            m_posts.append({name, source, info});
        };
        board.observe = [this](const QString& observer, const QString& name,
                               SessionCommandRequests::Switchboard::Block block) {
            QMutexLocker locker(&m_mutex);
            m_observers.insert(observer + QLatin1Char('|') + name, std::move(block));
        };
        board.removeObserver = [this](const QString& observer) {
            QMutexLocker locker(&m_mutex);
            m_removed << observer;
        };
        m_requests = std::make_unique<SessionCommandRequests>(SessionCommandRequests::Parts{
            board, m_secrets,
            [this](const QByteArray& bookmark) {
                return SessionCommandRequests::Resolution{m_resolve(bookmark), m_resolveError};
            },
            m_timers.factory()});
    }

    void TearDown() override { Logger::releaseDefaultLogger(); }

    QList<Post> posts(const QString& name)
    {
        QMutexLocker locker(&m_mutex);
        QList<Post> named;
        std::copy_if(m_posts.cbegin(), m_posts.cend(), std::back_inserter(named),
                     [&](const Post& post) { return post.name == name; });
        return named;
    }
    bool waitForPostWith(const QString& name, const QString& key)
    {
        return QTest::qWaitFor(
            [&] {
                const QList<Post> named = posts(name);
                return std::any_of(named.cbegin(), named.cend(),
                                   [&](const Post& post) { return post.info.contains(key); });
            },
            30000);
    }
    void sendCancel(const QString& observedFor, const QString& identifier)
    {
        QMutexLocker locker(&m_mutex);
        const auto block = m_observers.value(
            SessionCommandRequests::cancelObserverName(observedFor) + u"|CancelCommandScript"_s);
        locker.unlock();
        ASSERT_TRUE(block);
        block({{u"CommandID"_s, identifier}});
    }
    static QString log()
    {
        Logger::defaultLogger()->flush();
        QFile file(LogFileLogger::currentLogFilePath());
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
    }

    QTemporaryDir m_state;
    QTemporaryDir m_files;
    QMutex m_mutex;
    QList<Post> m_posts;
    QHash<QString, SessionCommandRequests::Switchboard::Block> m_observers;
    QStringList m_removed;
    std::shared_ptr<FakeSecretStore> m_secrets = std::make_shared<FakeSecretStore>();
    std::function<QUrl(const QByteArray&)> m_resolve;
    QString m_resolveError;
    ManualTimers m_timers;
    std::unique_ptr<SessionCommandRequests> m_requests;
};
} // namespace

TEST_F(CommandRequestsTest, AResolutionHeld400SecondsIsKeptAliveThreeTimesThenEnds)
{
    QSemaphore release;
    m_resolve = [&](const QByteArray&) {
        release.acquire();
        return QUrl::fromLocalFile(m_files.path());
    };
    m_requests->command(u"c1"_s, "bookmark");
    m_timers.advance(400s);
    const QList<Post> interim = posts(u"RepositoryRequestResolved"_s);
    ASSERT_EQ(interim.size(), 3);
    for (const Post& post : interim) {
        EXPECT_EQ(post.source, u"com.kestrom.monitor"_s);
        EXPECT_EQ(post.info.value(u"ResolutionStatus"_s).toULongLong(), 2u);
        EXPECT_EQ(post.info.value(u"CommandID"_s), u"c1"_s);
    }
    release.release();
    ASSERT_TRUE(waitForPostWith(u"RepositoryRequestResolved"_s, u"RepositoryPath"_s));
    m_timers.advance(300s);
    const QList<Post> all = posts(u"RepositoryRequestResolved"_s);
    ASSERT_EQ(all.size(), 4) << "no keep-alive after the final answer";
    EXPECT_EQ(all.last().info.value(u"ResolutionStatus"_s).toULongLong(), 0u);
    EXPECT_EQ(all.last().info.value(u"RepositoryPath"_s), m_files.path());
    EXPECT_EQ(m_timers.live(), 0);
}

TEST_F(CommandRequestsTest, ResolutionAnswersSayWhetherThePathExists)
{
    // What the reference resolves to; the status answered and whether a path comes with it.
    int serial = 0;
    // The error logged is the resolution's own; none when only the path is missing.
    const QString gone = m_files.filePath(u"gone.stromi"_s);
    for (const auto& [resolved, error, status, hasPath, logged] :
         {std::tuple{QUrl::fromLocalFile(m_files.path()), QString(), 0u, true, QString()},
          {QUrl::fromLocalFile(gone), QString(), 1u, true,
           u"command r2, path="_s + gone + u", error=(null)"_s},
          {QUrl(), u"volume offline"_s, 1u, false,
           u"command r3, path=(null), error=volume offline"_s}}) {
        const QString id = u"r%1"_s.arg(++serial);
        m_resolve = [&](const QByteArray&) {
            return resolved;
        };
        m_resolveError = error;
        m_requests->repositoryRequested(
            {{u"CommandID"_s, id}, {u"RepositoryBookmark"_s, QByteArray("x")}});
        ASSERT_TRUE(QTest::qWaitFor(
            [&] { return posts(u"RepositoryRequestResolved"_s).size() == 2 * serial; }, 30000));
        const Post final = posts(u"RepositoryRequestResolved"_s).last();
        EXPECT_EQ(final.info.value(u"CommandID"_s), id);
        EXPECT_EQ(final.info.value(u"ResolutionStatus"_s).toULongLong(), status) << serial;
        EXPECT_EQ(final.info.contains(u"RepositoryPath"_s), hasPath) << serial;
        EXPECT_TRUE(logged.isNull() || log().contains(logged)) << logged.toStdString();
    }
    EXPECT_EQ(log().count(u"could not resolve repository reference"_s), 2);
}

TEST_F(CommandRequestsTest, KeychainAnswersCarryThePasswordUnderAccountOrNothing)
{
    m_secrets->store(u"Kestrom"_s, u"anna"_s, "p\xc3\xa4ss-42");
    m_secrets->store(u"Kestrom"_s, u"bytes"_s, "\xff\xfe");
    m_secrets->store(u"Other"_s, u"carl"_s, "elsewhere");
    for (const auto& [account, answer] :
         {std::pair{u"anna"_s, QVariantMap{{u"Account"_s, u"p\u00e4ss-42"_s}}},
          {u"bytes"_s, QVariantMap()},
          {u"carl"_s, QVariantMap()}}) {
        const qsizetype before = posts(u"KeychainPasswordResponse"_s).size();
        m_requests->keychainPasswordRequested(
            {{u"Account"_s, account}, {u"CommandID"_s, u"cmd.7"_s}});
        ASSERT_TRUE(QTest::qWaitFor(
            [&] { return posts(u"KeychainPasswordResponse"_s).size() > before; }, 30000));
        const Post post = posts(u"KeychainPasswordResponse"_s).last();
        EXPECT_EQ(post.source, u"cmd.7"_s);
        EXPECT_EQ(post.info, answer) << account.toStdString();
    }
    const QString lines = log();
    EXPECT_EQ(lines.count(u"could not retrieve password from keychain"_s), 1);
    EXPECT_TRUE(lines.contains(u"account=carl, error=-1/"_s));
    EXPECT_FALSE(lines.contains(u"ss-42"_s));
}

TEST_F(CommandRequestsTest, ALockedKeyringNeverHoldsTheThreadThatDeliveredTheRequest)
{
    m_secrets->store(u"Kestrom"_s, u"anna"_s, "secret");
    QSemaphore unlocked;
    std::atomic<bool> answered = false;
    // A keyring that asks the user: it stays locked for as long as 30 s, unless unlocked.
    m_secrets->setGate([&] {
        unlocked.tryAcquire(1, 30000);
        answered = true;
    });
    m_requests->keychainPasswordRequested({{u"Account"_s, u"anna"_s}, {u"CommandID"_s, u"c9"_s}});
    EXPECT_FALSE(answered) << "the request waited for the keyring";
    EXPECT_TRUE(posts(u"KeychainPasswordResponse"_s).isEmpty());
    unlocked.release();
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return !posts(u"KeychainPasswordResponse"_s).isEmpty(); }, 30000));
    EXPECT_EQ(posts(u"KeychainPasswordResponse"_s).first().info,
              (QVariantMap{{u"Account"_s, u"secret"_s}}));
}

TEST_F(CommandRequestsTest, OnlyACancelForItsOwnCommandStopsAScript)
{
    const QDir folder(m_files.path());
    const QString path = writeScript(folder, u"wait.sh"_s,
                                     "touch \"$FOLDER/started.$ID\"\n"
                                     "while [ ! -e \"$FOLDER/go\" ]; do sleep 0.05; done\n");
    const auto run = [&](const QString& id) {
        m_requests->runScript(0, path, id, {{u"FOLDER"_s, folder.path()}, {u"ID"_s, id}});
        ASSERT_TRUE(QTest::qWaitFor([&] { return folder.exists(u"started."_s + id); }, 30000));
    };
    run(u"s1"_s);
    m_timers.advance(65s);
    sendCancel(u"s1"_s, u"someone.else"_s);
    run(u"s2"_s);
    sendCancel(u"s2"_s, u"s2"_s);
    ASSERT_TRUE(waitForPostWith(u"CommandScriptStatus"_s, u"ScriptSuccess"_s));
    QFile(folder.filePath(u"go"_s)).open(QIODevice::WriteOnly);
    ASSERT_TRUE(QTest::qWaitFor([&] { return m_timers.live() == 0; }, 30000));

    QHash<QString, QList<QVariant>> answers;
    for (const Post& post : posts(u"CommandScriptStatus"_s)) {
        answers[post.info.value(u"CommandID"_s).toString()] << post.info.value(u"ScriptSuccess"_s);
    }
    // s1: at once, at 30 s and 60 s, then its end; s2 began after the clock moved.
    EXPECT_EQ(answers.value(u"s1"_s), (QList<QVariant>{QVariant(), QVariant(), QVariant(), true}));
    EXPECT_EQ(answers.value(u"s2"_s), (QList<QVariant>{QVariant(), false}));
    EXPECT_EQ(m_removed.size(), 2);
}

TEST_F(CommandRequestsTest, ScriptOutcomesAndTheirLogLines)
{
    const QDir folder(m_files.path());
    // Folders on the way to a script: writable by others, by the group, sticky, and a link to
    // a safe folder that sits in a folder others can write to.
    for (const auto& [name, mode] :
         {std::pair{"open", 0777u}, {"shared", 0770u}, {"sticky", 01777u}, {"safe", 0700u}}) {
        ASSERT_TRUE(folder.mkdir(QString::fromLatin1(name)));
        ASSERT_EQ(::chmod(QFile::encodeName(folder.filePath(QString::fromLatin1(name))), mode), 0);
    }
    ASSERT_TRUE(folder.mkdir(u"shared/inner"_s));
    ASSERT_TRUE(QFile::link(folder.filePath(u"safe"_s), folder.filePath(u"open/link"_s)));
    WTUserPreferences::sharedPreferences().setValue(u"/bin/sh"_s, u"KSOSAScriptTool"_s,
                                                    WTUserPreferences::kHelperDomain);
    const struct
    {
        const char* name;
        QFile::Permissions permissions;
        bool success;
        qint32 status;
        const char* logged;
        QByteArray body = "exit 0\n";
        const char* output = ""; // its lines joined by '|'
    } cases[] = {
        {"ok.sh", kRwx, true, 0, "Prolog executed", "printf 'a\\n\\n   \\nb\\n'; echo oops >&2\n",
         "a|b"},
        {"three.sh", kRwx, false, 3, "Prolog exited with status 3", "exit 3\n"},
        {"plain.sh", kRw, false, 0, "Prolog failed to launch"},
        {"shared.sh", kRwx | QFile::WriteGroup, false, 0,
         "shared.sh is writable by group or others"},
        {"open/open.sh", kRwx, false, 0, "/open, which others can write to"},
        {"shared/inner/deep.sh", kRwx, false, 0, "/shared, which others can write to"},
        {"safe/linked.sh", kRwx, false, 0, "/open, which others can write to"},
        {"sticky/fine.sh", kRwx, true, 0, "Prolog executed", "echo fine\n", "fine"},
        {"asked.scpt", kRw, true, 0, "error output appears to indicate a 'cancel' error",
         "echo 'User canceled. (-128)' >&2\n"},
        // Whatever the monitor's threads ignore or block, a script starts with neither (of the
        // 31 classic signals; the C library keeps two real-time ones for itself).
        {"signals.sh", kRwx, true, 0, "Prolog executed",
         "for f in SigBlk SigIgn; do\n"
         "  v=$(awk -v f=$f: '$1 == f { print $2 }' /proc/self/status)\n"
         "  echo $f $((0x$v & 0x7fffffff))\n"
         "done\n",
         "SigBlk 0|SigIgn 0"},
    };
    struct sigaction ignored = {};
    ignored.sa_handler = SIG_IGN;
    struct sigaction before = {};
    ::sigaction(SIGPIPE, &ignored, &before);
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR2);
    ::pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        QString path =
            writeScript(folder, QString::fromLatin1(row.name), row.body, row.permissions);
        if (qstrcmp(row.name, "safe/linked.sh") == 0) {
            path = folder.filePath(u"open/link/linked.sh"_s);
        }
        CommandScriptExecutor executor(path, CommandScriptExecutor::kProlog);
        executor.execute();
        EXPECT_EQ(executor.success(), row.success);
        EXPECT_EQ(executor.status(), row.status);
        EXPECT_EQ(executor.outputLines().join(u'|').toStdString(), row.output);
        EXPECT_TRUE(log().contains(QLatin1String(row.logged)));
    }
    ::pthread_sigmask(SIG_UNBLOCK, &blocked, nullptr);
    ::sigaction(SIGPIPE, &before, nullptr);
    EXPECT_TRUE(log().contains(u"Warning oops"_s));

    // 5 MB of output: 256 KiB is kept, give or take one read, and the rest is said to be left out.
    CommandScriptExecutor loud(
        writeScript(folder, u"loud.sh"_s, "head -c 5000000 /dev/zero | tr '\\0' x\n"),
        CommandScriptExecutor::kEpilog);
    loud.execute();
    EXPECT_TRUE(loud.success());
    ASSERT_EQ(loud.outputLines().size(), 1);
    EXPECT_GE(loud.outputLines().first().size(), 262144);
    EXPECT_LE(loud.outputLines().first().size(), 262144 + 4096);
    EXPECT_TRUE(log().contains(u" more bytes of output not kept"_s));

    if (geteuid() == 0) {
        // Tests run as root here: uid 65534 plays another user.
        const QString foreign = writeScript(folder, u"foreign.sh"_s, "exit 0\n");
        ASSERT_EQ(::chown(foreign.toLocal8Bit().constData(), 65534, 65534), 0);
        ASSERT_TRUE(QFile::link(folder.filePath(u"ok.sh"_s), folder.filePath(u"sticky/theirs"_s)));
        ASSERT_EQ(::lchown(QFile::encodeName(folder.filePath(u"sticky/theirs"_s)), 65534, 65534),
                  0);
        for (const QString& path : {foreign, folder.filePath(u"sticky/theirs"_s)}) {
            CommandScriptExecutor executor(path, CommandScriptExecutor::kEpilog);
            executor.execute();
            EXPECT_FALSE(executor.success());
            EXPECT_TRUE(log().contains(u"Epilog not run: "_s + path + u" belongs to uid 65534"_s));
        }
    }
}

TEST_F(CommandRequestsTest, ACancelEndsWhatTheScriptLeftBehindAndNeverWaitsForItsPipes)
{
    const QDir folder(m_files.path());
    // The script leaves a process behind that holds its output open, then ends.
    CommandScriptExecutor executor(writeScript(folder, u"leaves.sh"_s,
                                               "sleep 600 &\n"
                                               "echo $! > \"$FOLDER/sleeper\"\n"
                                               "echo $$ > \"$FOLDER/shell\"\n"),
                                   CommandScriptExecutor::kProlog);
    executor.setEnvironment({{u"FOLDER"_s, folder.path()}});
    std::atomic<bool> executed = false;
    std::thread running([&] {
        executor.execute();
        executed = true;
    });
    // The shell has ended (a zombie: the executor reaps it only once the pipes are drained).
    const auto shellEnded = [&] {
        QFile shell(folder.filePath(u"shell"_s));
        if (!shell.open(QIODevice::ReadOnly)) {
            return false;
        }
        QFile stat(u"/proc/%1/stat"_s.arg(QString::fromLatin1(shell.readAll().trimmed())));
        return stat.open(QIODevice::ReadOnly) && stat.readAll().contains(") Z ");
    };
    ASSERT_TRUE(QTest::qWaitFor(shellEnded, 30000));
    std::atomic<bool> cancelled = false;
    std::thread cancelling([&] {
        executor.cancel();
        cancelled = true;
    });
    const bool cancelReturned = QTest::qWaitFor([&] { return cancelled.load(); }, 30000);
    const bool executeReturned = QTest::qWaitFor([&] { return executed.load(); }, 30000);
    if (!executeReturned) {
        QFile sleeper(folder.filePath(u"sleeper"_s));
        if (sleeper.open(QIODevice::ReadOnly)) {
            ::kill(pid_t(sleeper.readAll().trimmed().toInt()), SIGKILL);
        }
    }
    cancelling.join();
    running.join();
    EXPECT_TRUE(cancelReturned) << "the cancel waited for the pipes to drain";
    EXPECT_TRUE(executeReturned) << "what the script left behind was not stopped";
}

TEST(CommandScriptExecutorTest, PathAlwaysHoldsUsrLocalBin)
{
    const auto pathOf = [](const QStringList& own, const QMap<QString, QString>& overlay) {
        QProcessEnvironment environment;
        for (const QString& entry : own) {
            environment.insert(entry.section(QLatin1Char('='), 0, 0),
                               entry.section(QLatin1Char('='), 1));
        }
        return CommandScriptExecutor::environmentForScript(environment, overlay).value(u"PATH"_s);
    };
    EXPECT_EQ(pathOf({}, {}), u"/usr/bin:/bin:/usr/sbin:/sbin:/usr/local/bin"_s);
    EXPECT_EQ(pathOf({u"PATH=/opt/x"_s}, {{u"PATH"_s, u"/usr/local/bin:/y"_s}}),
              u"/usr/local/bin:/y"_s);
    EXPECT_EQ(pathOf({u"PATH=/opt/x"_s}, {}), u"/opt/x:/usr/local/bin"_s);
    EXPECT_EQ(CommandScriptExecutor::readableScriptType(0), u"Prolog"_s);
    EXPECT_EQ(CommandScriptExecutor::readableScriptType(1), u"Epilog"_s);
    EXPECT_TRUE(CommandScriptExecutor::readableScriptType(2).isNull());
    EXPECT_EQ(TextPipeReader::splitIntoLines(u"a\n\n   \nb"_s), (QStringList{u"a"_s, u"b"_s}));
}

TEST(PeerUserTest, OnlyThisUserAndTheSuperUserMayCallAndAnAnswerIsKeptPerPeer)
{
    const QDBusConnection bus(u"unused"_s);
    EXPECT_TRUE(PeerUser::allowsUid(geteuid()));
    EXPECT_TRUE(PeerUser::allowsUid(0));
    EXPECT_FALSE(PeerUser::allowsUid(4242));
    int asked = 0;
    PeerUser::setLookup([&](const QDBusConnection&, const QString& sender) {
        ++asked;
        return sender == u":1.99"_s ? std::optional<uint>(4242) : std::nullopt;
    });
    EXPECT_EQ(PeerUser::uidOf(bus, u":1.99"_s), 4242u);
    EXPECT_EQ(PeerUser::uidOf(bus, u":1.99"_s), 4242u);
    EXPECT_EQ(PeerUser::uidOf(bus, u":1.5"_s), std::nullopt);
    EXPECT_EQ(PeerUser::uidOf(bus, u":1.5"_s), std::nullopt);
    EXPECT_EQ(asked, 3) << "a known peer is asked once, an unknown one every time";
    PeerUser::setLookup({});
}
