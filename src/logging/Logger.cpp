#include "logging/Logger.h"

#include "exception/Error.h"
#include "exception/KSException.h"
#include "exception/LogHook.h"
#include "exception/ValueDescription.h"
#include "foundation/RelativeDate.h"
#include "logging/LogFileLogger.h"
#include "logging/NSLogLogger.h"
#include "logging/NullLogger.h"
#include "logging/SystemLog.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QSysInfo>
#include <QTimeZone>
#include <cstdarg>
#include <dlfcn.h>
#include <typeinfo>
#include <unistd.h>

namespace {
constexpr int kDetailsClass = 7;
constexpr int kHiddenClass = 8;
constexpr int kDebugClass = 9;
constexpr int kPlaceholderRepeatLimit = 60;
constexpr quint64 kBacktraceCacheLimit = 1001;
constexpr qsizetype kDumpLineBytes = 64;

const QStringList kClassificationNames{QStringLiteral("       "), QStringLiteral("-------"),
                                       QStringLiteral("Curious"), QStringLiteral("Caution"),
                                       QStringLiteral("Warning"), QStringLiteral("Failure"),
                                       QStringLiteral("Minutia"), QStringLiteral("Details"),
                                       QStringLiteral("Subrosa"), QStringLiteral("#debug#")};

struct ProcessState
{
    QMutex mutex;
    std::shared_ptr<Logger> defaultLogger;
    LogLine rootLine;
    quint64 applicationCode = 4;
    Logger::Clock clock;
    QHash<QString, LogLine> placeholders;
};

ProcessState& state()
{
    static auto* processState = new ProcessState; // outlives every static destructor's log line
    return *processState;
}

QString describeException(const std::exception& exception, QString* name)
{
    if (const auto* known = dynamic_cast<const Exception*>(&exception)) {
        *name = known->name();
        return known->reason();
    }
    *name = QString::fromLatin1(typeid(exception).name());
    return QString::fromLocal8Bit(exception.what());
}

enum class CharKind
{
    Plain,
    Newline,
    Control
};

CharKind kindOf(QChar c)
{
    if (c == QLatin1Char('\n') || c == QLatin1Char('\r')) {
        return CharKind::Newline;
    }
    const auto category = c.category();
    const bool control = category == QChar::Other_Control || category == QChar::Other_NotAssigned;
    return control ? CharKind::Control : CharKind::Plain;
}

// Newline runs become " | ", runs of other control characters "?": one line in the file.
QString oneLine(const QString& text)
{
    QString result;
    result.reserve(text.size());
    CharKind previous = CharKind::Plain;
    for (const QChar c : text) {
        const CharKind kind = kindOf(c);
        if (kind == CharKind::Plain) {
            result += c;
        } else if (kind != previous) {
            result += kind == CharKind::Newline ? QStringLiteral(" | ") : QStringLiteral("?");
        }
        previous = kind;
    }
    return result;
}

QString pointerText(quintptr address)
{
    return QStringLiteral("%1").arg(QStringLiteral("0x%1").arg(address, 0, 16), 18);
}

QString describeFrame(quintptr address)
{
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(address), &info) == 0) {
        return QStringLiteral("(unknown image)");
    }
    return QStringLiteral("%1 %2 (%3@%4)")
        .arg(pointerText(reinterpret_cast<quintptr>(info.dli_saddr)),
             info.dli_sname != nullptr ? QString::fromLatin1(info.dli_sname)
                                       : QStringLiteral("unknown"),
             QString::fromLocal8Bit(info.dli_fname),
             pointerText(reinterpret_cast<quintptr>(info.dli_fbase)));
}

QString dumpLine(const QByteArray& data, qsizetype offset)
{
    const QByteArray bytes = data.mid(offset, kDumpLineBytes);
    QString printable;
    for (const char byte : bytes) {
        printable += byte >= 32 && byte <= 126 ? QLatin1Char(byte) : QLatin1Char('_');
    }
    return QStringLiteral("%1: %2 |%3|")
        .arg(offset, 6, 16, QLatin1Char('0'))
        .arg(QString::fromLatin1(bytes.toHex()), printable);
}

double systemUptime()
{
    QFile uptime(QStringLiteral("/proc/uptime"));
    if (!uptime.open(QIODevice::ReadOnly)) {
        return 0;
    }
    return uptime.readAll().split(' ').value(0).toDouble();
}

