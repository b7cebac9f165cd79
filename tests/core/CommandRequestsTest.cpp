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
#include <gtest/gtest.h>
#include <unistd.h>

using namespace std::chrono_literals;

namespace {
struct Post
{
    QString name;
    QString source;
    QVariantMap info;
};

QString writeScript(const QDir& folder, const QString& name, const QByteArray& body,
                    QFile::Permissions permissions = QFile::ReadOwner | QFile::WriteOwner |
                                                     QFile::ExeOwner)
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
            board, m_secrets, [this](const QByteArray& bookmark) { return m_resolve(bookmark); },
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
        const auto block =
            m_observers.value(SessionCommandRequests::cancelObserverName(observedFor) +
                              QStringLiteral("|CancelCommandScript"));
        locker.unlock();
        ASSERT_TRUE(block);
        block({{QStringLiteral("CommandID"), identifier}});
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
    std::function<QUrl(const QByteArray&)> m_resolve = [](const QByteArray&) {
        return QUrl();
    };
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
    m_requests->command(QStringLiteral("c1"), "bookmark");
    m_timers.advance(400s);
    const QList<Post> interim = posts(QStringLiteral("RepositoryRequestResolved"));
    ASSERT_EQ(interim.size(), 3);
    for (const Post& post : interim) {
        EXPECT_EQ(post.source, QStringLiteral("com.kestrom.monitor"));
        EXPECT_EQ(post.info.value(QStringLiteral("ResolutionStatus")).toULongLong(), 2u);
        EXPECT_EQ(post.info.value(QStringLiteral("CommandID")), QStringLiteral("c1"));
    }
    release.release();
    ASSERT_TRUE(waitForPostWith(QStringLiteral("RepositoryRequestResolved"),
                                QStringLiteral("RepositoryPath")));
    m_timers.advance(300s);
    const QList<Post> all = posts(QStringLiteral("RepositoryRequestResolved"));
    ASSERT_EQ(all.size(), 4) << "no keep-alive after the final answer";
    EXPECT_EQ(all.last().info.value(QStringLiteral("ResolutionStatus")).toULongLong(), 0u);
    EXPECT_EQ(all.last().info.value(QStringLiteral("RepositoryPath")), m_files.path());
    EXPECT_EQ(m_timers.live(), 0);
}

TEST_F(CommandRequestsTest, ResolutionAnswersSayWhetherThePathExists)
{
    const struct
    {
        QUrl resolved;
        quint64 status;
        bool hasPath;
    } cases[] = {{QUrl::fromLocalFile(m_files.path()), 0, true},
                 {QUrl::fromLocalFile(m_files.filePath(QStringLiteral("gone.stromi"))), 1, true},
                 {QUrl(), 1, false}};
    int serial = 0;
    for (const auto& row : cases) {
        const QString id = QStringLiteral("r%1").arg(++serial);
        m_resolve = [&](const QByteArray&) {
            return row.resolved;
        };
        m_requests->repositoryRequested({{QStringLiteral("CommandID"), id},
                                         {QStringLiteral("RepositoryBookmark"), QByteArray("x")}});
        ASSERT_TRUE(QTest::qWaitFor(
            [&] { return posts(QStringLiteral("RepositoryRequestResolved")).size() == 2 * serial; },
            30000));
        const Post final = posts(QStringLiteral("RepositoryRequestResolved")).last();
        EXPECT_EQ(final.info.value(QStringLiteral("CommandID")), id);
        EXPECT_EQ(final.info.value(QStringLiteral("ResolutionStatus")).toULongLong(), row.status);
        EXPECT_EQ(final.info.contains(QStringLiteral("RepositoryPath")), row.hasPath) << serial;
    }
    EXPECT_EQ(log().count(QStringLiteral("could not resolve repository reference")), 2);
}

