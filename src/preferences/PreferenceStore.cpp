#include "preferences/PreferenceStore.h"

#include "exception/LogHook.h"
#include "preferences/PropertyList.h"

#include <QDateTime>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLockFile>
#include <QMutexLocker>
#include <QSaveFile>
#include <QThread>
#include <sys/stat.h>
#include <utility>

namespace {
constexpr int kLogClass = 5;
// Preference domains are small; anything this large is not one of ours.
constexpr qint64 kMaxFileSize = qint64(32) << 20;
constexpr unsigned long kLockPollMilliseconds = 2;

// Dated, so a later damage never overwrites the copy of an earlier one.
QString damagedCopyPath(const QString& path)
{
    return path + QStringLiteral(".damaged-") +
           QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-HHmmss"));
}

// Tells whether the file changed since it was last read, without reading it.
PreferenceStore::FileSignature signatureOf(const QString& path)
{
    struct stat info = {};
    if (::stat(QFile::encodeName(path).constData(), &info) != 0) {
        return {};
    }
    return {true, qint64(info.st_ino), qint64(info.st_size),
            qint64(info.st_mtim.tv_sec) * 1'000'000'000 + info.st_mtim.tv_nsec};
}

// Values a property list cannot hold (read from a file another program wrote) are dropped
// from what is written, each with a line, so that one of them never stops every later flush.
QStringList dropUnwritable(QVariantMap& values)
{
    QStringList lines;
    for (auto it = values.begin(); it != values.end();) {
        const PropertyList::Serialized form = PropertyList::xmlData(it.value());
        if (form.isValid()) {
            ++it;
            continue;
        }
        lines.append(QStringLiteral("“%1”: %2").arg(it.key(), form.error));
        it = values.erase(it);
    }
    return lines;
}

void applyChanges(QVariantMap& values, const auto& changes)
{
    for (auto it = changes.cbegin(); it != changes.cend(); ++it) {
        if (it->value.isValid()) {
            values.insert(it.key(), it->value);
        } else {
            values.remove(it.key());
        }
    }
}

// QLockFile's own wait sleeps 100 ms and more between attempts; flushes hold the lock for about
// a millisecond, so a short poll keeps a contended flush from stalling the main thread.
bool acquire(QLockFile& lock, std::chrono::milliseconds timeout)
{
    QDeadlineTimer deadline(timeout);
    while (!lock.tryLock(0)) {
        if (lock.error() != QLockFile::LockFailedError || deadline.hasExpired()) {
            return false;
        }
        QThread::msleep(kLockPollMilliseconds);
    }
    return true;
}

QString readablePart(qsizetype count)
{
    return count == 0 ? QStringLiteral("nothing of it is readable")
                      : QStringLiteral("%1 readable values before the damage are kept").arg(count);
}

void log(const std::optional<QString>& line)
{
    if (line) {
        LogHook::logMessage(kLogClass, *line);
    }
}
} // namespace

struct PreferenceStore::FileState
{
    enum class Status
    {
        Absent,
        Read,
        Damaged,
        Unreadable
    };