// Lines written below the logger (decode failures, persisted failures) come here.
class HookSink final : public LogHook::Sink
{
public:
    void logMessage(int logClass, const QString& message) override
    {
        Logger::log(logClass, message);
    }
    void logPlaceholder(int logClass, const QString& text, const QString& key) override
    {
        Logger::logPlaceholder(logClass, text, key);
    }
    void logException(int logClass, const Exception& exception) override
    {
        Logger::log(logClass, exception);
    }
};

[[maybe_unused]] const bool s_hookInstalled = [] {
    static HookSink sink;
    LogHook::install(&sink);
    return true;
}();
} // namespace

Logger::Logger() = default;

Logger::~Logger() = default;

std::shared_ptr<Logger> Logger::defaultLogger()
{
    {
        QMutexLocker locker(&state().mutex);
        if (state().defaultLogger) {
            return state().defaultLogger;
        }
    }
    // Root must not write to a console by default; everybody else may.
    const bool root = geteuid() == 0;
    std::shared_ptr<Logger> fallback;
    if (root) {
        fallback = std::make_shared<NullLogger>();
    } else {
        fallback = std::make_shared<NSLogLogger>();
    }
    setDefaultLogger(fallback);
    try {
        setDefaultLogger(LogFileLogger::create());
    } catch (const std::exception& failure) {
        if (!root) {
            fallback->logLine(
                5, nullptr, QStringLiteral("could not create standard logger; logging to console"));
            fallback->logException(5, &KSException::userInfoLogClassifications(), nullptr, failure);
        }
    }
    QMutexLocker locker(&state().mutex);
    return state().defaultLogger ? state().defaultLogger : fallback;
}

void Logger::setDefaultLogger(std::shared_ptr<Logger> logger)
{
    if (logger) {
        logger->reopen();
    }
    QMutexLocker locker(&state().mutex);
    state().defaultLogger = std::move(logger);
}

void Logger::releaseDefaultLogger()
{
    std::shared_ptr<Logger> released;
    QMutexLocker locker(&state().mutex);
    released.swap(state().defaultLogger);
    locker.unlock();
}

LogLine Logger::rootLogLine()
{
    QMutexLocker locker(&state().mutex);
    if (!state().rootLine) {
        const QDateTime now = state().clock ? state().clock() : QDateTime::currentDateTime();
        const qint64 day = now.date().toJulianDay() - QDate(1, 1, 1).toJulianDay() + 1;
        const qint64 minute =
            std::min<qint64>(now.time().hour() * 60 + now.time().minute() + 1, 1439);
        const auto application = LogLineIdentifier::extending(nullptr, state().applicationCode);
        const auto dayLine =
            LogLineIdentifier::extending(application, quint64(day * 100 + minute * 100 / 1440));
        state().rootLine = LogLineIdentifier::extending(dayLine, quint64(getpid()));
    }
    return state().rootLine;
}

void Logger::setApplicationCode(quint64 code)
{
    QMutexLocker locker(&state().mutex);
    state().applicationCode = code;
}

void Logger::setClock(Clock clock)
{
    QMutexLocker locker(&state().mutex);
    state().clock = std::move(clock);
}

QDateTime Logger::now()
{
    Clock clock;
    {
        QMutexLocker locker(&state().mutex);
        clock = state().clock;
    }
    return clock ? clock() : QDateTime::currentDateTime();
}

QString Logger::nameOfClassification(int classification)
{
    return kClassificationNames.value(classification);
}

int Logger::classificationFromName(const QString& name)
{
    return int(kClassificationNames.indexOf(name));
}

LogLine Logger::log(int classification, const QString& message)
{
    return defaultLogger()->logLine(classification, nullptr, message);
}

LogLine Logger::logFormat(int classification, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const QString message = QString::vasprintf(format, arguments);
    va_end(arguments);
    return log(classification, message);
}

LogLine Logger::log(int classification, const LogLine& inLine, const QString& message)
{
    return defaultLogger()->logLine(classification, inLine, message);
}

LogLine Logger::log(int classification, const LogLine& inLine, const QString& key,
                    const QVariant& value)
{
    return defaultLogger()->logKeyValue(classification, inLine, key, value);
}

