#include "LoggingFixture.h"
#include "fakes/FakeClientApplication.h"
#include "logging/NSLogLogger.h"
#include "logging/NullLogger.h"
#include "support/PrivateBus.h"

#include <QDir>
#include <QProcess>
#include <QTest>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {
[[maybe_unused]] const bool s_privateBus = (PrivateBus::use(), true);

void writeFile(const QString& path, const QByteArray& content)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(content);
}

QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool anyLineContains(const QStringList& lines, const QString& text)
{
    return std::any_of(lines.cbegin(), lines.cend(),
                       [&](const QString& line) { return line.contains(text); });
}
} // namespace

class LogFileLoggerTest : public LoggingFixture
{
protected:
    QStringList paths() const { return LogFileLogger::logFilePaths(LogFileLogger::kLogFileCount); }
};

TEST_F(LogFileLoggerTest, FourProcessesAppendingConcurrentlyLeaveWholeLines)
{
    constexpr int kLines = 10000;
    QList<QProcess*> writers;
    for (int i = 0; i < 4; ++i) {
        auto* writer = new QProcess;
        writer->start(QStringLiteral(LOG_WRITER_TOOL),
                      {u"lines"_s, QString::number(kLines), u"w%1"_s.arg(i)});
        writers << writer;
    }
    for (QProcess* writer : writers) {
        EXPECT_TRUE(writer->waitForFinished(300000));
        EXPECT_EQ(writer->exitCode(), 0);
        delete writer;
    }
    const QStringList lines = logLines();
    ASSERT_EQ(lines.size(), 4 * kLines);
    QList<int> next(4, 0);
    for (const QString& line : lines) {
        const qsizetype at = line.indexOf(u" w"_s);
        ASSERT_GE(at, 0) << line.toStdString();
        const int writer = line.mid(at + 2, 1).toInt();
        const QString expected = u"w%1 line %2 [9."_s.arg(writer).arg(next[writer]);
        ASSERT_EQ(line.mid(at + 1, expected.size()), expected) << line.toStdString();
        ++next[writer];
    }
    EXPECT_EQ(next, (QList<int>{kLines, kLines, kLines, kLines}));
}

