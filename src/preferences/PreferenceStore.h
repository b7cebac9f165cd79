#pragma once

#include <QElapsedTimer>
#include <QHash>
#include <QMutex>
#include <QString>
#include <QVariant>
#include <QVariantMap>
#include <chrono>
#include <optional>

// The per-user store of preference domains: domain D is the XML property list D.plist in one
// folder. Reads come from a per-domain cache, read again when the file changed; writes change the
// cache and are remembered as this process's own until synchronize(D) lays them over the file as it
// is on disk then, so two processes writing different keys of one domain never lose each other's.
// Any thread.
class PreferenceStore
{
public:
    static constexpr std::chrono::milliseconds kDefaultLockTimeout{10'000};
    // A stat costs more than a cached read many times over: a domain's file is looked at again
    // at most this often.
    static constexpr std::chrono::milliseconds kDefaultRecheckInterval{250};

    // An empty folder means $XDG_CONFIG_HOME/Kestrom (~/.config/Kestrom without the variable),
    // looked up now.
    explicit PreferenceStore(QString folder = {});
    PreferenceStore(const PreferenceStore&) = delete;
    PreferenceStore& operator=(const PreferenceStore&) = delete;

    static QString defaultFolder();
    QString folder() const { return m_folder; }
    QString filePath(const QString& domain) const;
    // How long a flush waits for another process's lock on the domain before giving up.
    void setLockTimeout(std::chrono::milliseconds timeout);
    // How long a read trusts the cache before it looks whether another process changed the
    // file; 0 looks at every read.
    void setRecheckInterval(std::chrono::milliseconds interval);

    // An invalid QVariant when absent.
    QVariant value(const QString& key, const QString& domain);
    QVariantMap values(const QString& domain);
    // Sets (or, for an invalid value, removes) the key unless it already holds an equal value
    // of the same kind; answers whether it changed anything. Property-list values only.
    bool setValue(const QString& key, const QVariant& value, const QString& domain);
    bool hasUnsynchronizedChanges(const QString& domain);
    // Re-reads the domain's file and, when this process changed keys since the last flush,
    // writes the file with those changes laid over it. False when the file could not be read
    // or replaced; the changes are then kept for the next attempt.
    bool synchronize(const QString& domain);

    // Which file, of what size, written when: a change of any means the file changed.
    struct FileSignature
    {
        bool exists = false;
        qint64 inode = 0;
        qint64 size = 0;
        qint64 modifiedNs = 0;
        bool operator==(const FileSignature&) const = default;
    };

private:
    struct Change
    {
        QVariant value;
        quint64 serial = 0;
    };

    struct Domain
    {
        bool loaded = false;
        QVariantMap values;
        QHash<QString, Change> changes;
        // The file does not parse: nothing of it is shown until this process writes the
        // domain, and then the readable part is shown and kept.
        bool damaged = false;
        QVariantMap salvaged;
        std::optional<size_t> loggedDamage;
        FileSignature signature; // of the file as last read
        QElapsedTimer checked;   // since the signature was last compared
    };

    struct FileState;

    static bool isUsableDomainName(const QString& domain);
    static QString damageLine(const QString& path, const FileState& file);
    FileState readFile(const QString& domain) const;
    Domain& loadedDomain(const QString& domain, std::optional<QString>* logLine);
    std::optional<QString> adopt(Domain& entry, const QString& domain, const FileState& file);
    std::optional<QString> writeMerged(const QString& domain, const QHash<QString, Change>& changes,
                                       FileState* seen, QVariantMap* written);

    const QString m_folder;
    mutable QMutex m_mutex;
    // One flush at a time, so that the changes it takes are the ones it writes.
    QMutex m_flushMutex;
    QHash<QString, Domain> m_domains;
    quint64 m_lastSerial = 0;
    std::chrono::milliseconds m_lockTimeout = kDefaultLockTimeout;
    std::chrono::milliseconds m_recheckInterval = kDefaultRecheckInterval;
};
