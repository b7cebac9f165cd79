#include "foundation/KeyedArchive.h"

#include "exception/KSException.h"
#include "foundation/KeyedDecoder.h"

#include <QCborArray>
#include <QCborMap>
#include <QCborStreamReader>
#include <QCborValue>
#include <QDateTime>
#include <QHash>
#include <QReadWriteLock>
#include <QTimeZone>
#include <limits>
#include <stdexcept>

namespace {
constexpr QCborTag kObjectTag = QCborTag(27);
constexpr QCborTag kPositiveBignumTag = QCborTag(2);
// Far beyond any real value, well below what the stack can take.
constexpr int kMaxDepth = 200;

struct ClassEntry
{
    QString name;
    QMetaType type;
    KeyedArchive::Encoder encode;
    KeyedArchive::Decoder decode;
};

class Registry
{
public:
    static Registry& instance()
    {
        static Registry registry;
        return registry;
    }

    void add(ClassEntry entry)
    {
        QWriteLocker locker(&m_lock);
        m_nameByType.insert(entry.type.id(), entry.name);
        m_byName.insert(entry.name, std::move(entry));
    }

    std::optional<ClassEntry> byName(const QString& name) const
    {
        QReadLocker locker(&m_lock);
        const auto it = m_byName.constFind(name);
        return it == m_byName.cend() ? std::nullopt : std::optional<ClassEntry>(*it);
    }

    std::optional<ClassEntry> byType(QMetaType type) const
    {
        QReadLocker locker(&m_lock);
        const auto name = m_nameByType.constFind(type.id());
        if (name == m_nameByType.cend()) {
            return std::nullopt;
        }
        return m_byName.value(*name);
    }

    void setSuperclass(const QString& name, const QString& superclass)
    {
        QWriteLocker locker(&m_lock);
        m_superclass.insert(name, superclass);
    }

