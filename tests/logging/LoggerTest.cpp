#include "LoggingFixture.h"
#include "exception/Error.h"
#include "exception/KSException.h"
#include "logging/NSLogLogger.h"

#include <QRegularExpression>
#include <new>

namespace {
struct ParsedLine
{
    QString classification;
    QString message;
    QString identifier;
};

// "2026-11-21 23:43:11.250 +0100 Failure message [4.73961099.512.7]"
std::optional<ParsedLine> parse(const QString& line)
{
    static const QRegularExpression pattern(QStringLiteral(
        R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} [+-]\d{4} (.{7}) (.*) \[([0-9.]+)\]$)"));
    const auto match = pattern.match(line);
    if (!match.hasMatch()) {
        return std::nullopt;
    }
    return ParsedLine{match.captured(1), match.captured(2), match.captured(3)};
}

QList<ParsedLine> parsedLogLines(const QStringList& lines)
{
    QList<ParsedLine> parsed;
    for (const QString& line : lines) {
        const auto one = parse(line);
        EXPECT_TRUE(one.has_value()) << line.toStdString();
        if (one) {
            parsed << *one;
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
{
protected:
    // Placeholders live for the process; a test that counts them starts without them.
    static void forgetPlaceholders(const QStringList& keys)
    {
        for (const QString& key : keys) {
            Logger::setLogLine(nullptr, key);
        }
    }
};

TEST_F(LoggerTest, ClassificationNamesAreSevenCharactersAndLookedUpExactly)
{
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(Logger::nameOfClassification(i).size(), 7) << i;
        EXPECT_EQ(Logger::classificationFromName(Logger::nameOfClassification(i)), i);
    }
    EXPECT_EQ(Logger::classificationFromName(QStringLiteral("warning")), -1);
    EXPECT_EQ(Logger::nameOfClassification(1), QStringLiteral("-------"));
}

TEST_F(LoggerTest, LinesCarryDateClassMessageAndNestedIdentifier)
{
    const LogLine top = Logger::log(5, QStringLiteral("Cannot reach the scheduler"));
    const LogLine child = Logger::log(7, top, QStringLiteral("attempt"), 3);
    Logger::logInLineFormat(7, child, "%d of %s", 2, "3");
    const auto lines = parsedLogLines(logLines());
    ASSERT_EQ(lines.size(), 3);
    EXPECT_EQ(lines.at(2).message, QStringLiteral("2 of 3"));
    EXPECT_EQ(lines.at(2).identifier, child->description() + QStringLiteral(".1"));
    EXPECT_EQ(lines.at(0).classification, QStringLiteral("Failure"));
    EXPECT_EQ(lines.at(0).identifier, top->description());
    EXPECT_EQ(lines.at(1).message, QStringLiteral("attempt: 3"));
    EXPECT_EQ(lines.at(1).identifier, top->description() + QStringLiteral(".1"));
    EXPECT_EQ(child->parent(), top);
    EXPECT_EQ(top->parent(), Logger::rootLogLine());
    EXPECT_TRUE(Logger::rootLogLine()->parent()->parent()->description() == QStringLiteral("4"));
    EXPECT_NE(Logger::rootLogLine()->classifications() & (1U << 5), 0U);
}

TEST_F(LoggerTest, EveryLoggedTextIsWrittenOnOneLineOfASCII)
{
    // Line breaks of every kind; a tab, a format, an unassigned and a lone surrogate; non-ASCII.
    const QString text = QStringLiteral("a\r\n\u2028b\f\v\u0085c\t\u200b\u0378") + QChar(0xd800) +
                         QStringLiteral("!Café \\");
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
    EXPECT_EQ(parsed.at(0).message, QStringLiteral("a | b | c?!Caf\\u00e9 \\\\"));
    const QStringList last = messages(parsed).mid(parsed.size() - 7); // the error's
    EXPECT_EQ(last.mid(0, 3), (QStringList{parsed.at(0).message, QStringLiteral("general problem"),
                                           QStringLiteral(".Exception: IO")}));
    EXPECT_TRUE(last.contains(QStringLiteral("POSIXErr: 5")));
    for (const QString& line : lines) {
        EXPECT_TRUE(std::all_of(line.cbegin(), line.cend(), [](QChar c) {
            return c.unicode() >= 0x20 && c.unicode() < 0x7f;
        })) << line.toStdString();
    }
}

TEST_F(LoggerTest, DictionariesRecurseAndHideDottedKeys)
{
    const QVariantMap info{
        {QStringLiteral(".Help"), QStringLiteral("repair")},
        {QStringLiteral(".Marker"), true},
        {QStringLiteral("list"),
         QVariantList{QStringLiteral("a"), QVariantMap{{QStringLiteral("k"), 1}}}},
        {QStringLiteral("Path"), QStringLiteral("/srv/a b")}};
    const LogLine top = Logger::log(0, QStringLiteral("info"));
    Logger::defaultLogger()->logDictionary(7, nullptr, top, info);
    const auto lines = parsedLogLines(logLines());
    const QStringList texts = messages(lines);
    EXPECT_EQ(texts, (QStringList{QStringLiteral("info"), QStringLiteral("help: repair"),
                                  QStringLiteral(".Marker: 1"), QStringLiteral("Path: /srv/a b"),
                                  QStringLiteral("list:"), QStringLiteral("[0]: a"),
                                  QStringLiteral("[1]:"), QStringLiteral("k: 1")}));
    EXPECT_EQ(lines.at(1).classification, QStringLiteral("Subrosa"));
    EXPECT_EQ(lines.at(2).classification, QStringLiteral("Subrosa"));
    EXPECT_EQ(lines.at(3).classification, QStringLiteral("Details"));
    EXPECT_EQ(lines.at(7).identifier, lines.at(6).identifier + QStringLiteral(".1"));
}

TEST_F(LoggerTest, ExceptionsWriteReasonNameDetailsAndABacktraceOnce)
{
    KSException failure;
    try {
        KSException::exceptionWithName(QStringLiteral("Cancel"),
                                       QStringLiteral("stopped\n\nby user\x01\x02!"))
            .setStrPath(QStringLiteral("/srv"))
            .setAPI(QStringLiteral("open"))
            .raise();
    } catch (const KSException& raised) {
        failure = raised;
    }
    Logger::logException(failure);
    Logger::logException(failure);
    const auto lines = parsedLogLines(logLines());
    const QStringList texts = messages(lines);
    ASSERT_GE(texts.size(), 6);
    EXPECT_EQ(texts.at(0), QStringLiteral("stopped | by user?!"));
    EXPECT_EQ(lines.at(0).classification, QStringLiteral("Caution")); // "Cancel" logs at 3
    EXPECT_EQ(texts.at(1), QStringLiteral(".Exception: Cancel"));
    EXPECT_EQ(lines.at(2).message, QStringLiteral("API: open"));
    EXPECT_EQ(lines.at(2).classification, QStringLiteral("#debug#"));
    EXPECT_EQ(lines.at(3).classification, QStringLiteral("Minutia")); // Path at 6
    ASSERT_TRUE(texts.at(4).startsWith(QStringLiteral("backtrace ")));
    const qsizetype frames = failure.callStackReturnAddresses().size();
    ASSERT_GT(frames, 0);
    EXPECT_TRUE(texts.at(5).contains(QStringLiteral("0x")));
    // The second time the same backtrace is named by its tag only.
    const qsizetype firstLength = 5 + frames;
    ASSERT_EQ(texts.size(), firstLength + 5);
    EXPECT_EQ(texts.at(firstLength + 4), texts.at(4));
}

TEST_F(LoggerTest, OnlyANewExceptionIsLoggedByLogNewEvenAtAReusedAddress)
{
    alignas(KSException) unsigned char storage[sizeof(KSException)];
    for (int i = 0; i < 2; ++i) {
        auto* failure = new (storage) KSException(QStringLiteral("IO"), QStringLiteral("r"));
        EXPECT_NE(Logger::logNewException(*failure), nullptr) << i;
        EXPECT_EQ(Logger::logNewException(*failure), nullptr) << i;
        EXPECT_EQ(Logger::logNewException(KSException(*failure)), nullptr) << i; // a copy
        failure->~KSException();
    }
}

TEST_F(LoggerTest, PlaceholdersAreWrittenOnceAndRepeatsCapAtSixty)
{
    forgetPlaceholders(
        {QStringLiteral("ShePersisted"), QStringLiteral("lost"), QStringLiteral("lostgone")});
    const LogLine first = Logger::logPlaceholder(4, QStringLiteral("Ignored failures"),
                                                 QStringLiteral("ShePersisted"));
    EXPECT_EQ(Logger::logPlaceholder(4, QStringLiteral("Ignored failures"),
                                     QStringLiteral("ShePersisted")),
              first);
    const auto failure =
        KSException::exceptionWithName(QStringLiteral("IO"), QStringLiteral("gone"));
    for (int i = 0; i < 70; ++i) {
        Logger::logPlaceholder(4, nullptr, QStringLiteral("Lost volumes"), QStringLiteral("lost"),
                               &failure);
    }
    const LogLine repeats = Logger::logLineForKey(QStringLiteral("lostgone"));
    ASSERT_NE(repeats, nullptr);
    EXPECT_EQ(repeats->count(), 60U);
    const QStringList texts = messages(parsedLogLines(logLines()));
    EXPECT_EQ(texts.count(QStringLiteral("Lost volumes")), 1);
    EXPECT_EQ(texts.count(QStringLiteral("gone")), 61); // the placeholder and 60 written failures
    Logger::setLogLine(nullptr, QStringLiteral("lost"));
    EXPECT_EQ(Logger::logLineForKey(QStringLiteral("lost")), nullptr);
}

TEST_F(LoggerTest, HexDumpWithTailShowsHeadAndTrueTailOffsets)
{
    QByteArray data(1000, '\0');
    for (int i = 0; i < data.size(); ++i) {
        data[i] = char(i % 256);
    }
    Logger::logData(0, nullptr, QStringLiteral("block"), data, 100);
    const QStringList texts = messages(parsedLogLines(logLines()));
    QStringList offsets;
    for (const QString& text : texts.mid(1)) {
        offsets << text.left(6);
    }
    EXPECT_EQ(texts.at(0), QStringLiteral("block: 1000 bytes"));
    EXPECT_EQ(offsets, (QStringList{QStringLiteral("000000"), QStringLiteral("000040"),
                                    QStringLiteral("000340"), QStringLiteral("000380"),
                                    QStringLiteral("0003c0")}));
    EXPECT_TRUE(texts.at(1).startsWith(QStringLiteral("000000: 000102")));
    EXPECT_TRUE(texts.at(1).endsWith(
        QStringLiteral("|________________________________ !\"#$%&'()*+,-./0123456789:;<=>?|")));
    const QString last = texts.constLast();
    EXPECT_EQ(last.mid(8, last.indexOf(QStringLiteral(" |")) - 8).size(), 80); // 40 bytes
}

TEST_F(LoggerTest, StartAndStopBannersAtDebugClass)
{
    Logger::logStartProcess(QStringLiteral("Monitor-2.2.5.12"));
    Logger::logStopProcess(QStringLiteral("Monitor-2.2.5.12"), 75);
    const auto lines = parsedLogLines(logLines());
    const QStringList texts = messages(lines);
    EXPECT_EQ(texts.at(0), QStringLiteral("started Monitor-2.2.5.12"));
    EXPECT_TRUE(texts.contains(QStringLiteral("id: Monitor-2.2.5.12")));
    EXPECT_TRUE(texts.contains(QStringLiteral("args:")));
    EXPECT_TRUE(std::any_of(texts.cbegin(), texts.cend(), [](const QString& t) {
        return t.startsWith(QStringLiteral("ppid: "));
    }));
    EXPECT_EQ(texts.constLast(),
              QStringLiteral("stopping Monitor-2.2.5.12, exiting with status 75"));
    for (const auto& line : lines) {
        EXPECT_EQ(line.classification, QStringLiteral("#debug#"));
    }
}

TEST_F(LoggerTest, ConsoleFallbackSkipsHiddenAndDebugLines)
{
    const auto console = std::make_shared<NSLogLogger>();
    Logger::setDefaultLogger(console);
    Logger::log(0, QStringLiteral("plain"));
    Logger::log(5, QStringLiteral("failed"));
    Logger::log(8, QStringLiteral("hidden"));
    Logger::log(9, QStringLiteral("debug"));
    NSLogLogger::log(9, QStringLiteral("direct\nto console"));
    EXPECT_EQ(systemLog(), (QStringList{QStringLiteral("plain"), QStringLiteral("(Failure) failed"),
                                        QStringLiteral("#debug# - direct | to console")}));
}

TEST_F(LoggerTest, PersistedFailuresAndDecodeProblemsReachTheLog)
{
    forgetPlaceholders({QStringLiteral("ShePersisted")});
    const auto failure = KSException::exceptionWithName(QStringLiteral("IO"), QStringLiteral("x"));
    Exception::setPersistFailures(true);
    failure.raiseOrPersist();
    Exception::setPersistFailures(false);
    const QStringList texts = messages(parsedLogLines(logLines()));
    ASSERT_GE(texts.size(), 2);
    EXPECT_EQ(texts.at(0), QStringLiteral("Ignored failures"));
    EXPECT_EQ(texts.at(1), QStringLiteral("x"));
}
