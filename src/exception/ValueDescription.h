#pragma once

#include <QString>
#include <QVariant>

// The text by which a value is shown in exception descriptions and log lines. Classes of
// the product make themselves describable by registering a converter to QString.
class ValueDescription
{
public:
    // Names of the property-list kinds, as archives and exception details name them.
    static inline const QString kString = QStringLiteral("String");
    static inline const QString kData = QStringLiteral("Data");
    static inline const QString kDate = QStringLiteral("Date");
    static inline const QString kNumber = QStringLiteral("Number");
    static inline const QString kArray = QStringLiteral("Array");
    static inline const QString kDictionary = QStringLiteral("Dictionary");
    static inline const QString kNull = QStringLiteral("Null");

    static QString describe(const QVariant& value);
    // The property-list kind of the value, or an empty string for any other class.
    static QString propertyListKind(const QVariant& value);
    // The kind for a property-list value, otherwise the value's own type name.
    static QString classNameOf(const QVariant& value);

private:
    static QString describe(const QVariant& value, int indent);
};
