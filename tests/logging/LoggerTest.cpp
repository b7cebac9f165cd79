#include "LoggingFixture.h"
#include "exception/Error.h"
#include "exception/KSException.h"
#include "logging/NSLogLogger.h"

#include <QRegularExpression>
#include <new>

using namespace Qt::StringLiterals;

namespace {
struct ParsedLine
{
    QString classification;
    QString message;
    QString identifier;
};

// Lines like "2026-11-21 23:43:11.250 +0100 Failure message [4.73961099.512.7]", taken apart.
QList<ParsedLine> parsedLogLines(const QStringList& lines)
{
    static const QRegularExpression pattern(
        uR"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} [+-]\d{4} (.{7}) (.*) \[([0-9.]+)\]$)"_s);
    QList<ParsedLine> parsed;
    for (const QString& line : lines) {
        const auto match = pattern.match(line);
        EXPECT_TRUE(match.hasMatch()) << line.toStdString();
        if (match.hasMatch()) {
            parsed << ParsedLine{match.captured(1), match.captured(2), match.captured(3)};
        }
    }
    return parsed;
}

QStringList messages(const QList<ParsedLine>& lines)
{
    QStringList result;
    for (const auto& line : lines) {
        result << line.message;
    }
    return result;
}
} // namespace

class LoggerTest : public LoggingFixture
{};

TEST_F(LoggerTest, LinesCarryDateClassMessageAndNestedIdentifier)
{
    const LogLine top = Logger::log(5, u"Cannot reach the scheduler"_s);
    const LogLine child = Logger::log(7, top, u"attempt"_s, 3);
    Logger::logInLineFormat(7, child, "%d of %s", 2, "3");
    const auto lines = parsedLogLines(logLines());
    ASSERT_EQ(lines.size(), 3);
    EXPECT_EQ(lines.at(2).message, u"2 of 3"_s);
    EXPECT_EQ(lines.at(2).identifier, child->description() + u".1"_s);
    EXPECT_EQ(lines.at(0).classification, u"Failure"_s);
    EXPECT_EQ(lines.at(0).identifier, top->description());
    EXPECT_EQ(lines.at(1).message, u"attempt: 3"_s);
    EXPECT_EQ(lines.at(1).identifier, top->description() + u".1"_s);
    EXPECT_EQ(child->parent(), top);
    EXPECT_EQ(top->parent(), Logger::rootLogLine());
    EXPECT_TRUE(Logger::rootLogLine()->parent()->parent()->description() == u"4"_s);
    EXPECT_NE(Logger::rootLogLine()->classifications() & (1U << 5), 0U);

    // Class names are seven characters and looked up exactly.
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(Logger::nameOfClassification(i).size(), 7) << i;
        EXPECT_EQ(Logger::classificationFromName(Logger::nameOfClassification(i)), i);
    }
    EXPECT_EQ(Logger::classificationFromName(u"warning"_s), -1);
    EXPECT_EQ(Logger::nameOfClassification(1), u"-------"_s);
}

TEST_F(LoggerTest, EveryLoggedTextIsWrittenOnOneLineOfASCII)
{
    // Line breaks of every kind; a tab, a format, an unassigned and a lone surrogate; non-ASCII.
    const QString text = u"a\r\n\u2028b\f\v\u0085c\t\u200b\u0378"_s + QChar(0xd800) + u"!Café \\"_s;
    auto failure = KSException::exceptionWithName(text, text);
    failure.setDetail(text, text);
    const LogLine top = Logger::log(5, text);
    Logger::log(5, top, text, QVariantList{text, QVariantMap{{text, text}}});
    Logger::logFormat(5, "%s", text.toUtf8().constData());
    Logger::logInLineFormat(5, top, "%s", text.toUtf8().constData());
    Logger::logData(5, top, text, QByteArray("\n"), 0);
    Logger::logPlaceholder(5, top, text, text, &failure);
    Logger::log(5, QString(),
                Error(Error::kPOSIXDomain, 5, {{Error::kLocalizedDescriptionKey, text}}));
    const QStringList lines = logLines();
    const auto parsed = parsedLogLines(lines);
    ASSERT_EQ(parsed.size(), lines.size());
    EXPECT_EQ(parsed.at(0).message, u"a | b | c?!Caf\\u00e9 \\\\"_s);
    const QStringList last = messages(parsed).mid(parsed.size() - 7); // the error's
    EXPECT_EQ(last.mid(0, 3),
              (QStringList{parsed.at(0).message, u"general problem"_s, u".Exception: IO"_s}));
    EXPECT_TRUE(last.contains(u"POSIXErr: 5"_s));
    for (const QString& line : lines) {
        EXPECT_TRUE(std::all_of(line.cbegin(), line.cend(), [](QChar c) {
            return c.unicode() >= 0x20 && c.unicode() < 0x7f;
        })) << line.toStdString();
    }
}

