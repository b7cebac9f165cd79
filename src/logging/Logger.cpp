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
#include <charconv>
#include <cstdarg>
#include <dlfcn.h>
#include <limits>
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

// Read on every line: the wall clock and the real uid need no lock.
std::atomic<bool> s_clockSet{false};
std::atomic<LogLineIdentifier*> s_rootLine{nullptr};
std::atomic<qint64> s_effectiveUid{-1};

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

bool isNewline(char32_t c)
{
    return c == U'\n' || c == U'\r' || c == U'\f' || c == U'\v' || c == 0x85 || c == 0x2028 ||
           c == 0x2029;
}

CharKind kindOf(char32_t c)
{
    if (isNewline(c)) {
        return CharKind::Newline;
    }
    const auto category = QChar::category(c);
    const bool control = category == QChar::Other_Control || category == QChar::Other_Format ||
                         category == QChar::Other_NotAssigned;
    return control ? CharKind::Control : CharKind::Plain;
}

char* writeEscaped(char* out, char16_t unit)
{
    static constexpr char kHex[] = "0123456789abcdef";
    *out++ = '\\';
    *out++ = 'u';
    for (int shift = 12; shift >= 0; shift -= 4) {
        *out++ = kHex[(unit >> shift) & 0xf];
    }
    return out;
}

// At most six bytes for each UTF-16 unit of the text.
char* writeLogText(char* out, QStringView text)
{
    CharKind previous = CharKind::Plain;
    const char16_t* units = text.utf16();
    const qsizetype size = text.size();
    for (qsizetype i = 0; i < size; ++i) {
        const char16_t unit = units[i];
        if (unit >= 0x20 && unit < 0x7f) {
            *out++ = char(unit);
            if (unit == u'\\') {
                *out++ = '\\';
            }
            previous = CharKind::Plain;
            continue;
        }
        const bool pair =
            QChar::isHighSurrogate(unit) && i + 1 < size && QChar::isLowSurrogate(units[i + 1]);
        CharKind kind = CharKind::Control; // an unpaired surrogate is no character at all
        if (pair) {
            kind = kindOf(QChar::surrogateToUcs4(unit, units[i + 1]));
        } else if (!QChar::isSurrogate(unit)) {
            kind = kindOf(unit);
        }
        if (kind == CharKind::Plain) {
            out = writeEscaped(out, unit);
            if (pair) {
                out = writeEscaped(out, units[++i]);
            }
        } else {
            if (kind != previous) {
                const char* replacement = kind == CharKind::Newline ? " | " : "?";
                for (; *replacement != '\0'; ++replacement) {
                    *out++ = *replacement;
                }
            }
            i += pair ? 1 : 0;
        }
        previous = kind;
    }
    return out;
}

QByteArray zoneText(int offsetSeconds)
{
    const int minutes = std::abs(offsetSeconds) / 60;
    return QStringLiteral("%1%2%3")
        .arg(offsetSeconds < 0 ? QLatin1Char('-') : QLatin1Char('+'))
        .arg(minutes / 60, 2, 10, QLatin1Char('0'))
        .arg(minutes % 60, 2, 10, QLatin1Char('0'))
        .toLatin1();
}

// Formatting a local date costs far more than writing the line, so each thread formats the
// second once and only fills in the milliseconds. The zone offset is taken per second as well,
// so a change of daylight saving time shows from its first second.
struct DateCache
{
    qint64 second = std::numeric_limits<qint64>::min();
    QByteArray head; // "yyyy-MM-dd HH:mm:ss."
    QByteArray tail; // " +0100"
};

void appendWallDate(QByteArray& bytes, qint64 msecs)
{
    thread_local DateCache cache;
    const qint64 second = msecs >= 0 ? msecs / 1000 : -((-msecs + 999) / 1000);
    if (second != cache.second) {
        const QDateTime date = QDateTime::fromMSecsSinceEpoch(second * 1000);
        cache.head = date.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss.")).toLatin1();
        cache.tail = ' ' + zoneText(date.offsetFromUtc());
        cache.second = second;
    }
    const auto millisecond = int(msecs - second * 1000);
    bytes += cache.head;
    bytes += char('0' + millisecond / 100);
    bytes += char('0' + millisecond / 10 % 10);
    bytes += char('0' + millisecond % 10);
    bytes += cache.tail;
}

