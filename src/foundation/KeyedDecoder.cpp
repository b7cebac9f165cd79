#include "foundation/KeyedDecoder.h"

#include "foundation/KeyedArchive.h"

#include <QCborValue>

KeyedDecoder::KeyedDecoder(QString className, QCborMap fields, bool secure, int depth)
    : m_className(std::move(className))
    , m_fields(std::move(fields))
    , m_secure(secure)
    , m_depth(depth)
{}

bool KeyedDecoder::containsValue(const QString& key) const
{
    return m_fields.contains(key);
}

std::optional<QString> KeyedDecoder::decodeStringObject(const QString& key) const
{
    const QVariant value = decodeStrictly(key, KeyedArchive::kString);
    return value.isValid() ? std::optional(value.toString()) : std::nullopt;
}

std::optional<QDateTime> KeyedDecoder::decodeDateObject(const QString& key) const
{
    const QVariant value = decodeStrictly(key, KeyedArchive::kDate);
    return value.isValid() ? std::optional(value.toDateTime()) : std::nullopt;
}

std::optional<QByteArray> KeyedDecoder::decodeDataObject(const QString& key) const
{
    const QVariant value = decodeStrictly(key, KeyedArchive::kData);
    return value.isValid() ? std::optional(value.toByteArray()) : std::nullopt;
}

QVariant KeyedDecoder::decodeObject(const QString& key, const QSet<QString>& allowedClasses) const
{
    if (!m_fields.contains(key)) {
        return {};
    }
    return KeyedArchive::decodeValue(m_fields.value(key), allowedClasses, m_secure, m_depth);
}

// The typed decodes hold to their class even in an archive read without restriction: a
// field of the wrong kind is a malformed archive, never a value to coerce.
QVariant KeyedDecoder::decodeStrictly(const QString& key, const QString& className) const
{
    if (!m_fields.contains(key)) {
        return {};
    }
    return KeyedArchive::decodeValue(m_fields.value(key), {className}, true, m_depth);
}

bool KeyedDecoder::decodeBool(const QString& key) const
{
    return m_fields.value(key).toBool();
}

qint64 KeyedDecoder::decodeInt64(const QString& key) const
{
    return m_fields.value(key).toInteger();
}

double KeyedDecoder::decodeDouble(const QString& key) const
{
    return m_fields.value(key).toDouble();
}