    Status status = Status::Absent;
    // Read: the file's values. Damaged: the part that could be salvaged.
    QVariantMap values;
    QString problem;
    // Tells one damage from another, so that each is logged once.
    size_t fingerprint = 0;
    FileSignature signature;
};

QString PreferenceStore::damageLine(const QString& path, const FileState& file)
{
    return QStringLiteral("Preference file “%1” is damaged (%2); its values are ignored until "
                          "the domain is next written, then %3 and the damaged file is kept "
                          "beside it, dated")
        .arg(path, file.problem, readablePart(file.values.size()));
}

PreferenceStore::PreferenceStore(QString folder)
    : m_folder(folder.isEmpty() ? defaultFolder() : std::move(folder))
{}

QString PreferenceStore::defaultFolder()
{
    // A relative XDG_CONFIG_HOME is invalid by the base-directory rules and is ignored.
    QString base = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (base.isEmpty() || QDir::isRelativePath(base)) {
        base = QDir::homePath() + QStringLiteral("/.config");
    }
    return base + QStringLiteral("/Kestrom");
}

QString PreferenceStore::filePath(const QString& domain) const
{
    return m_folder + QLatin1Char('/') + domain + QStringLiteral(".plist");
}

void PreferenceStore::setRecheckInterval(std::chrono::milliseconds interval)
{
    QMutexLocker locker(&m_mutex);
    m_recheckInterval = interval;
}

void PreferenceStore::setLockTimeout(std::chrono::milliseconds timeout)
{
    QMutexLocker locker(&m_flushMutex);
    m_lockTimeout = timeout;
}

QVariant PreferenceStore::value(const QString& key, const QString& domain)
{
    if (!isUsableDomainName(domain)) {
        return {};
    }
    std::optional<QString> line;
    QVariant result;
    {
        QMutexLocker locker(&m_mutex);
        result = loadedDomain(domain, &line).values.value(key);
    }
    log(line);
    return result;
}

QVariantMap PreferenceStore::values(const QString& domain)
{
    if (!isUsableDomainName(domain)) {
        return {};
    }
    std::optional<QString> line;
    QVariantMap result;
    {
        QMutexLocker locker(&m_mutex);
        result = loadedDomain(domain, &line).values;
    }
    log(line);
    return result;
}

bool PreferenceStore::setValue(const QString& key, const QVariant& value, const QString& domain)
{
    if (!isUsableDomainName(domain)) {
        log(QStringLiteral("Preference “%1” not set: “%2” cannot name a preference domain")
                .arg(key, domain));
        return false;
    }
    // Refused at the door: a value the file cannot hold would fail every later flush.
    const PropertyList::Serialized form =
        value.isValid() ? PropertyList::xmlData(value) : PropertyList::Serialized{};
    if (!form.isValid()) {
        log(QStringLiteral("Preference “%1” of %2 not set: %3").arg(key, domain, form.error));
        return false;
    }
    std::optional<QString> line;
    bool changed = false;
    {
        QMutexLocker locker(&m_mutex);
        Domain& entry = loadedDomain(domain, &line);
        const auto current = entry.values.constFind(key);
        changed =
            !PropertyList::isEqual(current == entry.values.cend() ? QVariant() : *current, value);
        if (changed) {
            if (entry.damaged && entry.changes.isEmpty()) {
                entry.values = entry.salvaged;
            }
            if (value.isValid()) {
                entry.values.insert(key, value);
            } else {
                entry.values.remove(key);
            }
            entry.changes.insert(key, Change{value, ++m_lastSerial});
        }
    }
    log(line);
    return changed;
}

bool PreferenceStore::hasUnsynchronizedChanges(const QString& domain)
{
    QMutexLocker locker(&m_mutex);
    const auto entry = m_domains.constFind(domain);
    return entry != m_domains.cend() && !entry->changes.isEmpty();
}

bool PreferenceStore::synchronize(const QString& domain)
{
    if (!isUsableDomainName(domain)) {
        return false;
    }
    QMutexLocker flushLocker(&m_flushMutex);
    QHash<QString, Change> changes;
    {
        QMutexLocker locker(&m_mutex);
        changes = m_domains[domain].changes;
    }
    if (changes.isEmpty()) {
        // Nothing of ours to write: pick up what other processes wrote, and leave a damaged
        // file exactly as it is.
        const FileState file = readFile(domain);
        std::optional<QString> line;
        {
            QMutexLocker locker(&m_mutex);
            line = adopt(m_domains[domain], domain, file);
        }
        log(line);
        return file.status != FileState::Status::Unreadable;
    }
    FileState seen;
    QVariantMap written;
    const std::optional<QString> failure = writeMerged(domain, changes, &seen, &written);
    std::optional<QString> line;
    {
        QMutexLocker locker(&m_mutex);
        Domain& entry = m_domains[domain];
        if (seen.status == FileState::Status::Damaged) {
            line = adopt(entry, domain, seen);
        }
        if (!failure) {
            // Keys changed again while the file was written stay pending.
            for (auto it = changes.cbegin(); it != changes.cend(); ++it) {
                const auto mine = entry.changes.constFind(it.key());
                if (mine != entry.changes.cend() && mine->serial == it->serial) {
                    entry.changes.erase(mine);
                }
            }
            adopt(
                entry, domain,
                FileState{FileState::Status::Read, written, {}, 0, signatureOf(filePath(domain))});
        }
    }
    log(line);
    log(failure);
    return !failure;
}

bool PreferenceStore::isUsableDomainName(const QString& domain)
{
    return !domain.isEmpty() && domain != u"." && domain != u".." &&
           !domain.contains(QLatin1Char('/')) && !domain.contains(QChar::Null);
}

PreferenceStore::FileState PreferenceStore::readFile(const QString& domain) const
{
    using Status = FileState::Status;
    // Taken before the read: a change while reading makes the next read read again.
    const FileSignature signature = signatureOf(filePath(domain));
    QFile file(filePath(domain));
    if (!file.exists()) {
        return {};
    }
    if (!file.open(QIODevice::ReadOnly)) {
        const QString problem = file.errorString();
        return {Status::Unreadable, {}, problem, qHash(problem), signature};
    }
    if (file.size() > kMaxFileSize) {
        const QString problem = QStringLiteral("it is larger than %1 bytes").arg(kMaxFileSize);
        return {Status::Damaged, {}, problem, qHashMulti(0, problem, file.size()), signature};
    }
    const QByteArray bytes = file.readAll();
    const PropertyList::Parsed parsed = PropertyList::fromData(bytes);
    if (!parsed.isValid()) {
        return {Status::Damaged, PropertyList::salvagedDictionary(bytes), parsed.error,
                qHash(bytes), signature};
    }
    if (parsed.value.metaType().id() != QMetaType::QVariantMap) {
        return {Status::Damaged,
                {},
                QStringLiteral("it does not hold a dictionary"),
                qHash(bytes),
                signature};
    }
    return {Status::Read, parsed.value.toMap(), {}, 0, signature};
}

PreferenceStore::Domain& PreferenceStore::loadedDomain(const QString& domain,
                                                       std::optional<QString>* logLine)
{
    Domain& entry = m_domains[domain];
    // Other processes write their domains too: a file that changed since it was read is read
    // again, with this process's pending changes laid over it.
    const bool due =
        !entry.checked.isValid() || entry.checked.elapsed() >= m_recheckInterval.count();
    if (!entry.loaded || (due && signatureOf(filePath(domain)) != entry.signature)) {
        *logLine = adopt(entry, domain, readFile(domain));
    }
    if (due) {
        entry.checked.start();
    }
    return entry;
}

// Makes the cache what the file says with this process's pending changes on top, and answers
// the line to log when the file shows a problem not logged before.
std::optional<QString> PreferenceStore::adopt(Domain& entry, const QString& domain,
                                              const FileState& file)
{
    using Status = FileState::Status;
    std::optional<QString> line;
    switch (file.status) {
    case Status::Absent:
    case Status::Read:
        entry.values = file.values;
        entry.damaged = false;
        entry.salvaged.clear();
        entry.loggedDamage.reset();
        break;
    case Status::Damaged:
        entry.damaged = true;
        entry.salvaged = file.values;
        entry.values = entry.changes.isEmpty() ? QVariantMap() : file.values;
        if (entry.loggedDamage != file.fingerprint) {
            entry.loggedDamage = file.fingerprint;
            line = damageLine(filePath(domain), file);
        }
        break;
    case Status::Unreadable:
        if (entry.loggedDamage != file.fingerprint) {
            entry.loggedDamage = file.fingerprint;
            line = QStringLiteral("Preference file “%1” cannot be read: %2")
                       .arg(filePath(domain), file.problem);
        }
        break;
    }
    applyChanges(entry.values, entry.changes);
    entry.loaded = true;
    entry.signature = file.signature;
    return line;
}

// Under the domain's lock file: re-read, lay the changes over what is there, keep a copy of a
// damaged file, replace atomically. Answers the failure, if any.
std::optional<QString> PreferenceStore::writeMerged(const QString& domain,
                                                    const QHash<QString, Change>& changes,
                                                    FileState* seen, QVariantMap* written)
{
    const QString path = filePath(domain);
    if (!QDir().mkpath(m_folder)) {
        return QStringLiteral("Preference folder “%1” cannot be created").arg(m_folder);
    }
    QLockFile lock(path + QStringLiteral(".lock"));
    if (!acquire(lock, m_lockTimeout)) {
        qint64 pid = 0;
        QString host;
        QString application;
        lock.getLockInfo(&pid, &host, &application);
        return QStringLiteral("Preference file “%1” not written: locked by %2 (process %3)")
            .arg(path, application)
            .arg(pid);
    }
    *seen = readFile(domain);
    if (seen->status == FileState::Status::Unreadable) {
        return QStringLiteral("Preference file “%1” not written: it cannot be read: %2")
            .arg(path, seen->problem);
    }
    QVariantMap merged = seen->values;
    applyChanges(merged, changes);
    for (const QString& dropped : dropUnwritable(merged)) {
        log(QStringLiteral("Preference file “%1”: value %2; it is left out").arg(path, dropped));
    }
    const PropertyList::Serialized xml = PropertyList::xmlData(merged);
    if (!xml.isValid()) {
        return QStringLiteral("Preference file “%1” not written: %2").arg(path, xml.error);
    }
    if (seen->status == FileState::Status::Damaged) {
        const QString copy = damagedCopyPath(path);
        if (!QFile::exists(copy) && !QFile::copy(path, copy)) {
            return QStringLiteral("Preference file “%1” not written: no copy of the damaged "
                                  "file could be kept as “%2”")
                .arg(path, copy);
        }
        log(QStringLiteral("Damaged preference file “%1” kept as “%2”").arg(path, copy));
    }
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(xml.data) != xml.data.size() ||
        !file.commit()) {
        return QStringLiteral("Preference file “%1” not written: %2").arg(path, file.errorString());
    }
    *written = std::move(merged);
    return std::nullopt;
}
