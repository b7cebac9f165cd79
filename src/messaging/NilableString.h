#pragma once

#include <QByteArray>
#include <QSet>
#include <QString>

// A string that may be missing travels as a keyed archive (`ay`): the text, or CBOR null for
// nil, so that nil and "" stay apart on the wire. A null QString is nil on this side.
class NilableString
{
public:
    static QByteArray archived(const QString& text);
    // A KSException named "Archive" when the bytes are not an archive of a string or of null.
    static QString unarchived(const QByteArray& data);
    // The classes such an argument may hold: String and Null.
    static QSet<QString> allowedClasses();
};