TEST_F(LoggerTest, DictionariesRecurseAndHideDottedKeys)
{
    const QVariantMap info{{u".Help"_s, u"repair"_s},
                           {u".Marker"_s, true},
                           {u"list"_s, QVariantList{u"a"_s, QVariantMap{{u"k"_s, 1}}}},
                           {u"Path"_s, u"/srv/a b"_s}};
    const LogLine top = Logger::log(0, u"info"_s);
    Logger::defaultLogger()->logDictionary(7, nullptr, top, info);
    const auto lines = parsedLogLines(logLines());
    const QStringList texts = messages(lines);
    EXPECT_EQ(texts,
              (QStringList{u"info"_s, u"help: repair"_s, u".Marker: 1"_s, u"Path: /srv/a b"_s,
                           u"list:"_s, u"[0]: a"_s, u"[1]:"_s, u"k: 1"_s}));
    EXPECT_EQ(lines.at(1).classification, u"Subrosa"_s);
    EXPECT_EQ(lines.at(2).classification, u"Subrosa"_s);
    EXPECT_EQ(lines.at(3).classification, u"Details"_s);
    EXPECT_EQ(lines.at(7).identifier, lines.at(6).identifier + u".1"_s);
}

TEST_F(LoggerTest, ExceptionsWriteReasonNameDetailsAndABacktraceOnce)
{
    KSException failure;
    try {
        KSException::exceptionWithName(u"Cancel"_s, u"stopped\n\nby user\x01\x02!"_s)
            .setStrPath(u"/srv"_s)
            .setAPI(u"open"_s)
            .raise();
    } catch (const KSException& raised) {
        failure = raised;
    }
    Logger::logException(failure);
    Logger::logException(failure);
    const auto lines = parsedLogLines(logLines());
    const QStringList texts = messages(lines);
    ASSERT_GE(texts.size(), 6);
    EXPECT_EQ(texts.at(0), u"stopped | by user?!"_s);
    EXPECT_EQ(lines.at(0).classification, u"Caution"_s); // "Cancel" logs at 3
    EXPECT_EQ(texts.at(1), u".Exception: Cancel"_s);
    EXPECT_EQ(lines.at(2).message, u"API: open"_s);
    EXPECT_EQ(lines.at(2).classification, u"#debug#"_s);
    EXPECT_EQ(lines.at(3).classification, u"Minutia"_s); // Path at 6
    ASSERT_TRUE(texts.at(4).startsWith(u"backtrace "_s));
    const qsizetype frames = failure.callStackReturnAddresses().size();
    ASSERT_GT(frames, 0);
    EXPECT_TRUE(texts.at(5).contains(u"0x"_s));
    // The second time the same backtrace is named by its tag only.
    const qsizetype firstLength = 5 + frames;
    ASSERT_EQ(texts.size(), firstLength + 5);
    EXPECT_EQ(texts.at(firstLength + 4), texts.at(4));
}

TEST_F(LoggerTest, OnlyANewExceptionIsLoggedByLogNewEvenAtAReusedAddress)
{
    alignas(KSException) unsigned char storage[sizeof(KSException)];
    for (int i = 0; i < 2; ++i) {
        auto* failure = new (storage) KSException(u"IO"_s, u"r"_s);
        EXPECT_NE(Logger::logNewException(*failure), nullptr) << i;
        EXPECT_EQ(Logger::logNewException(*failure), nullptr) << i;
        EXPECT_EQ(Logger::logNewException(KSException(*failure)), nullptr) << i; // a copy
        failure->~KSException();
    }
}

