#pragma once

#include <QByteArray>
#include <QString>
#include <QVariant>
#include <QVariantMap>
#include <optional>

// Property-list values as QVariants: QString, QByteArray, QDateTime (UTC), bool, signed and
// unsigned 64-bit integers, double, QVariantList and QVariantMap, nested at will. Files are
// written as XML and read as XML or binary. Nothing here throws: bad input gives an error text.
class PropertyList
{
public:
    enum class Kind
    {
        None,
        String,
        Data,
        Date,
        Boolean,
        Integer,
        Real,
        Array,
        Dictionary
    };

    struct Parsed
    {
        QVariant value;
        QString error;
        bool isValid() const { return error.isEmpty(); }
    };

    struct Serialized
    {
        QByteArray data;
        QString error;
        bool isValid() const { return error.isEmpty(); }
    };

    // None for an absent value and for anything a property list cannot hold (the null object
    // included).
    static Kind kindOf(const QVariant& value);
    static bool isPropertyList(const QVariant& value);
    // Same kind and equal value, recursively; two absent values are equal too.
    static bool isEqual(const QVariant& left, const QVariant& right);

    // Numbers, booleans and strings that read as one convert; anything else gives nothing.
    static std::optional<bool> boolValue(const QVariant& value);
    static std::optional<qint64> integerValue(const QVariant& value);
    static std::optional<double> doubleValue(const QVariant& value);

    static Serialized xmlData(const QVariant& root);
    static bool isBinary(const QByteArray& data);
    static Parsed fromData(const QByteArray& data);
    // The complete top-level key/value pairs in front of the damage of an XML dictionary that
    // does not parse; empty when nothing before the damage is readable.
    static QVariantMap salvagedDictionary(const QByteArray& data);
};