TEST_F(CommandRequestsTest, KeychainAnswersCarryThePasswordUnderAccountOrNothing)
{
    m_secrets->store(QStringLiteral("Kestrom"), QStringLiteral("anna"), "p\xc3\xa4ss-42");
    m_secrets->store(QStringLiteral("Kestrom"), QStringLiteral("bytes"), "\xff\xfe");
    m_secrets->store(QStringLiteral("Other"), QStringLiteral("carl"), "elsewhere");
    const struct
    {
        const char* account;
        QVariantMap answer;
    } cases[] = {{"anna", {{QStringLiteral("Account"), QStringLiteral("p\u00e4ss-42")}}},
                 {"bytes", {}},
                 {"carl", {}}};
    for (const auto& row : cases) {
        m_requests->keychainPasswordRequested(
            {{QStringLiteral("Account"), QString::fromLatin1(row.account)},
             {QStringLiteral("CommandID"), QStringLiteral("cmd.7")}});
        const Post answer = posts(QStringLiteral("KeychainPasswordResponse")).last();
        EXPECT_EQ(answer.source, QStringLiteral("cmd.7"));
        EXPECT_EQ(answer.info, row.answer) << row.account;
    }
    const QString lines = log();
    EXPECT_EQ(lines.count(QStringLiteral("could not retrieve password from keychain")), 1);
    EXPECT_TRUE(lines.contains(QStringLiteral("account=carl, error=-1/")));
    EXPECT_FALSE(lines.contains(QStringLiteral("ss-42")));
}

TEST_F(CommandRequestsTest, OnlyACancelForItsOwnCommandStopsAScript)
{
    const QDir folder(m_files.path());
    const QString path = writeScript(folder, QStringLiteral("wait.sh"),
                                     "touch \"$FOLDER/started.$ID\"\n"
                                     "while [ ! -e \"$FOLDER/go\" ]; do sleep 0.05; done\n");
    const auto run = [&](const QString& id) {
        m_requests->runScript(
            0, path, id, {{QStringLiteral("FOLDER"), folder.path()}, {QStringLiteral("ID"), id}});
        ASSERT_TRUE(
            QTest::qWaitFor([&] { return folder.exists(QStringLiteral("started.") + id); }, 30000));
    };
    run(QStringLiteral("s1"));
    m_timers.advance(65s);
    sendCancel(QStringLiteral("s1"), QStringLiteral("someone.else"));
    run(QStringLiteral("s2"));
    sendCancel(QStringLiteral("s2"), QStringLiteral("s2"));
    ASSERT_TRUE(
        waitForPostWith(QStringLiteral("CommandScriptStatus"), QStringLiteral("ScriptSuccess")));
    QFile(folder.filePath(QStringLiteral("go"))).open(QIODevice::WriteOnly);
    ASSERT_TRUE(QTest::qWaitFor([&] { return m_timers.live() == 0; }, 30000));

    QHash<QString, QList<QVariant>> answers;
    for (const Post& post : posts(QStringLiteral("CommandScriptStatus"))) {
        answers[post.info.value(QStringLiteral("CommandID")).toString()]
            << post.info.value(QStringLiteral("ScriptSuccess"));
    }
    // s1: at once, at 30 s and 60 s, then its end; s2 began after the clock moved.
    EXPECT_EQ(answers.value(QStringLiteral("s1")),
              (QList<QVariant>{QVariant(), QVariant(), QVariant(), true}));
    EXPECT_EQ(answers.value(QStringLiteral("s2")), (QList<QVariant>{QVariant(), false}));
    EXPECT_EQ(m_removed.size(), 2);
}