LogLine Logger::logData(int classification, const LogLine& inLine, const QString& key,
                        const QByteArray& data, quint64 tail)
{
    return defaultLogger()->logHexDump(classification, inLine, key, data, tail);
}

LogLine Logger::logException(const std::exception& exception)
{
    return log(-1, nullptr, exception);
}

LogLine Logger::log(int classification, const std::exception& exception)
{
    return log(classification, nullptr, exception);
}

LogLine Logger::log(int classification, const LogLine& inLine, const std::exception& exception)
{
    return defaultLogger()->logException(classification, &KSException::userInfoLogClassifications(),
                                         inLine, exception);
}

LogLine Logger::logNewException(const std::exception& exception)
{
    return logNew(-1, exception);
}

LogLine Logger::logNew(int classification, const std::exception& exception)
{
    const auto logger = defaultLogger();
    if (!logger->isNewException(exception)) {
        return nullptr;
    }
    return logger->logException(classification, &KSException::userInfoLogClassifications(), nullptr,
                                exception);
}

LogLine Logger::log(int classification, const QString& message, const Error& error)
{
    QString text = message;
    if (text.isEmpty()) {
        text = error.localizedDescription();
    }
    if (text.isEmpty()) {
        text = QStringLiteral("Unexpected error");
    }
    const KSException exception =
        KSException::error(error, QStringLiteral("IO"), QStringLiteral("general problem"));
    return log(classification, nullptr, text, &exception);
}

LogLine Logger::logDebugError(const Error& error)
{
    return log(kDebugClass, QString(), error);
}

LogLine Logger::log(int classification, const LogLine& inLine, const QString& message,
                    const std::exception* exceptionDetails)
{
    const auto logger = defaultLogger();
    const LogLine line = logger->logLine(classification, inLine, message);
    if (exceptionDetails != nullptr) {
        logger->logException(kDetailsClass, &KSException::userInfoLogClassifications(), line,
                             *exceptionDetails);
    }
    return line;
}

LogLine Logger::logLineForKey(const QString& key)
{
    QMutexLocker locker(&state().mutex);
    return state().placeholders.value(key);
}

void Logger::setLogLine(const LogLine& line, const QString& key)
{
    QMutexLocker locker(&state().mutex);
    if (line) {
        state().placeholders.insert(key, line);
    } else {
        state().placeholders.remove(key);
    }
}

LogLine Logger::logPlaceholder(int classification, const QString& placeholder, const QString& key)
{
    return logPlaceholder(classification, nullptr, placeholder, key);
}

LogLine Logger::logPlaceholder(int classification, const LogLine& inLine,
                               const QString& placeholder, const QString& key)
{
    if (LogLine existing = logLineForKey(key)) {
        return existing;
    }
    const LogLine line = log(classification, inLine, placeholder);
    setLogLine(line, key);
    return line;
}

LogLine Logger::logPlaceholder(int classification, const LogLine& inLine,
                               const QString& placeholder, const QString& key,
                               const std::exception* byException)
{
    const LogLine line = logPlaceholder(classification, inLine, placeholder, key);
    if (byException == nullptr) {
        return line;
    }
    QString name;
    const QString reason = describeException(*byException, &name);
    const LogLine repeats = logPlaceholder(0, line, reason, key + reason);
    if (repeats->count() < kPlaceholderRepeatLimit) {
        log(kDebugClass, repeats, *byException);
    }
    return line;
}

LogLine Logger::logStartProcess(const QString& nameAndVersion)
{
    const LogLine started = log(kDebugClass, QStringLiteral("started %1").arg(nameAndVersion));
    log(kDebugClass, started, QStringLiteral("id"), nameAndVersion);
    log(kDebugClass, started, QStringLiteral("os"),
        QStringLiteral("%1 (%2 %3)")
            .arg(QSysInfo::prettyProductName(), QSysInfo::kernelType(), QSysInfo::kernelVersion()));
    log(kDebugClass, started, QStringLiteral("arch"), QSysInfo::currentCpuArchitecture());
    log(kDebugClass, started, QStringLiteral("ppid: %1").arg(getppid()));
    log(kDebugClass, started, QStringLiteral("uid: %1").arg(getuid()));
    if (geteuid() != getuid()) {
        log(kDebugClass, started, QStringLiteral("euid: %1").arg(geteuid()));
    }
    log(kDebugClass, started, QStringLiteral("up"), systemUptime());
    log(kDebugClass, started, QStringLiteral("wd"), QDir::currentPath());
    const QStringList arguments =
        QCoreApplication::instance() != nullptr ? QCoreApplication::arguments() : QStringList();
    log(kDebugClass, started, QStringLiteral("args"), arguments);
    return started;
}

