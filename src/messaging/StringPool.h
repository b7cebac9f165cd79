#pragma once

#include "foundation/SpinLock.h"

#include <QHash>
#include <QString>

// Keeps strings alive for the life of the process and hands back the pooled one. Strings are
// told apart by identity (the shared text they point at), not by their text: two separately
// made strings with equal text both stay.
class StringPool
{
public:
    static StringPool& sharedPool();
    static QString stringWithString(const QString& string);
    static QString stringWithUTF8Bytes(const char* bytes, qsizetype length);

    StringPool();
    StringPool(const StringPool&) = delete;
    StringPool& operator=(const StringPool&) = delete;

    QString insertString(const QString& string);
    QString stringWithBytes(const char* bytes, qsizetype length);
    qsizetype count() const;

private:
    QHash<const void*, QString> m_strings;
    mutable SpinLock m_spinLock;
};
