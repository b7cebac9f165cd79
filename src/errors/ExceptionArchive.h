#pragma once

#include <QByteArray>
#include <memory>

class Exception;

// The wire form of exceptions and platform errors: a keyed archive whose root object is the
// exception. Kept apart from the exception value so that the archive itself can raise one.
class ExceptionArchive
{
public:
    static QByteArray dataForException(const Exception& exception);
    // Empty data gives none; bytes that are not an archive raise a KSException; an archive
    // whose root object is not an exception gives none and a log line.
    static std::unique_ptr<Exception> exceptionFromData(const QByteArray& data);

    // Makes "Exception", "KSException" and "Error" known to the keyed archive. Idempotent;
    // also done as soon as this file is linked in.
    static void registerArchivableClasses();
};
