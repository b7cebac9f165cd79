#pragma once

#include <QDataStream>
#include <QMetaType>
#include <QString>

// Names the owner of a set of captures: a name for people and a serial number for matching.
// Immutable. The number 0xFFFFFFFF is a wildcard that matches any owner.
class ClientIdentifier
{
public:
    static constexpr quint32 kWildcardNumber = 0xFFFFFFFFU;

    ClientIdentifier() = default;
    ClientIdentifier(QString name, quint32 serialNumber);

    const QString& name() const { return m_name; }
    quint32 serialNumber() const { return m_number; }
    bool isWildcard() const { return m_number == kWildcardNumber; }

    // Only the numbers decide, and a wildcard matches any number, so equality is not
    // transitive: "A"#5 and "B"#6 both equal "C"#wildcard without equalling each other.
    bool isEqual(const ClientIdentifier& other) const;
    // A wildcard hashes by its name, so it only finds itself in a hashed container.
    size_t hash() const;
    QString description() const;

    static void registerArchivableClass();

    // The compact form inside archive data: a value list of the name as a string value (a
    // type byte, then the UTF-8 bytes with their length) and the number as 4 bytes, big-endian.
    void assembleContents(QDataStream& out) const;
    // The bytes assembleContents writes, known before writing.
    qsizetype sizeEstimate() const;
    // Bytes that are not that form, or the number 0 that no owner has: a KSException
    // named "Archive".
    static ClientIdentifier readContents(QDataStream& in);

private:
    QString m_name;
    quint32 m_number = 0;
};

inline bool operator==(const ClientIdentifier& a, const ClientIdentifier& b)
{
    return a.isEqual(b);
}

inline size_t qHash(const ClientIdentifier& identifier, size_t seed = 0)
{
    return identifier.hash() ^ seed;
}

Q_DECLARE_METATYPE(ClientIdentifier)
