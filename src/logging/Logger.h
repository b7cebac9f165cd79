#pragma once

#include "logging/LogLineIdentifier.h"

#include <QByteArray>
#include <QDateTime>
#include <QHash>
#include <QMutex>
#include <QString>
#include <QStringList>
#include <QStringView>
#include <QVariant>
#include <atomic>
#include <cstdarg>
#include <exception>
#include <functional>
#include <memory>
#include <optional>

class Error;

// The process-wide logger. Class-level calls go to the default logger, chosen on first use
// (the log file when it can be opened, else the fallback for this user); each returns the
// identifier of the line it wrote, which nests further lines under it.
//
// Classifications: 0 plain, 1 separator, 2 curious, 3 caution, 4 warning, 5 failure,
// 6 minutia, 7 details, 8 hidden detail, 9 debug; -1 lets an exception choose its own.
class Logger
{
public:
    using Clock = std::function<QDateTime()>;
    using ClassificationMap = QHash<QString, int>;

    virtual ~Logger();
    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

    // The default logger and the process's lines.
    static std::shared_ptr<Logger> defaultLogger();
    static void setDefaultLogger(std::shared_ptr<Logger> logger);
    static void releaseDefaultLogger();
    static LogLine rootLogLine();
    // The first level of the root line: 4 for the monitor. Set before the first line.
    static void setApplicationCode(quint64 code);
    // Tests move time; everything else uses the wall clock.
    static void setClock(Clock clock);
    static QDateTime now();
    // Tests choose the fallback as another user would; none uses the process's effective uid.
    static void setEffectiveUid(std::optional<unsigned> uid);

    static QString nameOfClassification(int classification);
    static int classificationFromName(const QString& name);

    static LogLine log(int classification, const QString& message);
    static LogLine logFormat(int classification, const char* format, ...)
        __attribute__((format(printf, 2, 3)));
    static LogLine log(int classification, const LogLine& inLine, const QString& message);
    static LogLine logInLineFormat(int classification, const LogLine& inLine, const char* format,
                                   ...) __attribute__((format(printf, 3, 4)));
    static LogLine logInLineFormatArgs(int classification, const LogLine& inLine,
                                       const char* format, va_list arguments)
        __attribute__((format(printf, 3, 0)));
    static LogLine log(int classification, const LogLine& inLine, const QString& key,
                       const QVariant& value);
    static LogLine logData(int classification, const LogLine& inLine, const QString& key,
                           const QByteArray& data, quint64 tail);

    static LogLine logException(const std::exception& exception);
    static LogLine log(int classification, const std::exception& exception);
    static LogLine log(int classification, const LogLine& inLine, const std::exception& exception);
    // Only when the exception is not the one logged last; otherwise nothing, and none.
    static LogLine logNewException(const std::exception& exception);
    static LogLine logNew(int classification, const std::exception& exception);
    static LogLine log(int classification, const QString& message, const Error& error);
    static LogLine logDebugError(const Error& error);
    static LogLine log(int classification, const LogLine& inLine, const QString& message,
                       const std::exception* exceptionDetails);

    // Placeholders: a line written once per key and then returned.
    static LogLine logLineForKey(const QString& key);
    static void setLogLine(const LogLine& line, const QString& key);
    static LogLine logPlaceholder(int classification, const QString& placeholder,
                                  const QString& key);
    static LogLine logPlaceholder(int classification, const LogLine& inLine,
                                  const QString& placeholder, const QString& key);
    static LogLine logPlaceholder(int classification, const LogLine& inLine,
                                  const QString& placeholder, const QString& key,
                                  const std::exception* byException);

    static LogLine logStartProcess(const QString& nameAndVersion);
    static LogLine logStopProcess(const QString& nameAndVersion, int exitStatus);

    // The back-end contract.
    virtual LogLine logLine(int classification, const LogLine& inLine, const QString& message);
    bool isNewException(const std::exception& exception) const;
    LogLine logException(int classification, const ClassificationMap* map, const LogLine& inLine,
                         const std::exception& exception);
    LogLine logHexDump(int classification, const LogLine& inLine, const QString& key,
                       const QByteArray& data, quint64 tail);
    LogLine logDictionary(int classification, const ClassificationMap* map, const LogLine& inLine,
                          const QVariantMap& dictionary);
    LogLine logKeyValue(int classification, const LogLine& inLine, const QString& key,
                        const QVariant& value);
    QDateTime logDateReopeningLogger();
    QDateTime reopenDate();
    virtual void flush();
    void flushBacktraceCache();
    virtual void reopen();
    virtual void rotateLogKeeping(unsigned keep);
    virtual QStringList logFiles() const;
    virtual std::optional<QByteArray> formatMessage(const QString& message, const LogLine& line,
                                                    int classification, const QString& classString);
    virtual void logCString(const QByteArray& line);
    void logMessage(const QByteArray& formatted);
    // False when the request could not be handed to the client application.
    virtual bool openUsingLaunchServices(const QString& line);
    // False for a logger that lost what it writes to; such a one is never made the default.
    virtual bool canWrite() const;

    static QString formatDate(const QDateTime& date);
    // A text as the log holds it: one line of ASCII. Runs of line breaks read " | ", runs of
    // control, format, unassigned or unpaired surrogate characters "?", other non-ASCII
    // characters \uXXXX and a backslash "\\".
    static QByteArray logText(QStringView text);
    static void appendLogText(QByteArray& bytes, QStringView text);

protected:
    Logger();
    // Forgets the default logger only when it is this one; true if it was.
    static bool releaseDefaultLogger(const Logger* current);

private:
    void writeBacktrace(const LogLine& reasonLine, const QList<quintptr>& addresses);
    void appendLogDate(QByteArray& bytes);
    qint64 reopenMSecs();

    std::atomic<qint64> m_reopenMSecs{0}; // 0 until computed
    QMutex m_reopenLock;
    // Exceptions of this product by identity; foreign ones can only be told by address.
    std::atomic<quint64> m_lastException{0};
    std::atomic<const void*> m_lastForeignException{nullptr};
    QMutex m_backtraceLock;
    QHash<quintptr, QList<quintptr>> m_taggedBacktraces;
    quint64 m_taggedCount = 0;
};
