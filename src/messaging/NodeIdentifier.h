#pragma once

#include <QString>
#include <QVariant>

// Equality, hash and names for the values that name one level of a fully qualified
// identifier: a ClientIdentifier, a VolumeIdentifier, a string, a number, or a class
// registered later (layer nodes) that compares with operator== and describes itself
// through a converter to QString.
class NodeIdentifier
{
public:
    // Numbers compare by value whatever their C++ kind, because an archive brings 5u back as
    // a signed integer and 5.0 stays a double. A string never equals a number.
    static bool isEqual(const QVariant& a, const QVariant& b);
    // Consistent with isEqual, except for a wildcard ClientIdentifier (see there).
    static size_t hash(const QVariant& node);
    // The client's name, the text of a string, otherwise the description.
    static QString name(const QVariant& node);
    static QString description(const QVariant& node);
};