LogLine Logger::logStopProcess(const QString& nameAndVersion, int exitStatus)
{
    if (exitStatus == 0) {
        return log(kDebugClass, QStringLiteral("stopping %1").arg(nameAndVersion));
    }
    return log(
        kDebugClass,
        QStringLiteral("stopping %1, exiting with status %2").arg(nameAndVersion).arg(exitStatus));
}

LogLine Logger::logLine(int classification, const LogLine& inLine, const QString& message)
{
    const LogLine parent = inLine ? inLine : rootLogLine();
    if (classification >= 0) {
        parent->addClassification(classification);
    }
    LogLine line = parent->next();
    const auto formatted =
        formatMessage(message, line, classification, nameOfClassification(classification));
    if (formatted) {
        logMessage(*formatted);
    }
    return line;
}

bool Logger::isNewException(const std::exception& exception) const
{
    return m_lastException.load() != &exception;
}

LogLine Logger::logException(int classification, const ClassificationMap* map,
                             const LogLine& inLine, const std::exception& exception)
{
    m_lastException.store(&exception);
    if (classification < 0) {
        classification = KSException::preferredLogClassForException(exception);
    }
    QString name;
    const QString reason = oneLine(describeException(exception, &name));
    const LogLine line = logLine(classification, inLine, reason);
    logKeyValue(kHiddenClass, line, QStringLiteral(".Exception"), name);
    const auto* known = dynamic_cast<const Exception*>(&exception);
    if (known != nullptr) {
        logDictionary(kDetailsClass, map, line, known->userInfo());
        if (!known->callStackReturnAddresses().isEmpty()) {
            writeBacktrace(line, known->callStackReturnAddresses());
        }
    }
    return line;
}

void Logger::writeBacktrace(const LogLine& reasonLine, const QList<quintptr>& addresses)
{
    quintptr tag = 0;
    for (const quintptr address : addresses) {
        tag += address;
    }
    bool repeat = false;
    {
        QMutexLocker locker(&m_backtraceLock);
        for (;; ++tag) {
            const auto found = m_taggedBacktraces.constFind(tag);
            if (found == m_taggedBacktraces.cend()) {
                m_taggedBacktraces.insert(tag, addresses);
                break;
            }
            if (*found == addresses) {
                repeat = true;
                if (++m_taggedCount >= kBacktraceCacheLimit) {
                    m_taggedBacktraces.clear();
                    m_taggedCount = 0;
                }
                break;
            }
        }
    }
    const LogLine backtraceLine =
        logLine(kDebugClass, reasonLine, QStringLiteral("backtrace %1").arg(tag, 0, 16));
    if (repeat) {
        return;
    }
    for (const quintptr address : addresses) {
        logLine(kDebugClass, backtraceLine,
                QStringLiteral("%1: %2").arg(pointerText(address), describeFrame(address)));
    }
}

LogLine Logger::logHexDump(int classification, const LogLine& inLine, const QString& key,
                           const QByteArray& data, quint64 tail)
{
    const LogLine header =
        logLine(classification, inLine, QStringLiteral("%1: %2 bytes").arg(key).arg(data.size()));
    const auto size = data.size();
    const auto tailBytes = qsizetype((tail + kDumpLineBytes - 1) / kDumpLineBytes * kDumpLineBytes);
    const bool shortened = tail != 0 && size > 2 * tailBytes + kDumpLineBytes;
    const qsizetype headEnd = shortened ? tailBytes : size;
    for (qsizetype offset = 0; offset < headEnd; offset += kDumpLineBytes) {
        logLine(classification, header, dumpLine(data, offset));
    }
    if (shortened) {
        // The last part starts on a line boundary of the true offsets.
        for (qsizetype offset = (size - tailBytes) / kDumpLineBytes * kDumpLineBytes; offset < size;
             offset += kDumpLineBytes) {
            logLine(classification, header, dumpLine(data, offset));
        }
    }
    return header;
}

