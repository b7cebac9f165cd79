#include "logging/LogFileLogger.h"

#include "exception/KSException.h"
#include "logging/SystemLog.h"
#include "platform/ClientApplication.h"
#include "platform/DistributedNotificationCenter.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QUrl>
#include <cerrno>
#include <fcntl.h>
#include <mutex>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

namespace {
constexpr mode_t kLogFileMode = 0664;

QString stateHome()
{
    const QString configured = qEnvironmentVariable("XDG_STATE_HOME");
    if (!configured.isEmpty() && QDir::isAbsolutePath(configured)) {
        return configured;
    }
    return QDir::homePath() + QStringLiteral("/.local/state");
}
} // namespace

std::shared_ptr<LogFileLogger> LogFileLogger::create()
{
    auto logger = std::make_shared<LogFileLogger>();
    // Held weakly: a notification that arrives while the logger goes away must not keep a
    // dangling pointer, and one that arrives before must keep the logger alive while it reopens.
    const std::weak_ptr<LogFileLogger> weak = logger;
    logger->m_observerToken = DistributedNotificationCenter::defaultCenter().addObserver(
        kRotationNotification, kRotationObject, [weak](const QString&, const QString&) {
            if (const auto alive = weak.lock()) {
                alive->logRotationNotification();
            }
        });
    return logger;
}

LogFileLogger::LogFileLogger()
{
    open();
}

LogFileLogger::~LogFileLogger()
{
    if (m_observerToken != 0) {
        DistributedNotificationCenter::defaultCenter().removeObserver(m_observerToken);
    }
    close();
}

QString LogFileLogger::logFolder()
{
    return stateHome() + QStringLiteral("/Kestrom");
}

QStringList LogFileLogger::logFilePaths(unsigned count)
{
    return logFilePaths(count, logFolder());
}

QStringList LogFileLogger::logFilePaths(unsigned count, const QString& folder)
{
    const QString base =
        folder + QLatin1Char('/') + QFileInfo(folder).fileName() + QStringLiteral(".log");
    QStringList paths;
    for (unsigned i = 0; i < count; ++i) {
        paths << (i == 0 ? base : base + QLatin1Char('.') + QString::number(i));
    }
    return paths;
}

QString LogFileLogger::currentLogFilePath()
{
    return logFilePaths(1).constFirst();
}

void LogFileLogger::open()
{
    std::lock_guard locker(m_lineLock);
    openLocked();
}

void LogFileLogger::openLocked()
{
    if (m_fileRef >= 0) {
        return;
    }
    const QString path = currentLogFilePath();
    QDir().mkpath(logFolder());
    const QByteArray encoded = QFile::encodeName(path);
    const int fd =
        ::open(encoded.constData(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, kLogFileMode);
    if (fd < 0) {
        const int err = errno;
        SystemLog::write(QStringLiteral("open('%1') errno=%2").arg(path).arg(err));
        KSException::exceptionWithName(QStringLiteral("IO"), QStringLiteral("cannot open log file"))
            .setPOSIXErr(err)
            .setStrPath(path)
            .raise();
    }
    m_fileRef = fd;
}

void LogFileLogger::close()
{
    std::lock_guard locker(m_lineLock);
    closeLocked();
}

void LogFileLogger::closeLocked()
{
    if (m_fileRef < 0) {
        return;
    }
    if (::close(m_fileRef) != 0) {
        SystemLog::write(
            QStringLiteral("close('%1') errno=%2").arg(currentLogFilePath()).arg(errno));
    }
    m_fileRef = -1;
}

void LogFileLogger::flush()
{
    std::lock_guard locker(m_lineLock);
    if (m_fileRef >= 0) {
        ::fsync(m_fileRef);
    }
}

void LogFileLogger::reopen()
{
    try {
        std::lock_guard locker(m_lineLock);
        closeLocked();
        openLocked();
    } catch (const KSException& failure) {
        SystemLog::write(
            QStringLiteral("problem reopening log file: %1").arg(failure.description()));
        releaseDefaultLogger(this);
    }
    Logger::reopen();
}

void LogFileLogger::rotateLogKeeping(unsigned keep)
{
    const QStringList paths = logFilePaths(kLogFileCount);
    for (unsigned i = kLogFileCount - 1; i >= 1; --i) {
        if (i >= keep) {
            QFile::remove(paths.at(i));
        }
        if (i <= keep) {
            QFile::rename(paths.at(i - 1), paths.at(i));
        }
    }
    reopen();
    DistributedNotificationCenter::defaultCenter().postNotification(kRotationNotification,
                                                                    kRotationObject);
}

QStringList LogFileLogger::logFiles() const
{
    QStringList existing;
    for (const QString& path : logFilePaths(kLogFileCount)) {
        const QFileInfo info(path);
        if (info.exists() && !info.isDir()) {
            existing << path;
        }
    }
    return existing;
}

void LogFileLogger::logCString(const QByteArray& line)
{
    int err = 0;
    bool closed = false;
    {
        std::lock_guard locker(m_lineLock);
        closed = m_fileRef < 0;
        char newline = '\n';
        iovec pieces[2] = {{const_cast<char*>(line.constData()), size_t(line.size())},
                           {&newline, 1}};
        const ssize_t expected = line.size() + 1;
        if (!closed && ::writev(m_fileRef, pieces, 2) != expected) {
            err = errno == 0 ? EIO : errno;
        }
    }
    if (closed) {
        // The file was lost (a reopen failed): whoever is chosen now takes the line, so
        // nothing waits for the next rotation or midnight.
        releaseDefaultLogger(this);
        const std::shared_ptr<Logger> successor = defaultLogger();
        if (successor.get() != this) {
            successor->logMessage(line);
        }
        return;
    }
    if (err != 0) {
        SystemLog::write(QStringLiteral("write('%1') errno=%2").arg(currentLogFilePath()).arg(err));
        releaseDefaultLogger(this);
    }
}

bool LogFileLogger::canWrite() const
{
    std::lock_guard locker(m_lineLock);
    return m_fileRef >= 0;
}

bool LogFileLogger::openUsingLaunchServices(const QString& line)
{
    ClientApplication& client = ClientApplication::defaultClient();
    const int located = client.locate();
    if (located != ClientApplication::kNoError) {
        const LogLine failure = Logger::log(
            2, QStringLiteral("Unable to obtain file reference for Kestrom application"));
        Logger::log(9, failure,
                    QStringLiteral("LSFindApplicationForInfo(%1) returned %2")
                        .arg(ClientApplication::kClientIdentifier)
                        .arg(located));
        return false;
    }
    const QString path = currentLogFilePath();
    const int sent = client.activateAction(QStringLiteral("view-log"), {path, line});
    if (sent != ClientApplication::kNoError) {
        const LogLine failure =
            Logger::log(2, QStringLiteral("Error sending open log file request"));
        Logger::log(7, failure, QStringLiteral("log"), QUrl::fromLocalFile(path).toString());
        Logger::log(9, failure, QStringLiteral("LSOpenFromURLSpec returned %1").arg(sent));
        return false;
    }
    return true;
}

void LogFileLogger::logRotationNotification()
{
    reopen();
}

bool LogFileLogger::isWritingToCurrentPath() const
{
    std::lock_guard locker(m_lineLock);
    struct stat held = {};
    struct stat current = {};
    if (m_fileRef < 0 || ::fstat(m_fileRef, &held) != 0 ||
        ::stat(QFile::encodeName(currentLogFilePath()).constData(), &current) != 0) {
        return false;
    }
    return held.st_dev == current.st_dev && held.st_ino == current.st_ino;
}
