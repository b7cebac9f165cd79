#pragma once

#include "foundation/SpinLock.h"
#include "logging/Logger.h"

#include <memory>

// Appends to the product's shared log file, $XDG_STATE_HOME/Kestrom/Kestrom.log, with its
// rotations Kestrom.log.1 to .9. Lines of all threads and processes interleave only as whole
// lines: each is one gathered write in append mode.
class LogFileLogger final : public Logger
{
public:
    static inline const QString kRotationNotification = QStringLiteral("com.kestrom.log.rotation");
    static inline const QString kRotationObject = QStringLiteral("KestromLogger");
    static constexpr unsigned kLogFileCount = 10;

    // Raises a KSException when the log file cannot be opened. The logger made by create()
    // also reopens when any process rotates the log.
    static std::shared_ptr<LogFileLogger> create();
    LogFileLogger();
    ~LogFileLogger() override;

    static QString logFolder();
    static QStringList logFilePaths(unsigned count);
    static QStringList logFilePaths(unsigned count, const QString& folder);
    static QString currentLogFilePath();

    void open();
    void close();
    void flush() override;
    void reopen() override;
    void rotateLogKeeping(unsigned keep) override;
    QStringList logFiles() const override;
    void logCString(const QByteArray& line) override;
    bool canWrite() const override;
    bool openUsingLaunchServices(const QString& line) override;
    void logRotationNotification();

    // Whether the descriptor held is the file now at the current path (not one rotated away).
    bool isWritingToCurrentPath() const;

private:
    void openLocked();
    void closeLocked();

    int m_fileRef = -1;
    mutable SpinLock m_lineLock;
    int m_observerToken = 0;
};
