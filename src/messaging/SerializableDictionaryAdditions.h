#pragma once

#include <QVariantList>
#include <QVariantMap>

// Turns dictionaries with arbitrary values into ones that can cross a process boundary, and
// back. Values other than strings, dates and numbers travel as keyed archives.
class SerializableDictionaryAdditions
{
public:
    // Non-property-list values become their description; arrays and dictionaries are kept
    // as they are, without descending into them.
    static QVariantMap dictionaryStringifyingNonSerializableObjects(const QVariantMap& dictionary);

    // Throws std::logic_error for a value that cannot be archived: a programming error.
    static QVariantMap dictionaryEncodingNonSerializableObjects(const QVariantMap& dictionary);
    static QVariantList arrayEncodingNonSerializableObjects(const QVariantList& array);

    // Never fails as a whole: data that is not an archive stays as it is, with a log line.
    static QVariantMap dictionaryDecodingSerializableObjects(const QVariantMap& dictionary);
    static QVariantList arrayDecodingSerializedObjects(const QVariantList& array);

    // A dictionary as it crosses the wire (user info, progress updates, command info): a keyed
    // archive of its encoded form; an empty dictionary is no bytes at all.
    static QByteArray archivedDictionary(const QVariantMap& dictionary);
    // The inverse; no bytes give an empty dictionary. Bytes that are not an archive of a
    // dictionary raise a KSException.
    static QVariantMap dictionaryFromArchive(const QByteArray& data);
};
