#include "tracking/CommandListenerEndpoint.h"

#include "CommandListenerMessagingAdaptor.h"
#include "errors/ExceptionArchive.h"
#include "exception/KSException.h"
#include "foundation/MainQueue.h"
#include "logging/Logger.h"
#include "messaging/SerializableDictionaryAdditions.h"
#include "tracking/CommandListener.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <optional>

namespace {
struct DelayedReply
{
    QDBusConnection bus;
    QDBusMessage reply;
};

// Main thread. No data, or data holding something other than an exception, is success; data
// that cannot be read at all still ends the command, as an internal error, so that a garbled
// stop never leaves a pane running.
CommandListener::ExceptionPtr exceptionFromStopData(const QByteArray& data)
{
    try {
        return ExceptionArchive::exceptionFromData(data);
    } catch (const KSException& decodeFailure) {
        KSException failure(QStringLiteral("Bug"),
                            QStringLiteral("command stopped with undecodable exception data"));
        failure.setCause(decodeFailure);
        Logger::log(9, nullptr, QStringLiteral("undecodable exception data from command"),
                    &failure);
        return std::make_shared<KSException>(failure);
    }
}
} // namespace

CommandListenerEndpoint::CommandListenerEndpoint(std::weak_ptr<CommandListener> listener,
                                                 QObject* parent)
    : ServedObject(parent)
    , m_listener(std::move(listener))
{
    // Its messages are handled on the main thread, so a barrier must queue behind them there.
    setAnswersBarrierOnMainThread(true);
    new CommandListenerMessagingAdaptor(this);
}

void CommandListenerEndpoint::commandStarted()
{
    MainQueue::dispatchMainAsync([listener = m_listener] {
        if (const auto alive = listener.lock()) {
            alive->commandDidStart();
        }
    });
}

void CommandListenerEndpoint::progressUpdate(const QByteArray& dictionary)
{
    QVariantMap progress;
    try {
        progress = decodeProgress(dictionary);
    } catch (const KSException& failure) {
        Logger::log(4, nullptr, QStringLiteral("undecodable progress update from command"),
                    &failure);
        return;
    }
    MainQueue::dispatchMainAsync([listener = m_listener, progress] {
        if (const auto alive = listener.lock()) {
            alive->commandProgressDidUpdate(progress);
        }
    });
}

void CommandListenerEndpoint::commandStoppedWithExceptionData(const QByteArray& data)
{
    // The answer waits for the main thread; this thread goes on serving.
    std::optional<DelayedReply> pending;
    if (calledFromDBus() && message().isReplyRequired()) {
        setDelayedReply(true);
        pending = DelayedReply{connection(), message().createReply()};
    }
    MainQueue::dispatchMainAsync([listener = m_listener, data, pending] {
        if (const auto alive = listener.lock()) {
            alive->commandDidStopWithException(exceptionFromStopData(data));
        }
        if (pending) {
            pending->bus.send(pending->reply);
        }
    });
}

QVariantMap CommandListenerEndpoint::decodeProgress(const QByteArray& dictionary)
{
    return SerializableDictionaryAdditions::dictionaryFromArchive(dictionary);
}
