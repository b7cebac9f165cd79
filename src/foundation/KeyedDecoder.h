#pragma once

#include <QCborMap>
#include <QDateTime>
#include <QSet>
#include <QString>
#include <QVariant>
#include <optional>

// Hands an archived object's keyed fields to its class's decoder. Every decode names the
// classes it accepts; a field of another class raises a KSException, a missing field is none.
class KeyedDecoder
{
public:
    KeyedDecoder(QString className, QCborMap fields, bool secure, int depth);

    const QString& className() const { return m_className; }
    bool containsValue(const QString& key) const;

    std::optional<QString> decodeStringObject(const QString& key) const;
    std::optional<QDateTime> decodeDateObject(const QString& key) const;
    std::optional<QByteArray> decodeDataObject(const QString& key) const;
    // An invalid QVariant when the key is absent.
    QVariant decodeObject(const QString& key, const QSet<QString>& allowedClasses) const;
    bool decodeBool(const QString& key) const;
    qint64 decodeInt64(const QString& key) const;
    double decodeDouble(const QString& key) const;

private:
    QVariant decodeStrictly(const QString& key, const QString& className) const;

    QString m_className;
    QCborMap m_fields;
    bool m_secure;
    int m_depth;
};