TEST_F(LoggerTest, PlaceholdersAreWrittenOnceAndRepeatsCapAtSixty)
{
    // Placeholders live for the process: this test starts without the ones it counts.
    for (const QString& key : {u"ShePersisted"_s, u"lost"_s, u"lostgone"_s}) {
        Logger::setLogLine(nullptr, key);
    }
    // A failure persisted instead of raised goes below the placeholder for ignored failures.
    Exception::setPersistFailures(true);
    KSException::exceptionWithName(u"IO"_s, u"x"_s).raiseOrPersist();
    Exception::setPersistFailures(false);
    const LogLine first = Logger::logPlaceholder(4, u"Ignored failures"_s, u"ShePersisted"_s);
    EXPECT_EQ(Logger::logPlaceholder(4, u"Ignored failures"_s, u"ShePersisted"_s), first);
    const auto failure = KSException::exceptionWithName(u"IO"_s, u"gone"_s);
    for (int i = 0; i < 70; ++i) {
        Logger::logPlaceholder(4, nullptr, u"Lost volumes"_s, u"lost"_s, &failure);
    }
    const LogLine repeats = Logger::logLineForKey(u"lostgone"_s);
    ASSERT_NE(repeats, nullptr);
    EXPECT_EQ(repeats->count(), 60U);
    const QStringList texts = messages(parsedLogLines(logLines()));
    ASSERT_GE(texts.size(), 2);
    EXPECT_EQ(texts.mid(0, 2), (QStringList{u"Ignored failures"_s, u"x"_s}));
    EXPECT_EQ(texts.count(u"Ignored failures"_s), 1);
    EXPECT_EQ(texts.count(u"Lost volumes"_s), 1);
    EXPECT_EQ(texts.count(u"gone"_s), 61); // the placeholder and 60 written failures
    Logger::setLogLine(nullptr, u"lost"_s);
    EXPECT_EQ(Logger::logLineForKey(u"lost"_s), nullptr);
}

TEST_F(LoggerTest, HexDumpWithTailShowsHeadAndTrueTailOffsets)
{
    QByteArray data(1000, '\0');
    for (int i = 0; i < data.size(); ++i) {
        data[i] = char(i % 256);
    }
    Logger::logData(0, nullptr, u"block"_s, data, 100);
    const QStringList texts = messages(parsedLogLines(logLines()));
    QStringList offsets;
    for (const QString& text : texts.mid(1)) {
        offsets << text.left(6);
    }
    EXPECT_EQ(texts.at(0), u"block: 1000 bytes"_s);
    EXPECT_EQ(offsets,
              (QStringList{u"000000"_s, u"000040"_s, u"000340"_s, u"000380"_s, u"0003c0"_s}));
    EXPECT_TRUE(texts.at(1).startsWith(u"000000: 000102"_s));
    EXPECT_TRUE(texts.at(1).endsWith(
        u"|________________________________ !\"#$%&'()*+,-./0123456789:;<=>?|"_s));
    const QString last = texts.constLast();
    EXPECT_EQ(last.mid(8, last.indexOf(u" |"_s) - 8).size(), 80); // 40 bytes
}

TEST_F(LoggerTest, StartAndStopBannersAtDebugClass)
{
    Logger::logStartProcess(u"Monitor-2.2.5.12"_s);
    Logger::logStopProcess(u"Monitor-2.2.5.12"_s, 75);
    const auto lines = parsedLogLines(logLines());
    const QStringList texts = messages(lines);
    EXPECT_EQ(texts.at(0), u"started Monitor-2.2.5.12"_s);
    EXPECT_TRUE(texts.contains(u"id: Monitor-2.2.5.12"_s));
    EXPECT_TRUE(texts.contains(u"args:"_s));
    EXPECT_TRUE(std::any_of(texts.cbegin(), texts.cend(),
                            [](const QString& t) { return t.startsWith(u"ppid: "_s); }));
    EXPECT_EQ(texts.constLast(), u"stopping Monitor-2.2.5.12, exiting with status 75"_s);
    for (const auto& line : lines) {
        EXPECT_EQ(line.classification, u"#debug#"_s);
    }
}

TEST_F(LoggerTest, ConsoleFallbackSkipsHiddenAndDebugLines)
{
    const auto console = std::make_shared<NSLogLogger>();
    Logger::setDefaultLogger(console);
    Logger::log(0, u"plain"_s);
    Logger::log(5, u"failed"_s);
    Logger::log(8, u"hidden"_s);
    Logger::log(9, u"debug"_s);
    NSLogLogger::log(9, u"direct\nto console"_s);
    EXPECT_EQ(systemLog(),
              (QStringList{u"plain"_s, u"(Failure) failed"_s, u"#debug# - direct | to console"_s}));
}