std::shared_ptr<Logger> makeFallback()
{
    // Root must not write to a console by default; everybody else may.
    const qint64 uid = s_effectiveUid.load();
    const bool root = (uid < 0 ? geteuid() : uid_t(uid)) == 0;
    if (root) {
        return std::make_shared<NullLogger>();
    }
    return std::make_shared<NSLogLogger>();
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
    const std::shared_ptr<Logger> fallback = makeFallback();
    setDefaultLogger(fallback);
    try {
        setDefaultLogger(LogFileLogger::create());
    } catch (const std::exception& failure) {
        if (dynamic_cast<NSLogLogger*>(fallback.get()) != nullptr) {
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
        // Lines must go somewhere now, not after the next rotation or midnight.
        if (!logger->canWrite()) {
            logger = makeFallback();
            logger->reopen();
        }
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

bool Logger::releaseDefaultLogger(const Logger* current)
{
    std::shared_ptr<Logger> released;
    QMutexLocker locker(&state().mutex);
    if (state().defaultLogger.get() != current) {
        return false;
    }
    released.swap(state().defaultLogger);
    locker.unlock();
    return true;
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
        s_rootLine.store(state().rootLine.get());
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
    s_clockSet.store(bool(clock));
    state().clock = std::move(clock);
}

void Logger::setEffectiveUid(std::optional<unsigned> uid)
{
    s_effectiveUid.store(uid ? qint64(*uid) : -1);
}

QDateTime Logger::now()
{
    if (!s_clockSet.load(std::memory_order_relaxed)) {
        return QDateTime::currentDateTime();
    }
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
    const LogLine line = logInLineFormatArgs(classification, nullptr, format, arguments);
    va_end(arguments);
    return line;
}

LogLine Logger::logInLineFormat(int classification, const LogLine& inLine, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const LogLine line = logInLineFormatArgs(classification, inLine, format, arguments);
    va_end(arguments);
    return line;
}

LogLine Logger::logInLineFormatArgs(int classification, const LogLine& inLine, const char* format,
                                    va_list arguments)
{
    return log(classification, inLine, QString::vasprintf(format, arguments));
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
    LogLineIdentifier* parent = inLine.get();
    if (parent == nullptr) {
        parent = s_rootLine.load(std::memory_order_acquire);
    }
    if (parent == nullptr) {
        rootLogLine();
        parent = s_rootLine.load();
    }
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
    if (const auto* known = dynamic_cast<const Exception*>(&exception)) {
        return m_lastException.load() != known->identity();
    }
    return m_lastForeignException.load() != &exception;
}

LogLine Logger::logException(int classification, const ClassificationMap* map,
                             const LogLine& inLine, const std::exception& exception)
{
    const auto* known = dynamic_cast<const Exception*>(&exception);
    m_lastException.store(known != nullptr ? known->identity() : 0);
    m_lastForeignException.store(known != nullptr ? nullptr : &exception);
    if (classification < 0) {
        classification = KSException::preferredLogClassForException(exception);
    }
    QString name;
    const QString reason = describeException(exception, &name);
    const LogLine line = logLine(classification, inLine, reason);
    logKeyValue(kHiddenClass, line, QStringLiteral(".Exception"), name);
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
    if (date.toMSecsSinceEpoch() >= reopenMSecs()) {
        reopen();
        m_reopenMSecs.store(0);
    }
    return date;
}

void Logger::appendLogDate(QByteArray& bytes)
{
    if (s_clockSet.load(std::memory_order_relaxed)) {
        bytes += formatDate(logDateReopeningLogger()).toLatin1();
        return;
    }
    const qint64 msecs = QDateTime::currentMSecsSinceEpoch();
    if (msecs >= reopenMSecs()) {
        reopen();
        m_reopenMSecs.store(0);
    }
    appendWallDate(bytes, msecs);
}

QDateTime Logger::reopenDate()
{
    return QDateTime::fromMSecsSinceEpoch(reopenMSecs());
}

qint64 Logger::reopenMSecs()
{
    qint64 msecs = m_reopenMSecs.load(std::memory_order_acquire);
    if (msecs != 0) {
        return msecs;
    }
    QMutexLocker locker(&m_reopenLock);
    msecs = m_reopenMSecs.load();
    if (msecs == 0) {
        msecs =
            RelativeDate::dateOffsetBy(RelativeDate::startOfDay(now()), 1, 2).toMSecsSinceEpoch();
        m_reopenMSecs.store(msecs);
    }
    return msecs;
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
    // One allocation: room for the date, the escaped texts and a deep identifier.
    constexpr qsizetype kFixedRoom = 128;
    QByteArray bytes;
    bytes.reserve(kFixedRoom + 6 * (classString.size() + message.size()));
    appendLogDate(bytes);
    bytes += ' ';
    appendLogText(bytes, classString);
    bytes += ' ';
    appendLogText(bytes, message);
    bytes += " [";
    line->appendDescription(bytes);
    bytes += ']';
    return bytes;
}

void Logger::logCString(const QByteArray& /*line*/) {}

void Logger::logMessage(const QByteArray& formatted)
{
    logCString(formatted);
}

bool Logger::openUsingLaunchServices(const QString& /*line*/)
{
    return false;
}

bool Logger::canWrite() const
{
    return true;
}

QString Logger::formatDate(const QDateTime& date)
{
    return date.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss.zzz ")) +
           QString::fromLatin1(zoneText(date.offsetFromUtc()));
}

QByteArray Logger::logText(QStringView text)
{
    QByteArray bytes;
    appendLogText(bytes, text);
    return bytes;
}

void Logger::appendLogText(QByteArray& bytes, QStringView text)
{
    const qsizetype start = bytes.size();
    bytes.resize(start + 6 * text.size());
    char* end = writeLogText(bytes.data() + start, text);
    bytes.truncate(end - bytes.constData());
}
