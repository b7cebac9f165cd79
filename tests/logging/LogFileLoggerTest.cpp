#include "LoggingFixture.h"
#include "fakes/FakeClientApplication.h"
#include "logging/NSLogLogger.h"
#include "logging/NullLogger.h"
#include "support/PrivateBus.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QTest>
#include <QTimeZone>
#include <sys/stat.h>
#include <unistd.h>

namespace {
[[maybe_unused]] const bool s_privateBus = (PrivateBus::use(), true);

bool runTool(const QStringList& arguments)
{
    QProcess tool;
    tool.start(QStringLiteral(LOG_WRITER_TOOL), arguments);
    return tool.waitForFinished(120000) && tool.exitStatus() == QProcess::NormalExit &&
           tool.exitCode() == 0;
}

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
        writer->start(
            QStringLiteral(LOG_WRITER_TOOL),
            {QStringLiteral("lines"), QString::number(kLines), QStringLiteral("w%1").arg(i)});
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
        const qsizetype at = line.indexOf(QStringLiteral(" w"));
        ASSERT_GE(at, 0) << line.toStdString();
        const int writer = line.mid(at + 2, 1).toInt();
        const QString expected = QStringLiteral("w%1 line %2 [9.").arg(writer).arg(next[writer]);
        ASSERT_EQ(line.mid(at + 1, expected.size()), expected) << line.toStdString();
        ++next[writer];
    }
    EXPECT_EQ(next, (QList<int>{kLines, kLines, kLines, kLines}));
}

TEST_F(LogFileLoggerTest, RotationByAnotherProcessMakesThisOneReopen)
{
    Logger::log(0, QStringLiteral("before rotation"));
    const auto logger = std::dynamic_pointer_cast<LogFileLogger>(Logger::defaultLogger());
    ASSERT_NE(logger, nullptr);
    ASSERT_TRUE(runTool({QStringLiteral("rotate"), QStringLiteral("9")}));
    ASSERT_TRUE(QTest::qWaitFor([&] { return logger->isWritingToCurrentPath(); }, 20000));
    Logger::log(0, QStringLiteral("after rotation"));
    EXPECT_TRUE(anyLineContains(fileLines(paths().at(1)), QStringLiteral("before rotation")));
    EXPECT_TRUE(anyLineContains(logLines(), QStringLiteral("after rotation")));
    EXPECT_FALSE(anyLineContains(logLines(), QStringLiteral("before rotation")));
}

TEST_F(LogFileLoggerTest, TheFirstLineAtMidnightReopensBeforeItIsWritten)
{
    const QDate today = QDate::currentDate();
    QDateTime clock(today, QTime(23, 59, 59, 999));
    Logger::setClock([&clock] { return clock; });
    Logger::log(0, QStringLiteral("late"));
    // Another process moved the file away without telling anyone.
    ASSERT_TRUE(QFile::rename(paths().at(0), paths().at(1)));
    Logger::log(0, QStringLiteral("still late"));
    clock = QDateTime(today.addDays(1), QTime(0, 0));
    Logger::log(0, QStringLiteral("midnight"));
    EXPECT_EQ(fileLines(paths().at(1)).size(), 2);
    const QStringList current = logLines();
    ASSERT_EQ(current.size(), 1);
    EXPECT_TRUE(current.at(0).contains(QStringLiteral(" midnight [")));
    EXPECT_TRUE(current.at(0).startsWith(today.addDays(1).toString(Qt::ISODate) +
                                         QStringLiteral(" 00:00:00.000 ")));
}

TEST_F(LogFileLoggerTest, RotationKeepingZeroDeletesTheNumberedFilesAndNineShiftsThemAll)
{
    ASSERT_EQ(paths().size(), 10);
    EXPECT_EQ(paths().at(9), m_stateHome.path() + QStringLiteral("/Kestrom/Kestrom.log.9"));
    for (const unsigned keep : {0U, 9U}) {
        Logger::log(0, QStringLiteral("current %1").arg(keep));
        for (int i = 1; i < 10; ++i) {
            writeFile(paths().at(i), QByteArray::number(i));
        }
        Logger::defaultLogger()->rotateLogKeeping(keep);
        for (int i = 2; i < 10; ++i) { // keeping 0 deletes them all and renames nothing
            const QByteArray shifted = keep == 0 ? QByteArray() : QByteArray::number(i - 1);
            EXPECT_EQ(readFile(paths().at(i)), shifted) << keep << i;
        }
        const QStringList kept = fileLines(paths().at(keep == 0 ? 0 : 1));
        EXPECT_TRUE(anyLineContains(kept, QStringLiteral("current %1").arg(keep))) << keep;
        EXPECT_EQ(QFile::exists(paths().at(1)), keep != 0);
    }
    Logger::log(0, QStringLiteral("fresh"));
    EXPECT_EQ(logLines().size(), 1);
}

