#pragma once

#include <QString>

class Exception;

// Lines that code below the logger must write (a data value that is not an archive, a
// persisted failure) go through here. Until the logger installs itself, they go to stderr.
class LogHook
{
public:
    class Sink
    {
    public:
        virtual ~Sink() = default;
        virtual void logMessage(int logClass, const QString& message) = 0;
        virtual void logPlaceholder(int logClass, const QString& text, const QString& key) = 0;
        virtual void logException(int logClass, const Exception& exception) = 0;
    };

    // The sink must outlive every later call; nullptr restores stderr.
    static void install(Sink* sink);
    static void logMessage(int logClass, const QString& message);
    static void logPlaceholder(int logClass, const QString& text, const QString& key);
    static void logException(int logClass, const Exception& exception);
};
