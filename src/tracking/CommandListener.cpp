#include "tracking/CommandListener.h"

#include "foundation/MainQueue.h"
#include "logging/Logger.h"
#include "messaging/AnonymousListener.h"
#include "tracking/CommandListenerEndpoint.h"
#include "tracking/CommandListenerService.h"

#include <QMutex>
#include <QThread>

namespace {
struct ClockState
{
    QMutex mutex;
    CommandListener::Clock clock;
};

ClockState& clockState()
{
    static auto* state = new ClockState; // read by listeners that outlive static destructors
    return *state;
}

void assertMainThread()
{
    Q_ASSERT(MainQueue::isMainThread());
}
} // namespace

CommandListener::CommandListener(QObject* parent)
    : QObject(parent)
{}

CommandListener::~CommandListener() = default;

void CommandListener::setClock(Clock clock)
{
    QMutexLocker locker(&clockState().mutex);
    clockState().clock = std::move(clock);
}

QDateTime CommandListener::now()
{
    Clock clock;
    {
        QMutexLocker locker(&clockState().mutex);
        clock = clockState().clock;
    }
    return clock ? clock() : QDateTime::currentDateTimeUtc();
}

double CommandListener::runTime() const
{
    if (!hasStarted()) {
        return 0.0;
    }
    const QDateTime end = hasStopped() ? m_stopTime : now();
    return double(m_startTime.msecsTo(end)) / 1000.0;
}

quint32 CommandListener::roles() const
{
    return kListenerRole;
}

Endpoint CommandListener::endpoint()
{
    assertMainThread();
    // Without an owning std::shared_ptr the served object could not find this listener.
    Q_ASSERT(!weak_from_this().expired());
    if (!m_endpointListener) {
        // The served object holds this listener weakly: a message that arrives after the
        // listener has gone is dropped on the main thread.
        auto listener =
            std::make_unique<AnonymousListener>(new CommandListenerEndpoint(weak_from_this()));
        if (!listener->resume()) {
            Logger::log(4, QStringLiteral("%1 could not serve the listener at %2")
                               .arg(QStringLiteral("-[CommandListener endpoint]"),
                                    listener->endpoint().description()));
            return {};
        }
        m_endpointListener = std::move(listener);
    }
    return m_endpointListener->endpoint();
}

void CommandListener::commandDidStart()
{
    assertMainThread();
    m_commandException.reset();
    if (!hasStarted()) {
        const bool wasRunning = commandIsRunning();
        m_startTime = now();
        Q_EMIT startedChanged(true);
        Q_EMIT startTimeChanged(m_startTime);
        // A start that arrives after the stop does not make the command run.
        if (wasRunning != commandIsRunning()) {
            Q_EMIT commandIsRunningChanged(commandIsRunning());
        }
    }
    if (m_listenerService != nullptr) {
        m_listenerService->didUpdateStatusForListener(this);
    }
}

void CommandListener::commandProgressDidUpdate(const QVariantMap& /*dictionary*/)
{
    assertMainThread();
    if (m_listenerService != nullptr) {
        m_listenerService->didUpdateStatusForListener(this);
    }
}

void CommandListener::commandDidStopWithException(const ExceptionPtr& exception)
{
    assertMainThread();
    if (!hasStopped()) {
        const bool wasRunning = commandIsRunning();
        m_stopTime = now();
        Q_EMIT stoppedChanged(true);
        Q_EMIT stopTimeChanged(m_stopTime);
        if (wasRunning != commandIsRunning()) {
            Q_EMIT commandIsRunningChanged(commandIsRunning());
        }
    }
    // A second stop replaces the exception of the first, success included.
    m_commandException = exception;
    if (exception) {
        Logger::log(9, nullptr, QStringLiteral("command returned exception"), exception.get());
    }
    stopListening();
}

// A running command whose connection is gone will never send its stop: it is removed now, as a
// cull would remove it later. Before the start the cull stays in charge; after the stop the
// listener has already gone.
void CommandListener::connectionToCommandWasLost()
{
    assertMainThread();
    if (commandIsRunning()) {
        stopListening();
    }
}

void CommandListener::stopListening()
{
    if (m_listenerService != nullptr) {
        m_listenerService->removeListener(this);
    }
}

void CommandListener::disconnect()
{
    stopListening();
}

void CommandListener::willBeAddedToService(CommandListenerService* service)
{
    m_listenerService = service;
}

void CommandListener::wasRemovedFromService(CommandListenerService* /*service*/)
{
    m_listenerService = nullptr;
}

bool CommandListener::shouldBeCulledFromService(CommandListenerService* /*service*/)
{
    return true;
}
