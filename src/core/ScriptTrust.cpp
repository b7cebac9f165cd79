#include "core/ScriptTrust.h"

#include <QDir>
#include <QFile>
#include <QStringList>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {
// As many links as the kernel follows in one lookup.
constexpr int kMaxLinks = 40;

bool ownedByUserOrSuperUser(const struct stat& status)
{
    return status.st_uid == geteuid() || status.st_uid == 0;
}

// In a sticky folder others may add entries but not replace ours; every entry on the way is
// checked to be ours anyway.
bool othersMayReplaceEntries(const struct stat& folder)
{
    return (folder.st_mode & (S_IWGRP | S_IWOTH)) != 0 && (folder.st_mode & S_ISVTX) == 0;
}

bool sameFile(const struct stat& one, const struct stat& other)
{
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

QStringList namesOf(const QString& path)
{
    return path.split(QLatin1Char('/'), Qt::SkipEmptyParts);
}

class Descriptor
{
public:
    explicit Descriptor(int fd = -1)
        : m_fd(fd)
    {}
    ~Descriptor() { reset(-1); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return m_fd; }
    int release() { return std::exchange(m_fd, -1); }
    void reset(int fd)
    {
        if (m_fd >= 0) {
            ::close(m_fd);
        }
        m_fd = fd;
    }

private:
    int m_fd;
};

std::optional<QString> ownerRefusal(const QString& shown, const struct stat& status)
{
    if (ownedByUserOrSuperUser(status)) {
        return std::nullopt;
    }
    return QStringLiteral("%1 belongs to uid %2, not to this user").arg(shown).arg(status.st_uid);
}
} // namespace

std::optional<QString> ScriptTrust::reasonNotToRun(const QString& path)
{
    const QString missing = QStringLiteral("no script at %1").arg(path);
    QStringList pending = namesOf(QDir::cleanPath(QDir::current().absoluteFilePath(path)));
    Descriptor folder(::open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
    QString shown; // the path walked so far, as the log shows it
    struct stat status = {};
    if (folder.get() < 0 || ::fstat(folder.get(), &status) != 0) {
        return missing;
    }
    if (const auto refusal = ownerRefusal(QStringLiteral("/"), status)) {
        return refusal;
    }
    int links = 0;
    while (!pending.isEmpty()) {
        const QString name = pending.takeFirst();
        const QByteArray encoded = QFile::encodeName(name);
        const QString here = shown + QLatin1Char('/') + name;
        if (othersMayReplaceEntries(status)) {
            return QStringLiteral("%1 is reached through %2, which others can write to")
                .arg(path, shown.isEmpty() ? QStringLiteral("/") : shown);
        }
        struct stat entry = {};
        if (::fstatat(folder.get(), encoded.constData(), &entry, AT_SYMLINK_NOFOLLOW) != 0) {
            return missing;
        }
        if (const auto refusal = ownerRefusal(here, entry)) {
            return refusal;
        }
        if (S_ISLNK(entry.st_mode)) {
            if (++links > kMaxLinks) {
                return QStringLiteral("%1 leads through too many links").arg(path);
            }
            QByteArray target(qsizetype(entry.st_size) + 1, '\0');
            const ssize_t length = ::readlinkat(folder.get(), encoded.constData(), target.data(),
                                                size_t(target.size()));
            if (length < 0 || length >= target.size()) {
                return missing;
            }
            target.truncate(length);
            const QString leadsTo = QFile::decodeName(target);
            pending = namesOf(leadsTo) + pending;
            if (leadsTo.startsWith(QLatin1Char('/'))) {
                folder.reset(::open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
                shown.clear();
                if (folder.get() < 0 || ::fstat(folder.get(), &status) != 0) {
                    return missing;
                }
            }
            continue;
        }
        if (pending.isEmpty()) {
            if (!S_ISREG(entry.st_mode)) {
                return QStringLiteral("%1 is not a file").arg(here);
            }
            if ((entry.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
                return QStringLiteral("%1 is writable by group or others").arg(here);
            }
            return std::nullopt;
        }
        if (!S_ISDIR(entry.st_mode)) {
            return missing;
        }
        Descriptor next(::openat(folder.get(), encoded.constData(),
                                 O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        struct stat reached = {};
        if (next.get() < 0 || ::fstat(next.get(), &reached) != 0 || !sameFile(reached, entry)) {
            return QStringLiteral("%1 changed while it was checked").arg(here);
        }
        folder.reset(next.release());
        status = reached;
        shown = here;
    }
    return missing;
}
