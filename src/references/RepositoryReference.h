#pragma once

#include <QByteArray>
#include <QMetaType>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QUrl>
#include <QVariant>
#include <memory>

class Error;

// Names one archive (a folder whose name ends in ".stromi") so that the name survives being
// sent to another process or kept in preferences: by bookmark (RepositoryAliasReference) or
// by path (RepositoryPathReference). References are shared objects, made by the subclasses'
// factories, and travel as keyed archives under their class names.
class RepositoryReference : public std::enable_shared_from_this<RepositoryReference>
{
public:
    static inline const QString kRepositoryExtension = QStringLiteral("stromi");

    RepositoryReference(const RepositoryReference&) = delete;
    RepositoryReference& operator=(const RepositoryReference&) = delete;
    virtual ~RepositoryReference();

    // The resource keys every bookmark records, so that a reference can describe an archive it
    // cannot reach: path, name, localized name, volume name, volume localized name and volume
    // UUID string.
    static QStringList essentialBookmarkPropertyKeys();

    // The four class names, for decoding a reference with only those allowed.
    static QSet<QString> archivableClassNames();
    // Makes the four classes known to the keyed archive. Idempotent; also done as soon as
    // this file is linked in.
    static void registerArchivableClasses();

    // This reference in a QVariant of its own class, as the keyed archive takes it.
    QVariant toVariant() const;
    // A reference of any of the four classes held in the value, or none.
    static std::shared_ptr<RepositoryReference> fromVariant(const QVariant& value);
    QByteArray archivedData() const;
    // None for empty data, bytes that are no archive and archives of anything else (logged).
    static std::shared_ptr<RepositoryReference> fromArchivedData(const QByteArray& data);

    virtual QString className() const = 0;
    virtual QUrl url() const = 0;
    // The keyed fields this reference writes.
    virtual QVariantMap encodedFields() const;

    // Whether url() can be reached now.
    bool isReachable() const;
    // Reachable, a folder, and named with the archive extension.
    bool isValid() const;
    virtual bool isRefreshed() const;

    virtual QByteArray bookmark() const;
    // A new bookmark of url() recording the keys; none (and a log line) when none can be made.
    // Bookmarks have no creation options on Linux: any but 0 fails.
    QByteArray bookmarkWithOption(int options, const QStringList& resourceKeys) const;

    virtual QString path() const;
    virtual QString name() const;
    virtual QString displayName() const;
    QString volumeName() const;
    QString volumeDisplayName() const;
    QString volumeUUID() const;
    // The resource value of url() for the key when it is of the expected type; otherwise, or
    // when it cannot be read, none.
    virtual QVariant propertyForKey(const QString& key, QMetaType expected) const;

    // Both references, and equal URLs.
    virtual bool isEqual(const RepositoryReference& other) const;
    size_t hash() const;
    // "Class.0x…(path)".
    QString description() const;

protected:
    RepositoryReference() = default;
    // The one log line of a bookmark that could not be made.
    static void logBookmarkProblem(const QString& operation, const QUrl& url, const Error& error);
    // This object in a QVariant holding a shared pointer of its own class.
    virtual QVariant typedVariant(std::shared_ptr<RepositoryReference> self) const = 0;
};

inline bool operator==(const RepositoryReference& a, const RepositoryReference& b)
{
    return a.isEqual(b);
}

inline size_t qHash(const RepositoryReference& reference, size_t seed = 0)
{
    return reference.hash() ^ seed;
}

Q_DECLARE_METATYPE(std::shared_ptr<RepositoryReference>)