// Another process of the group may rotate the file only if it can write to it.
TEST_F(LogFileLoggerTest, ANewFileIsGroupWritableAndRotationByAnotherProcessMakesThisOneReopen)
{
    const mode_t previous = umask(002);
    Logger::log(0, u"before rotation"_s);
    umask(previous);
    struct stat info = {};
    ASSERT_EQ(stat(QFile::encodeName(paths().at(0)).constData(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0664U);
    const auto logger = std::dynamic_pointer_cast<LogFileLogger>(Logger::defaultLogger());
    ASSERT_NE(logger, nullptr);
    QProcess rotator;
    rotator.start(QStringLiteral(LOG_WRITER_TOOL), {u"rotate"_s, u"9"_s});
    ASSERT_TRUE(rotator.waitForFinished(120000));
    ASSERT_EQ(rotator.exitStatus(), QProcess::NormalExit);
    ASSERT_EQ(rotator.exitCode(), 0);
    ASSERT_TRUE(QTest::qWaitFor([&] { return logger->isWritingToCurrentPath(); }, 20000));
    Logger::log(0, u"after rotation"_s);
    EXPECT_TRUE(anyLineContains(fileLines(paths().at(1)), u"before rotation"_s));
    EXPECT_TRUE(anyLineContains(logLines(), u"after rotation"_s));
    EXPECT_FALSE(anyLineContains(logLines(), u"before rotation"_s));
}

TEST_F(LogFileLoggerTest, TheFirstLineAtMidnightReopensBeforeItIsWritten)
{
    const QDate today = QDate::currentDate();
    QDateTime clock(today, QTime(23, 59, 59, 999));
    Logger::setClock([&clock] { return clock; });
    Logger::log(0, u"late"_s);
    // Another process moved the file away without telling anyone.
    ASSERT_TRUE(QFile::rename(paths().at(0), paths().at(1)));
    Logger::log(0, u"still late"_s);
    clock = QDateTime(today.addDays(1), QTime(0, 0));
    Logger::log(0, u"midnight"_s);
    EXPECT_EQ(fileLines(paths().at(1)).size(), 2);
    const QStringList current = logLines();
    ASSERT_EQ(current.size(), 1);
    EXPECT_TRUE(current.at(0).contains(u" midnight ["_s));
    EXPECT_TRUE(
        current.at(0).startsWith(today.addDays(1).toString(Qt::ISODate) + u" 00:00:00.000 "_s));
}

TEST_F(LogFileLoggerTest, RotationKeepingZeroDeletesTheNumberedFilesAndNineShiftsThemAll)
{
    ASSERT_EQ(paths().size(), 10);
    EXPECT_EQ(paths().at(9), m_stateHome.path() + u"/Kestrom/Kestrom.log.9"_s);
    for (const unsigned keep : {0U, 9U}) {
        Logger::log(0, u"current %1"_s.arg(keep));
        for (int i = 1; i < 10; ++i) {
            writeFile(paths().at(i), QByteArray::number(i));
        }
        Logger::defaultLogger()->rotateLogKeeping(keep);
        for (int i = 2; i < 10; ++i) { // keeping 0 deletes them all and renames nothing
            const QByteArray shifted = keep == 0 ? QByteArray() : QByteArray::number(i - 1);
            EXPECT_EQ(readFile(paths().at(i)), shifted) << keep << i;
        }
        const QStringList kept = fileLines(paths().at(keep == 0 ? 0 : 1));
        EXPECT_TRUE(anyLineContains(kept, u"current %1"_s.arg(keep))) << keep;
        EXPECT_EQ(QFile::exists(paths().at(1)), keep != 0);
    }
    Logger::log(0, u"fresh"_s);
    EXPECT_EQ(logLines().size(), 1);
}

TEST_F(LogFileLoggerTest, AnUnusableFolderFallsBackByUserAndTheFileComesBackWhenItCan)
{
    writeFile(LogFileLogger::logFolder(), "not a folder");
    for (const unsigned uid : {0U, 501U}) { // root must not write to the console
        Logger::setEffectiveUid(uid);
        Logger::releaseDefaultLogger();
        Logger::log(5, u"nowhere to go"_s);
        const auto* chosen = Logger::defaultLogger().get();
        EXPECT_EQ(dynamic_cast<const NSLogLogger*>(chosen) != nullptr, uid != 0) << uid;
        EXPECT_EQ(dynamic_cast<const NullLogger*>(chosen) != nullptr, uid == 0) << uid;
    }
    const QStringList said = systemLog();
    ASSERT_FALSE(said.isEmpty());
    EXPECT_TRUE(said.at(0).startsWith(u"open('"_s + paths().at(0)));
    EXPECT_EQ(said.count(u"log output is being discarded"_s), 1);
    EXPECT_EQ(said.count(u"(Failure) nowhere to go"_s), 1);
    EXPECT_TRUE(said.contains(u"(Failure) could not create standard logger; logging to console"_s));
    ASSERT_TRUE(QFile::remove(LogFileLogger::logFolder()));
    Logger::releaseDefaultLogger();
    Logger::log(0, u"back in the file"_s);
    EXPECT_TRUE(anyLineContains(logLines(), u"back in the file"_s));
}

TEST_F(LogFileLoggerTest, ALoggerThatCannotReopenHandsItsLinesOverAtOnce)
{
    Logger::setEffectiveUid(501);
    const auto lost = LogFileLogger::create();
    ASSERT_TRUE(QDir(LogFileLogger::logFolder()).removeRecursively());
    writeFile(LogFileLogger::logFolder(), "not a folder");
    Logger::setDefaultLogger(lost);
    EXPECT_NE(Logger::defaultLogger(), lost);
    Logger::log(5, u"at once"_s);
    lost->logLine(5, nullptr, u"through the lost file"_s);
    EXPECT_TRUE(systemLog().contains(u"(Failure) at once"_s));
    EXPECT_TRUE(anyLineContains(systemLog(), u" Failure through the lost file ["_s));
}

TEST_F(LogFileLoggerTest, AFailedWriteGoesToTheSystemLogAndTheNextLineChoosesAgain)
{
    ASSERT_TRUE(QDir().mkpath(LogFileLogger::logFolder()));
    ASSERT_TRUE(QFile::link(u"/dev/full"_s, paths().at(0)));
    Logger::log(0, u"lost to a full disk"_s);
    ASSERT_FALSE(systemLog().isEmpty());
    EXPECT_EQ(systemLog().constLast(), u"write('%1') errno=%2"_s.arg(paths().at(0)).arg(ENOSPC));
    ASSERT_TRUE(QFile::remove(paths().at(0)));
    Logger::log(0, u"written again"_s);
    const QStringList lines = logLines();
    ASSERT_EQ(lines.size(), 1);
    EXPECT_TRUE(lines.at(0).contains(u"written again"_s));
}

TEST_F(LogFileLoggerTest, OpeningTheLogAsksTheClientForTheLineAndTellsWhyItCannot)
{
    Logger::defaultLogger()->openUsingLaunchServices(u"4.1.2.3"_s);
    QStringList lines = logLines();
    ASSERT_EQ(lines.size(), 2);
    EXPECT_TRUE(lines.at(0).contains(
        u" Curious Unable to obtain file reference for Kestrom application ["_s));
    EXPECT_TRUE(lines.at(1).contains(
        u" #debug# LSFindApplicationForInfo(com.kestrom.client) returned -10814 ["_s));

    FakeClientApplication client;
    Logger::defaultLogger()->openUsingLaunchServices(u"4.1.2.3"_s);
    ASSERT_EQ(client.m_actions.size(), 1);
    EXPECT_EQ(client.m_actions.at(0).first, u"view-log"_s);
    EXPECT_EQ(client.m_actions.at(0).second, (QVariantList{paths().at(0), u"4.1.2.3"_s}));
    EXPECT_EQ(logLines().size(), 2);

    client.m_activateResult = ClientApplication::kRequestFailed;
    Logger::defaultLogger()->openUsingLaunchServices(u"4.1.2.3"_s);
    lines = logLines().mid(2);
    ASSERT_EQ(lines.size(), 3);
    EXPECT_TRUE(lines.at(0).contains(u" Curious Error sending open log file request"_s));
    EXPECT_TRUE(lines.at(1).contains(u" Details log: file://"_s + paths().at(0)));
    EXPECT_TRUE(lines.at(2).contains(u" #debug# LSOpenFromURLSpec returned -10810"_s));
}
