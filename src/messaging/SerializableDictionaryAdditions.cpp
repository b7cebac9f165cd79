#include "messaging/SerializableDictionaryAdditions.h"

#include "errors/ExceptionArchive.h"
#include "exception/KSException.h"
#include "exception/LogHook.h"
#include "exception/ValueDescription.h"
#include "foundation/KeyedArchive.h"

#include <stdexcept>

namespace {
enum class Kind
{
    Container,
    Plain,
    Data,
    Other
};

Kind kindOf(const QVariant& value)
{
    const QString className = KeyedArchive::classNameOf(value);
    if (className == KeyedArchive::kArray || className == KeyedArchive::kDictionary) {
        return Kind::Container;
    }
    if (className == KeyedArchive::kString || className == KeyedArchive::kDate ||
        className == KeyedArchive::kNumber) {
        return Kind::Plain;
    }
    return className == KeyedArchive::kData ? Kind::Data : Kind::Other;
}

bool isArray(const QVariant& value)
{
    return KeyedArchive::classNameOf(value) == KeyedArchive::kArray;
}

QVariant encodeValue(const QVariant& value)
{
    if (isArray(value)) {
        return SerializableDictionaryAdditions::arrayEncodingNonSerializableObjects(value.toList());
    }
    switch (kindOf(value)) {
    case Kind::Container:
        return SerializableDictionaryAdditions::dictionaryEncodingNonSerializableObjects(
            value.toMap());
    case Kind::Plain:
        return value;
    case Kind::Data:
    case Kind::Other:
        break;
    }
    if (!value.isValid()) {
        return value;
    }
    // Exceptions and errors travel inside dictionaries more than anything else.
    ExceptionArchive::registerArchivableClasses();
    if (!KeyedArchive::isArchivable(value)) {
        throw std::logic_error(QStringLiteral("%1 cannot be encoded")
                                   .arg(QString::fromLatin1(value.typeName()))
                                   .toStdString());
    }
    return KeyedArchive::archivedData(value);
}

QString reasonOf(const std::exception& failure)
{
    if (const auto* exception = dynamic_cast<const Exception*>(&failure)) {
        return exception->description();
    }
    return QString::fromLocal8Bit(failure.what());
}

// `where` completes the log line: "for key '...'" or "at index ...".
QVariant decodeValue(const QVariant& value, const char* method, const QString& where)
{
    if (isArray(value)) {
        return SerializableDictionaryAdditions::arrayDecodingSerializedObjects(value.toList());
    }
    const Kind kind = kindOf(value);
    if (kind == Kind::Container) {
        return SerializableDictionaryAdditions::dictionaryDecodingSerializableObjects(
            value.toMap());
    }
    if (kind != Kind::Data) {
        return value;
    }
    const QByteArray data = value.toByteArray();
    ExceptionArchive::registerArchivableClasses();
    try {
        return KeyedArchive::unarchiveObjectWithData(data);
    } catch (const std::exception& failure) {
        LogHook::logMessage(9, QStringLiteral("%1 unable to decode data object of length %2 %3, "
                                              "reason=%4")
                                   .arg(QString::fromLatin1(method))
                                   .arg(data.size())
                                   .arg(where, reasonOf(failure)));
        return value;
    }
}
} // namespace

QVariantMap SerializableDictionaryAdditions::dictionaryStringifyingNonSerializableObjects(
    const QVariantMap& dictionary)
{
    QVariantMap result;
    for (auto it = dictionary.cbegin(); it != dictionary.cend(); ++it) {
        const QVariant& value = it.value();
        if (!value.isValid()) {
            continue;
        }
        result.insert(it.key(),
                      kindOf(value) == Kind::Other ? ValueDescription::describe(value) : value);
    }
    return result;
}

QVariantMap SerializableDictionaryAdditions::dictionaryEncodingNonSerializableObjects(
    const QVariantMap& dictionary)
{
    QVariantMap result;
    for (auto it = dictionary.cbegin(); it != dictionary.cend(); ++it) {
        result.insert(it.key(), encodeValue(it.value()));
    }
    return result;
}

QVariantList
SerializableDictionaryAdditions::arrayEncodingNonSerializableObjects(const QVariantList& array)
{
    QVariantList result;
    result.reserve(array.size());
    for (const QVariant& value : array) {
        result.append(encodeValue(value));
    }
    return result;
}

QVariantMap SerializableDictionaryAdditions::dictionaryDecodingSerializableObjects(
    const QVariantMap& dictionary)
{
    QVariantMap result;
    for (auto it = dictionary.cbegin(); it != dictionary.cend(); ++it) {
        result.insert(it.key(), decodeValue(it.value(),
                                            "-[NSDictionary(SerializableDictionaryAdditions) "
                                            "dictionaryDecodingSerializableObjects]",
                                            QStringLiteral("for key '%1'").arg(it.key())));
    }
    return result;
}

QVariantList
SerializableDictionaryAdditions::arrayDecodingSerializedObjects(const QVariantList& array)
{
    QVariantList result;
    result.reserve(array.size());
    for (qsizetype i = 0; i < array.size(); ++i) {
        result.append(decodeValue(
            array.at(i),
            "-[NSArray(SerializableDictionaryAdditions) arrayDecodingSerializedObjects]",
            QStringLiteral("at index %1").arg(i)));
    }
    return result;
}

QByteArray SerializableDictionaryAdditions::archivedDictionary(const QVariantMap& dictionary)
{
    if (dictionary.isEmpty()) {
        return {};
    }
    return KeyedArchive::archivedData(dictionaryEncodingNonSerializableObjects(dictionary));
}

QVariantMap SerializableDictionaryAdditions::dictionaryFromArchive(const QByteArray& data)
{
    if (data.isEmpty()) {
        return {};
    }
    const QVariant decoded =
        KeyedArchive::unarchivedObject(data, KeyedArchive::propertyListClasses());
    if (decoded.metaType().id() != QMetaType::QVariantMap) {
        KSException(QStringLiteral("IPC"), QStringLiteral("archive is not a dictionary"))
            .setDetail(KeyedArchive::classNameOf(decoded), QStringLiteral("Class"))
            .raise();
    }
    return dictionaryDecodingSerializableObjects(decoded.toMap());
}