    // Allowing a class allows its registered subclasses, as a reference typed by its base may
    // arrive as any of its kinds.
    bool isAllowed(const QString& name, const QSet<QString>& allowed) const
    {
        QReadLocker locker(&m_lock);
        QString current = name;
        for (int level = 0; level <= m_superclass.size() && !current.isEmpty(); ++level) {
            if (allowed.contains(current)) {
                return true;
            }
            current = m_superclass.value(current);
        }
        return false;
    }

private:
    mutable QReadWriteLock m_lock;
    QHash<QString, ClassEntry> m_byName;
    QHash<int, QString> m_nameByType;
    QHash<QString, QString> m_superclass;
};

[[noreturn]] void raiseCorrupt(const QString& reason)
{
    KSException::exceptionWithName(QStringLiteral("Archive"), reason).raise();
}

QCborValue encodeValue(const QVariant& value, int depth);

QCborValue encodeUnsigned(quint64 number)
{
    if (number <= quint64(std::numeric_limits<qint64>::max())) {
        return QCborValue(qint64(number));
    }
    QByteArray bigEndian(8, '\0');
    for (int i = 7; i >= 0; --i, number >>= 8) {
        bigEndian[i] = char(number & 0xff);
    }
    return QCborValue(kPositiveBignumTag, bigEndian);
}

QCborValue encodeObject(const QVariant& value, int depth)
{
    const auto entry = Registry::instance().byType(value.metaType());
    if (!entry) {
        throw std::logic_error(QStringLiteral("%1 cannot be encoded")
                                   .arg(QString::fromLatin1(value.typeName()))
                                   .toStdString());
    }
    const QVariantMap fields = entry->encode(value);
    QCborMap map;
    for (auto it = fields.cbegin(); it != fields.cend(); ++it) {
        map.insert(it.key(), encodeValue(it.value(), depth + 1));
    }
    return QCborValue(kObjectTag, QCborArray{entry->name, map});
}

QCborValue encodeValue(const QVariant& value, int depth)
{
    if (depth > kMaxDepth) {
        throw std::logic_error("value nested too deeply to be encoded");
    }
    if (!value.isValid()) {
        return QCborValue(QCborValue::Undefined);
    }
    switch (value.metaType().id()) {
    case QMetaType::Nullptr:
        return QCborValue(nullptr);
    case QMetaType::Bool:
        return QCborValue(value.toBool());
    case QMetaType::Int:
    case QMetaType::Long:
    case QMetaType::LongLong:
    case QMetaType::Short:
    case QMetaType::SChar:
    case QMetaType::Char:
        return QCborValue(value.toLongLong());
    case QMetaType::UInt:
    case QMetaType::ULong:
    case QMetaType::ULongLong:
    case QMetaType::UShort:
    case QMetaType::UChar:
        return encodeUnsigned(value.toULongLong());
    case QMetaType::Double:
    case QMetaType::Float:
        return QCborValue(value.toDouble());
    case QMetaType::QString:
        return QCborValue(value.toString());
    case QMetaType::QByteArray:
        return QCborValue(value.toByteArray());
    case QMetaType::QDateTime: {
        const QDateTime date = value.toDateTime();
        return date.isValid() ? QCborValue(date.toTimeZone(QTimeZone::utc()))
                              : QCborValue(QCborValue::Undefined);
    }
    case QMetaType::QVariantList:
    case QMetaType::QStringList: {
        QCborArray array;
        for (const QVariant& item : value.toList()) {
            array.append(encodeValue(item, depth + 1));
        }
        return array;
    }
    case QMetaType::QVariantMap:
    case QMetaType::QVariantHash: {
        const QVariantMap source = value.toMap();
        QCborMap map;
        for (auto it = source.cbegin(); it != source.cend(); ++it) {
            map.insert(it.key(), encodeValue(it.value(), depth + 1));
        }
        return map;
    }
    default:
        return encodeObject(value, depth);
    }
}

void checkAllowed(const QString& className, const QSet<QString>& allowed, bool secure)
{
    if (secure && !Registry::instance().isAllowed(className, allowed)) {
        KSException::exceptionWithName(
            QStringLiteral("Archive"),
            QStringLiteral("class %1 is not allowed here").arg(className))
            .setClass(className)
            .raise();
    }
}

QVariant decodeBignum(const QCborValue& content)
{
    const QByteArray bytes = content.toByteArray();
    if (!content.isByteArray() || bytes.size() > 8) {
        raiseCorrupt(QStringLiteral("unsupported big number in archive"));
    }
    quint64 number = 0;
    for (const char byte : bytes) {
        number = (number << 8) | quint8(byte);
    }
    return QVariant::fromValue(number);
}

QVariant decodeObject(const QCborValue& content, const QSet<QString>& allowed, bool secure,
                      int depth)
{
    const QCborArray pair = content.toArray();
    if (!content.isArray() || pair.size() != 2 || !pair.at(0).isString() || !pair.at(1).isMap()) {
        raiseCorrupt(QStringLiteral("malformed object in archive"));
    }
    const QString className = pair.at(0).toString();
    checkAllowed(className, allowed, secure);
    const auto entry = Registry::instance().byName(className);
    if (!entry) {
        KSException::exceptionWithName(
            QStringLiteral("Archive"),
            QStringLiteral("class %1 is not known to this process").arg(className))
            .setClass(className)
            .raise();
    }
    return entry->decode(KeyedDecoder(className, pair.at(1).toMap(), secure, depth + 1));
}
// Exactly one well-formed item, nothing after it.
QCborValue parseRoot(const QByteArray& data)
{
    QCborStreamReader reader(data);
    QCborValue root = QCborValue::fromCbor(reader);
    const QCborError error = reader.lastError();
    if (data.isEmpty() || error != QCborError::NoError || reader.currentOffset() != data.size()) {
        KSException::exceptionWithName(QStringLiteral("Archive"),
                                       QStringLiteral("data is not a keyed archive"))
            .setLength(quint64(data.size()))
            .setDetail(error == QCborError::NoError ? QStringLiteral("trailing bytes")
                                                    : error.toString(),
                       QStringLiteral("Error"))
            .raise();
    }
    return root;
}
} // namespace

void KeyedArchive::registerClass(const QString& name, QMetaType type, Encoder encode,
                                 Decoder decode)
{
    Registry::instance().add({name, type, std::move(encode), std::move(decode)});
}

void KeyedArchive::setSuperclass(const QString& name, const QString& superclass)
{
    Registry::instance().setSuperclass(name, superclass);
}