LogLine Logger::logDictionary(int classification, const ClassificationMap* map,
                              const LogLine& inLine, const QVariantMap& dictionary)
{
    LogLine last;
    for (auto it = dictionary.cbegin(); it != dictionary.cend(); ++it) {
        QString key = it.key();
        int lineClass = map != nullptr ? map->value(key, classification) : classification;
        if (key.startsWith(QLatin1Char('.'))) {
            lineClass = kHiddenClass;
            if (key == QStringLiteral(".Help")) {
                key = QStringLiteral("help");
            }
        }
        last = logKeyValue(lineClass, inLine, key, it.value());
    }
    return last;
}

LogLine Logger::logKeyValue(int classification, const LogLine& inLine, const QString& key,
                            const QVariant& value)
{
    const int type = value.metaType().id();
    if (type == QMetaType::QVariantMap || type == QMetaType::QVariantHash) {
        const LogLine line = logLine(classification, inLine, key + QLatin1Char(':'));
        logDictionary(classification, nullptr, line, value.toMap());
        return line;
    }
    if (type == QMetaType::QVariantList || type == QMetaType::QStringList) {
        const LogLine line = logLine(classification, inLine, key + QLatin1Char(':'));
        const QVariantList items = value.toList();
        for (qsizetype i = 0; i < items.size(); ++i) {
            logKeyValue(classification, line, QStringLiteral("[%1]").arg(i), items.at(i));
        }
        return line;
    }
    return logLine(classification, inLine,
                   QStringLiteral("%1: %2").arg(key, ValueDescription::describe(value)));
}

QDateTime Logger::logDateReopeningLogger()
{
    const QDateTime date = now();
    if (date >= reopenDate()) {
        reopen();
        QMutexLocker locker(&m_reopenLock);
        m_reopenDate = QDateTime();
    }
    return date;
}

QDateTime Logger::reopenDate()
{
    QMutexLocker locker(&m_reopenLock);
    if (!m_reopenDate.isValid()) {
        m_reopenDate = RelativeDate::dateOffsetBy(RelativeDate::startOfDay(now()), 1, 2);
    }
    return m_reopenDate;
}

void Logger::flush() {}

void Logger::flushBacktraceCache()
{
    QMutexLocker locker(&m_backtraceLock);
    m_taggedBacktraces.clear();
    m_taggedCount = 0;
}

void Logger::reopen()
{
    flushBacktraceCache();
}

void Logger::rotateLogKeeping(unsigned /*keep*/) {}

QStringList Logger::logFiles() const
{
    return {};
}

std::optional<QByteArray> Logger::formatMessage(const QString& message, const LogLine& line,
                                                int /*classification*/, const QString& classString)
{
    const QString text =
        QStringLiteral("%1 %2 %3 [%4]")
            .arg(formatDate(logDateReopeningLogger()), classString, message, line->description());
    return nonLossyASCII(text);
}

void Logger::logCString(const QByteArray& /*line*/) {}

void Logger::logMessage(const QByteArray& formatted)
{
    logCString(formatted);
}

void Logger::openUsingLaunchServices(const QString& /*line*/) {}

QString Logger::formatDate(const QDateTime& date)
{
    const int offset = date.offsetFromUtc();
    const int minutes = std::abs(offset) / 60;
    return date.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss.zzz ")) +
           QStringLiteral("%1%2%3")
               .arg(offset < 0 ? QLatin1Char('-') : QLatin1Char('+'))
               .arg(minutes / 60, 2, 10, QLatin1Char('0'))
               .arg(minutes % 60, 2, 10, QLatin1Char('0'));
}

QByteArray Logger::nonLossyASCII(const QString& text)
{
    QByteArray bytes;
    bytes.reserve(text.size());
    for (const QChar c : text) {
        const char16_t unit = c.unicode();
        if (unit == u'\\') {
            bytes += "\\\\";
        } else if (unit < 0x80) {
            bytes += char(unit);
        } else {
            bytes += QStringLiteral("\\u%1").arg(unit, 4, 16, QLatin1Char('0')).toLatin1();
        }
    }
    return bytes;
}
