#pragma once

#include "exception/ValueDescription.h"

#include <QByteArray>
#include <QMetaType>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <functional>

class KeyedDecoder;

// The one codec for values that cross a process boundary or go into a file. Property-list
// values take their natural CBOR forms (a date is tag 0 text, the null object is CBOR null);
// an object of a registered class is tag 27 around [class name, map of its keyed fields].
// Decoding is restricted to a set of allowed class names, so a peer cannot make this process
// build an object it did not ask for.
class KeyedArchive
{
public:
    // Names of the property-list kinds, for allowed-class sets.
    static inline const QString& kString = ValueDescription::kString;
    static inline const QString& kData = ValueDescription::kData;
    static inline const QString& kDate = ValueDescription::kDate;
    static inline const QString& kNumber = ValueDescription::kNumber;
    static inline const QString& kArray = ValueDescription::kArray;
    static inline const QString& kDictionary = ValueDescription::kDictionary;
    static inline const QString& kNull = ValueDescription::kNull;

    using Encoder = std::function<QVariantMap(const QVariant& object)>;
    using Decoder = std::function<QVariant(const KeyedDecoder& coder)>;

    // Registers an archivable class under its archive name. Registering a name twice keeps
    // the last registration.
    static void registerClass(const QString& name, QMetaType type, Encoder encode, Decoder decode);
    template <typename T>
    static void registerClass(const QString& name, Encoder encode, Decoder decode)
    {
        registerClass(name, QMetaType::fromType<T>(), std::move(encode), std::move(decode));
    }

    // Where `superclass` is allowed, `name` is allowed too.
    static void setSuperclass(const QString& name, const QString& superclass);

    static QSet<QString> propertyListClasses();
    // The archive name of the value's class (a property-list kind or a registered class), or
    // an empty string when the value cannot be archived.
    static QString classNameOf(const QVariant& value);
    static bool isArchivable(const QVariant& value);
    static bool isRegisteredClass(const QString& name);

    // Throws std::logic_error when some value inside cannot be encoded: that is a programming
    // error, never a condition of the input.
    static QByteArray archivedData(const QVariant& root);
    // Decodes allowing only the given classes (property-list kinds included by name).
    // Bytes that are not one well-formed archive, a class not allowed or not known to this
    // process: a KSException.
    static QVariant unarchivedObject(const QByteArray& data, const QSet<QString>& allowed);
    // Decodes allowing every registered class and every property-list kind.
    static QVariant unarchiveObjectWithData(const QByteArray& data);
    // Whether the bytes are an archive of nil, without decoding anything else.
    static bool isArchivedNil(const QByteArray& data);
    // The same, except that a root object of a class this process does not know is decoded as
    // the given class: a peer's subclass still yields what its base class holds.
    static QVariant unarchiveObjectWithData(const QByteArray& data, const QString& unknownRootAs);

private:
    friend class KeyedDecoder;
    static QVariant decodeValue(const class QCborValue& value, const QSet<QString>& allowed,
                                bool secure, int depth);
};