QSet<QString> KeyedArchive::propertyListClasses()
{
    return {kString, kData, kDate, kNumber, kArray, kDictionary, kNull};
}

QString KeyedArchive::classNameOf(const QVariant& value)
{
    if (QString kind = ValueDescription::propertyListKind(value); !kind.isEmpty()) {
        return kind;
    }
    const auto entry = Registry::instance().byType(value.metaType());
    return entry ? entry->name : QString();
}

bool KeyedArchive::isArchivable(const QVariant& value)
{
    return !classNameOf(value).isEmpty();
}

bool KeyedArchive::isRegisteredClass(const QString& name)
{
    return Registry::instance().byName(name).has_value();
}

QByteArray KeyedArchive::archivedData(const QVariant& root)
{
    return encodeValue(root, 0).toCbor();
}

QVariant KeyedArchive::unarchivedObject(const QByteArray& data, const QSet<QString>& allowed)
{
    return decodeValue(parseRoot(data), allowed, true, 0);
}

QVariant KeyedArchive::unarchiveObjectWithData(const QByteArray& data)
{
    return decodeValue(parseRoot(data), {}, false, 0);
}

bool KeyedArchive::isArchivedNil(const QByteArray& data)
{
    return data == QCborValue(QCborValue::Null).toCbor();
}

QVariant KeyedArchive::unarchiveObjectWithData(const QByteArray& data, const QString& unknownRootAs)
{
    QCborValue root = parseRoot(data);
    if (root.isTag() && root.tag() == kObjectTag) {
        QCborArray pair = root.taggedValue().toArray();
        if (pair.size() == 2 && pair.at(0).isString() &&
            !Registry::instance().byName(pair.at(0).toString())) {
            pair[0] = unknownRootAs;
            root = QCborValue(kObjectTag, pair);
        }
    }
    return decodeValue(root, {}, false, 0);
}

QVariant KeyedArchive::decodeValue(const QCborValue& value, const QSet<QString>& allowed,
                                   bool secure, int depth)
{
    if (depth > kMaxDepth) {
        raiseCorrupt(QStringLiteral("archive nested too deeply"));
    }
    switch (value.type()) {
    case QCborValue::Undefined:
        return {};
    case QCborValue::Null:
        checkAllowed(kNull, allowed, secure);
        return QVariant::fromValue(nullptr);
    case QCborValue::False:
    case QCborValue::True:
        checkAllowed(kNumber, allowed, secure);
        return value.toBool();
    case QCborValue::Integer:
        checkAllowed(kNumber, allowed, secure);
        return value.toInteger();
    case QCborValue::Double:
        checkAllowed(kNumber, allowed, secure);
        return value.toDouble();
    case QCborValue::String:
        checkAllowed(kString, allowed, secure);
        return value.toString();
    case QCborValue::ByteArray:
        checkAllowed(kData, allowed, secure);
        return value.toByteArray();
    case QCborValue::DateTime:
        checkAllowed(kDate, allowed, secure);
        return value.toDateTime();
    case QCborValue::Array: {
        checkAllowed(kArray, allowed, secure);
        QVariantList list;
        for (const QCborValue& item : value.toArray()) {
            list.append(decodeValue(item, allowed, secure, depth + 1));
        }
        return list;
    }
    case QCborValue::Map: {
        checkAllowed(kDictionary, allowed, secure);
        QVariantMap map;
        const QCborMap source = value.toMap();
        for (auto it = source.cbegin(); it != source.cend(); ++it) {
            if (!it.key().isString()) {
                raiseCorrupt(QStringLiteral("dictionary key in archive is not a string"));
            }
            map.insert(it.key().toString(), decodeValue(it.value(), allowed, secure, depth + 1));
        }
        return map;
    }
    case QCborValue::Tag:
        if (value.tag() == kObjectTag) {
            return decodeObject(value.taggedValue(), allowed, secure, depth);
        }
        if (value.tag() == kPositiveBignumTag) {
            checkAllowed(kNumber, allowed, secure);
            return decodeBignum(value.taggedValue());
        }
        break;
    default:
        break;
    }
    raiseCorrupt(QStringLiteral("unexpected item in archive"));
}
