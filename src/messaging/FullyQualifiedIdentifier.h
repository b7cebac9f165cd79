#pragma once

#include "platform/linux/MountTable.h"

#include <QFileInfo>
#include <QHash>
#include <QMetaType>
#include <QString>
#include <QVariant>
#include <QVariantList>
#include <memory>
#include <optional>

class ClientIdentifier;
class FullyQualifiedIdentifier;
// Identifiers are shared and never change, so a chain is a list of shared parents and
// "the same parent object" is the same pointer.
using FQIdentifier = std::shared_ptr<const FullyQualifiedIdentifier>;

// Names an item across processes by a chain of node identifiers, root first: the client, the
// volume, then one identifier per level below the volume's mount point (strings, numbers or
// layer nodes). Immutable.
class FullyQualifiedIdentifier : public std::enable_shared_from_this<FullyQualifiedIdentifier>
{
    struct Token
    {
        explicit Token() = default;
    };

public:
    // Only for the factories below; the token keeps every identifier owned by a handle.
    FullyQualifiedIdentifier(Token, QVariant identifier, FQIdentifier parent);
    FullyQualifiedIdentifier(const FullyQualifiedIdentifier&) = delete;
    FullyQualifiedIdentifier& operator=(const FullyQualifiedIdentifier&) = delete;

    static FQIdentifier withIdentifier(const QVariant& identifier, const FQIdentifier& parent = {});
    // A chain of the array's elements, root first; none for an empty array.
    static FQIdentifier withIdentifierArray(const QVariantList& identifiers);
    // A chain of the first `length` elements; a length beyond the array is a programming error
    // (std::out_of_range).
    static FQIdentifier withIdentifierArray(const QVariantList& identifiers, qsizetype length);
    // The client, the volume that holds the path, then the path's components below the
    // volume's mount point; none when no mount holds the path.
    static FQIdentifier fullyQualifiedIdentifierWithPath(const QString& path,
                                                         const ClientIdentifier& client);
    // The same for many paths: the mount table read once, each mount's volume named once.
    class PathResolver
    {
    public:
        explicit PathResolver(MountTable table = MountTable::current());
        FQIdentifier identifierWithPath(const QString& path, const ClientIdentifier& client);

    private:
        MountTable m_table;
        QHash<QString, QVariant> m_volumes; // by mount point
    };

    const QVariant& nodeIdentifier() const { return m_identifier; }
    const FQIdentifier& parent() const { return m_parent; }
    quint64 length() const { return m_length; }
    QVariantList identifiers() const;
    const QVariant& leafIdentifier() const { return m_identifier; }
    QString nameOfLeafIdentifier() const;

    FQIdentifier fullyQualifiedIdentifierOfParent() const { return m_parent; }
    FQIdentifier fullyQualifiedIdentifierOfVolume() const
    {
        return fullyQualifiedIdentifierOfLength(2);
    }
    // The ancestor of that length (this one for its own length); none for 0 or a longer one.
    FQIdentifier fullyQualifiedIdentifierOfLength(quint64 length) const;
    FQIdentifier fullyQualifiedIdentifierByAppendingIdentifier(const QVariant& identifier) const;

    // Whether this is a strict ancestor of the other.
    bool contains(const FQIdentifier& other) const;
    FQIdentifier closestAncestorWith(const FQIdentifier& other) const;

    bool isEqual(const FullyQualifiedIdentifier& other) const;
    bool isEqual(const FQIdentifier& other) const { return other && isEqual(*other); }
    // Only the leaf and its parent's node are mixed in: cheap, and enough to spread siblings
    // and cousins.
    size_t hash() const;

    // "client:volume/dir/leaf", by names where the levels have them.
    QString compositePath() const;
    QString description() const;

    // The mount point where the volume is online now for the volume level, nothing for the
    // client, the level's own name below.
    QString fileSystemRepresentation() const;
    QString fileSystemPath() const;
    // The resolved file for an absolute file-system path; none while the volume is offline.
    std::optional<QFileInfo> fileInfo() const;

    static void registerArchivableClass();

private:
    QVariant m_identifier;
    FQIdentifier m_parent;
    quint64 m_length;
};

inline bool operator==(const FullyQualifiedIdentifier& a, const FullyQualifiedIdentifier& b)
{
    return a.isEqual(b);
}

inline size_t qHash(const FullyQualifiedIdentifier& identifier, size_t seed = 0)
{
    return identifier.hash() ^ seed;
}

Q_DECLARE_METATYPE(FQIdentifier)
