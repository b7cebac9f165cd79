#include "exception/LogHook.h"

#include "exception/Exception.h"

#include <atomic>
#include <cstdio>

namespace {
std::atomic<LogHook::Sink*> s_sink{nullptr};

void writeToStderr(int logClass, const QString& text)
{
    std::fprintf(stderr, "[%d] %s\n", logClass, text.toLocal8Bit().constData());
}
} // namespace

void LogHook::install(Sink* sink)
{
    s_sink.store(sink);
}

void LogHook::logMessage(int logClass, const QString& message)
{
    if (Sink* sink = s_sink.load()) {
        sink->logMessage(logClass, message);
    } else {
        writeToStderr(logClass, message);
    }
}

void LogHook::logPlaceholder(int logClass, const QString& text, const QString& key)
{
    if (Sink* sink = s_sink.load()) {
        sink->logPlaceholder(logClass, text, key);
    } else {
        writeToStderr(logClass, QStringLiteral("%1: %2").arg(key, text));
    }
}

void LogHook::logException(int logClass, const Exception& exception)
{
    if (Sink* sink = s_sink.load()) {
        sink->logException(logClass, exception);
    } else {
        writeToStderr(logClass, exception.description());
    }
}
