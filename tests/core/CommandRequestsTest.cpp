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
    for (const auto& [resolved, status, hasPath] :
         {std::tuple{QUrl::fromLocalFile(m_files.path()), 0u, true},
          {QUrl::fromLocalFile(m_files.filePath(u"gone.stromi"_s)), 1u, true},
          {QUrl(), 1u, false}}) {
        const QString id = u"r%1"_s.arg(++serial);
        m_resolve = [&](const QByteArray&) {
            return resolved;
        };
        m_requests->repositoryRequested(
            {{u"CommandID"_s, id}, {u"RepositoryBookmark"_s, QByteArray("x")}});
        ASSERT_TRUE(QTest::qWaitFor(
            [&] { return posts(u"RepositoryRequestResolved"_s).size() == 2 * serial; }, 30000));
        const Post final = posts(u"RepositoryRequestResolved"_s).last();
        EXPECT_EQ(final.info.value(u"CommandID"_s), id);
        EXPECT_EQ(final.info.value(u"ResolutionStatus"_s).toULongLong(), status) << serial;
        EXPECT_EQ(final.info.contains(u"RepositoryPath"_s), hasPath) << serial;
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
        m_requests->keychainPasswordRequested(
            {{u"Account"_s, account}, {u"CommandID"_s, u"cmd.7"_s}});
        const Post post = posts(u"KeychainPasswordResponse"_s).last();
        EXPECT_EQ(post.source, u"cmd.7"_s);
        EXPECT_EQ(post.info, answer) << account.toStdString();
    }
    const QString lines = log();
    EXPECT_EQ(lines.count(u"could not retrieve password from keychain"_s), 1);
    EXPECT_TRUE(lines.contains(u"account=carl, error=-1/"_s));
    EXPECT_FALSE(lines.contains(u"ss-42"_s));
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
    ASSERT_TRUE(folder.mkdir(u"open"_s));
    QFile::setPermissions(folder.filePath(u"open"_s), QFile::Permissions(0x7777));
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
        {"open/open.sh", kRwx, false, 0, "which others can write to"},
        {"asked.scpt", kRw, true, 0, "error output appears to indicate a 'cancel' error",
         "echo 'User canceled. (-128)' >&2\n"},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        CommandScriptExecutor executor(
            writeScript(folder, QString::fromLatin1(row.name), row.body, row.permissions),
            CommandScriptExecutor::kProlog);
        executor.execute();
        EXPECT_EQ(executor.success(), row.success);
        EXPECT_EQ(executor.status(), row.status);
        EXPECT_EQ(executor.outputLines().join(u'|'), QString::fromLatin1(row.output));
        EXPECT_TRUE(log().contains(QLatin1String(row.logged)));
    }
    EXPECT_TRUE(log().contains(u"Warning oops"_s));
    if (geteuid() == 0) {
        const QString foreign = writeScript(folder, u"foreign.sh"_s, "exit 0\n");
        ASSERT_EQ(::chown(foreign.toLocal8Bit().constData(), 65534, 65534), 0);
        CommandScriptExecutor executor(foreign, CommandScriptExecutor::kEpilog);
        executor.execute();
        EXPECT_FALSE(executor.success());
        EXPECT_TRUE(log().contains(u"Epilog not run: "_s + foreign + u" belongs to uid 65534"_s));
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

TEST(PeerUserTest, OnlyThisUserAndTheSuperUserMayCall)
{
    const QDBusConnection bus(u"unused"_s);
    for (const auto& [uid, allowed] : {std::pair{std::optional<uint>(geteuid()), true},
                                       {0u, true},
                                       {4242u, false},
                                       {std::nullopt, false}}) {
        PeerUser::setLookup([&](const QDBusConnection&, const QString&) { return uid; });
        EXPECT_EQ(PeerUser::mayCall(bus, u":1.99"_s), allowed) << testing::PrintToString(uid);
    }
    PeerUser::setLookup({});
}