TEST_F(CommandRequestsTest, ScriptOutcomesAndTheirLogLines)
{
    QTemporaryDir open;
    QFile::setPermissions(open.path(), QFile::Permissions(0x7777));
    const QDir folder(m_files.path());
    WTUserPreferences::sharedPreferences().setValue(QStringLiteral("/bin/sh"),
                                                    QStringLiteral("KSOSAScriptTool"),
                                                    WTUserPreferences::kHelperDomain);
    const auto rw = QFile::ReadOwner | QFile::WriteOwner;
    const struct
    {
        QString path;
        bool success;
        qint32 status;
        QStringList output;
        QString logged;
    } cases[] = {
        {writeScript(folder, QStringLiteral("ok.sh"),
                     "printf 'a\\n\\n   \\nb\\n'; echo oops >&2\n"),
         true,
         0,
         {QStringLiteral("a"), QStringLiteral("b")},
         QStringLiteral("Prolog executed")},
        {writeScript(folder, QStringLiteral("three.sh"), "exit 3\n"),
         false,
         3,
         {},
         QStringLiteral("Prolog exited with status 3")},
        {writeScript(folder, QStringLiteral("plain.sh"), "exit 0\n", rw),
         false,
         0,
         {},
         QStringLiteral("Prolog failed to launch")},
        {writeScript(folder, QStringLiteral("shared.sh"), "exit 0\n",
                     rw | QFile::ExeOwner | QFile::WriteGroup),
         false,
         0,
         {},
         QStringLiteral("shared.sh is writable by group or others")},
        {writeScript(QDir(open.path()), QStringLiteral("open.sh"), "exit 0\n"),
         false,
         0,
         {},
         QStringLiteral("which others can write to")},
        {writeScript(folder, QStringLiteral("asked.scpt"), "echo 'User canceled. (-128)' >&2\n",
                     rw),
         true,
         0,
         {},
         QStringLiteral("error output appears to indicate a 'cancel' error")},
    };
    for (const auto& row : cases) {
        CommandScriptExecutor executor(row.path, CommandScriptExecutor::kProlog);
        executor.execute();
        EXPECT_EQ(executor.success(), row.success) << row.path.toStdString();
        EXPECT_EQ(executor.status(), row.status) << row.path.toStdString();
        EXPECT_EQ(executor.outputLines(), row.output) << row.path.toStdString();
        EXPECT_TRUE(log().contains(row.logged)) << row.logged.toStdString();
    }
    EXPECT_TRUE(log().contains(QStringLiteral("Warning oops")));
    if (geteuid() == 0) {
        const QString foreign = writeScript(folder, QStringLiteral("foreign.sh"), "exit 0\n");
        ASSERT_EQ(::chown(foreign.toLocal8Bit().constData(), 65534, 65534), 0);
        CommandScriptExecutor executor(foreign, CommandScriptExecutor::kEpilog);
        executor.execute();
        EXPECT_FALSE(executor.success());
        EXPECT_TRUE(log().contains(QStringLiteral("Epilog not run: ") + foreign +
                                   QStringLiteral(" belongs to uid 65534")));
    }
}

TEST(CommandScriptExecutorTest, PathAlwaysHoldsUsrLocalBin)
{
    const auto pathOf = [](const QStringList& own, const QMap<QString, QString>& overlay) {
        QProcessEnvironment environment;
        for (const QString& entry : own) {
            environment.insert(entry.section(QLatin1Char('='), 0, 0),
                               entry.section(QLatin1Char('='), 1));
        }
        return CommandScriptExecutor::environmentForScript(environment, overlay)
            .value(QStringLiteral("PATH"));
    };
    EXPECT_EQ(pathOf({}, {}), QStringLiteral("/usr/bin:/bin:/usr/sbin:/sbin:/usr/local/bin"));
    EXPECT_EQ(pathOf({QStringLiteral("PATH=/opt/x")},
                     {{QStringLiteral("PATH"), QStringLiteral("/usr/local/bin:/y")}}),
              QStringLiteral("/usr/local/bin:/y"));
    EXPECT_EQ(pathOf({QStringLiteral("PATH=/opt/x")}, {}), QStringLiteral("/opt/x:/usr/local/bin"));
    EXPECT_EQ(CommandScriptExecutor::readableScriptType(0), QStringLiteral("Prolog"));
    EXPECT_EQ(CommandScriptExecutor::readableScriptType(1), QStringLiteral("Epilog"));
    EXPECT_TRUE(CommandScriptExecutor::readableScriptType(2).isNull());
    EXPECT_EQ(TextPipeReader::splitIntoLines(QStringLiteral("a\n\n   \nb")),
              (QStringList{QStringLiteral("a"), QStringLiteral("b")}));
}

TEST(PeerUserTest, OnlyThisUserAndTheSuperUserMayCall)
{
    const QDBusConnection bus(QStringLiteral("unused"));
    const struct
    {
        std::optional<uint> uid;
        bool allowed;
    } cases[] = {{uint(geteuid()), true}, {0u, true}, {4242u, false}, {std::nullopt, false}};
    for (const auto& row : cases) {
        PeerUser::setLookup([&](const QDBusConnection&, const QString&) { return row.uid; });
        EXPECT_EQ(PeerUser::mayCall(bus, QStringLiteral(":1.99")), row.allowed);
    }
    PeerUser::setLookup({});
}