TEST_F(LogFileLoggerTest, NewLogFileIsGroupWritable)
{
    const mode_t previous = umask(002);
    Logger::log(0, QStringLiteral("line"));
    umask(previous);
    struct stat info = {};
    ASSERT_EQ(stat(QFile::encodeName(paths().at(0)).constData(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0664U);
}

TEST_F(LogFileLoggerTest, AnUnusableFolderFallsBackByUserAndTheFileComesBackWhenItCan)
{
    writeFile(LogFileLogger::logFolder(), "not a folder");
    for (const unsigned uid : {0U, 501U}) { // root must not write to the console
        Logger::setEffectiveUid(uid);
        Logger::releaseDefaultLogger();
        Logger::log(5, QStringLiteral("nowhere to go"));
        const auto* chosen = Logger::defaultLogger().get();
        EXPECT_EQ(dynamic_cast<const NSLogLogger*>(chosen) != nullptr, uid != 0) << uid;
        EXPECT_EQ(dynamic_cast<const NullLogger*>(chosen) != nullptr, uid == 0) << uid;
    }
    const QStringList said = systemLog();
    ASSERT_FALSE(said.isEmpty());
    EXPECT_TRUE(said.at(0).startsWith(QStringLiteral("open('") + paths().at(0)));
    EXPECT_EQ(said.count(QStringLiteral("log output is being discarded")), 1);
    EXPECT_EQ(said.count(QStringLiteral("(Failure) nowhere to go")), 1);
    EXPECT_TRUE(said.contains(
        QStringLiteral("(Failure) could not create standard logger; logging to console")));
    ASSERT_TRUE(QFile::remove(LogFileLogger::logFolder()));
    Logger::releaseDefaultLogger();
    Logger::log(0, QStringLiteral("back in the file"));
    EXPECT_TRUE(anyLineContains(logLines(), QStringLiteral("back in the file")));
}

TEST_F(LogFileLoggerTest, ALoggerThatCannotReopenHandsItsLinesOverAtOnce)
{
    Logger::setEffectiveUid(501);
    const auto lost = LogFileLogger::create();
    ASSERT_TRUE(QDir(LogFileLogger::logFolder()).removeRecursively());
    writeFile(LogFileLogger::logFolder(), "not a folder");
    Logger::setDefaultLogger(lost);
    EXPECT_NE(Logger::defaultLogger(), lost);
    Logger::log(5, QStringLiteral("at once"));
    lost->logLine(5, nullptr, QStringLiteral("through the lost file"));
    EXPECT_TRUE(systemLog().contains(QStringLiteral("(Failure) at once")));
    EXPECT_TRUE(anyLineContains(systemLog(), QStringLiteral(" Failure through the lost file [")));
}

TEST_F(LogFileLoggerTest, AFailedWriteGoesToTheSystemLogAndTheNextLineChoosesAgain)
{
    ASSERT_TRUE(QDir().mkpath(LogFileLogger::logFolder()));
    ASSERT_TRUE(QFile::link(QStringLiteral("/dev/full"), paths().at(0)));
    Logger::log(0, QStringLiteral("lost to a full disk"));
    ASSERT_FALSE(systemLog().isEmpty());
    EXPECT_EQ(systemLog().constLast(),
              QStringLiteral("write('%1') errno=%2").arg(paths().at(0)).arg(ENOSPC));
    ASSERT_TRUE(QFile::remove(paths().at(0)));
    Logger::log(0, QStringLiteral("written again"));
    const QStringList lines = logLines();
    ASSERT_EQ(lines.size(), 1);
    EXPECT_TRUE(lines.at(0).contains(QStringLiteral("written again")));
}

TEST_F(LogFileLoggerTest, OpeningTheLogAsksTheClientForTheLineAndTellsWhyItCannot)
{
    Logger::defaultLogger()->openUsingLaunchServices(QStringLiteral("4.1.2.3"));
    QStringList lines = logLines();
    ASSERT_EQ(lines.size(), 2);
    EXPECT_TRUE(lines.at(0).contains(
        QStringLiteral(" Curious Unable to obtain file reference for Kestrom application [")));
    EXPECT_TRUE(lines.at(1).contains(
        QStringLiteral(" #debug# LSFindApplicationForInfo(com.kestrom.client) returned -10814 [")));

    FakeClientApplication client;
    Logger::defaultLogger()->openUsingLaunchServices(QStringLiteral("4.1.2.3"));
    ASSERT_EQ(client.m_actions.size(), 1);
    EXPECT_EQ(client.m_actions.at(0).first, QStringLiteral("view-log"));
    EXPECT_EQ(client.m_actions.at(0).second,
              (QVariantList{paths().at(0), QStringLiteral("4.1.2.3")}));
    EXPECT_EQ(logLines().size(), 2);

    client.m_activateResult = ClientApplication::kRequestFailed;
    Logger::defaultLogger()->openUsingLaunchServices(QStringLiteral("4.1.2.3"));
    lines = logLines().mid(2);
    ASSERT_EQ(lines.size(), 3);
    EXPECT_TRUE(
        lines.at(0).contains(QStringLiteral(" Curious Error sending open log file request")));
    EXPECT_TRUE(lines.at(1).contains(QStringLiteral(" Details log: file://") + paths().at(0)));
    EXPECT_TRUE(lines.at(2).contains(QStringLiteral(" #debug# LSOpenFromURLSpec returned -10810")));
}
