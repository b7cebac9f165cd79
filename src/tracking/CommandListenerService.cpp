#include "tracking/CommandListenerService.h"

#include "foundation/MainQueue.h"
#include "logging/Logger.h"
#include "tracking/CommandListener.h"
#include "tracking/CommandListenerServiceDelegate.h"

#include <QCoreApplication>
#include <QThread>
#include <QThreadPool>
#include <unistd.h>

namespace {
std::atomic<qint64> s_cullIntervalMs{CommandListenerService::kDefaultCullInterval.count()};

QString address(const void* pointer)
{
    return QStringLiteral("0x%1").arg(quintptr(pointer), 0, 16);
}

// The cull questions wait on other processes; they must never hold up anything else.
QThreadPool& backgroundQueue()
{
    static auto* pool = [] {
        auto* made = new QThreadPool;
        made->setObjectName(QStringLiteral("CommandListenerService.cull"));
        made->setThreadPriority(QThread::LowestPriority);
        return made;
    }();
    return *pool;
}

// A listener leaving the registry may be in the middle of one of its own notifications
// (a stop removes its listener): its last reference goes on a later turn of the main loop.
void releaseLater(std::shared_ptr<CommandListener> listener)
{
    MainQueue::dispatchMainAsync([listener = std::move(listener)] {});
}
} // namespace

CommandListenerService::CommandListenerService(QObject* parent)
    : QObject(parent)
    , m_serviceIdentifier(
          QStringLiteral("%1.%2").arg(QStringLiteral("CommandListenerService")).arg(uint(getpid())))
{}

CommandListenerService::~CommandListenerService() = default;

CommandListenerService& CommandListenerService::sharedService()
{
    static auto* service = new CommandListenerService; // lives for the process
    return *service;
}

void CommandListenerService::setCullInterval(std::chrono::milliseconds interval)
{
    s_cullIntervalMs.store(interval.count());
}

std::chrono::milliseconds CommandListenerService::cullInterval()
{
    return std::chrono::milliseconds(s_cullIntervalMs.load());
}

CommandListenerService::ListenerPtr
CommandListenerService::listenerForCommandIdentifier(const QString& identifier,
                                                     const QVariantMap& info)
{
    if (ListenerPtr registered = listenerForIdentifier(identifier)) {
        return registered;
    }
    CommandListenerServiceDelegate* serviceDelegate = delegate();
    if (serviceDelegate == nullptr) {
        return nullptr;
    }
    ListenerPtr made = serviceDelegate->listenerForCommandIdentifier(identifier, info);
    if (!made) {
        return nullptr;
    }
    addListener(made, identifier);
    return made;
}

bool CommandListenerService::hasListenerForCommandIdentifier(const QString& identifier) const
{
    return m_listeners.contains(identifier);
}

CommandListenerService::ListenerPtr
CommandListenerService::listenerForIdentifier(const QString& identifier) const
{
    return m_listeners.value(identifier);
}

QList<CommandListenerService::ListenerPtr> CommandListenerService::listeners() const
{
    QList<ListenerPtr> all;
    all.reserve(m_order.size());
    for (const QString& identifier : m_order) {
        all.append(m_listeners.value(identifier));
    }
    return all;
}

void CommandListenerService::addListener(const ListenerPtr& listener, const QString& identifier)
{
    Q_ASSERT(MainQueue::isMainThread());
    if (!listener || m_listeners.contains(identifier)) {
        return;
    }
    listener->willBeAddedToService(this);
    if (CommandListenerServiceDelegate* serviceDelegate = delegate()) {
        serviceDelegate->willAddListener(listener.get());
    }
    m_listeners.insert(identifier, listener);
    m_order.append(identifier);
    Logger::log(
        9, QStringLiteral("%1 added listener <%2> for command identifier %3")
               .arg(QStringLiteral("-[CommandListenerService addListener:forCommandIdentifier:]"),
                    address(listener.get()), identifier));
    if (!m_cullTimer) {
        startCullTimer();
    }
    // A listener added just before a cull is not a candidate in it.
    didUpdateStatusForListener(listener.get());
}

void CommandListenerService::removeListener(const CommandListener* listener)
{
    Q_ASSERT(MainQueue::isMainThread());
    for (qsizetype i = 0; i < m_order.size(); ++i) {
        const QString identifier = m_order.at(i);
        if (m_listeners.value(identifier).get() != listener) {
            continue;
        }
        ListenerPtr removed = m_listeners.take(identifier);
        m_order.removeAt(i);
        if (m_activeListeners) {
            m_activeListeners->remove(listener);
        }
        Logger::log(9, QStringLiteral("%1 removed listener <%2> for command identifier %3")
                           .arg(QStringLiteral("-[CommandListenerService removeListener:]"),
                                address(listener), identifier));
        notifyRemovalOfListener(removed);
        releaseLater(std::move(removed));
        break;
    }
    if (m_listeners.isEmpty()) {
        removeAllListeners();
    }
}

void CommandListenerService::removeAllListeners()
{
    Q_ASSERT(MainQueue::isMainThread());
    const QList<ListenerPtr> all = listeners();
    m_listeners.clear();
    m_order.clear();
    for (const ListenerPtr& listener : all) {
        notifyRemovalOfListener(listener);
        releaseLater(listener);
    }
    m_activeListeners.reset();
    stopCullTimer();
}

void CommandListenerService::didUpdateStatusForListener(const CommandListener* listener)
{
    Q_ASSERT(MainQueue::isMainThread());
    if (m_activeListeners) {
        m_activeListeners->insert(listener);
    }
}

void CommandListenerService::notifyRemovalOfListener(const ListenerPtr& listener)
{
    listener->wasRemovedFromService(this);
    if (CommandListenerServiceDelegate* serviceDelegate = delegate()) {
        serviceDelegate->didRemoveListener(listener.get());
    }
}

std::optional<QSet<const CommandListener*>> CommandListenerService::activeListeners() const
{
    return m_activeListeners;
}

void CommandListenerService::cullTime()
{
    Q_ASSERT(MainQueue::isMainThread());
    QList<ListenerPtr> silent;
    for (const QString& identifier : std::as_const(m_order)) {
        const ListenerPtr& listener = m_listeners[identifier];
        if (m_activeListeners && m_activeListeners->contains(listener.get())) {
            continue;
        }
        Logger::log(9, QStringLiteral("%1 culling dead listener for command identifier %2")
                           .arg(QStringLiteral("-[CommandListenerService cullTime:]"), identifier));
        silent.append(listener);
    }
    const QPointer<CommandListenerService> service(this);
    for (const ListenerPtr& listener : std::as_const(silent)) {
        backgroundQueue().start([service, listener]() mutable {
            const bool cull = listener->shouldBeCulledFromService(service.data());
            // The answer, and the listener's only reference here, go back to the main thread:
            // the registry is touched there only, and the listener and what it owns must be
            // released where they live, never on this thread.
            MainQueue::dispatchMainAsync([service, listener = std::move(listener), cull] {
                if (!service) {
                    return;
                }
                if (cull) {
                    service->removeListener(listener.get());
                }
                Q_EMIT service->cullQuestionAnswered(listener.get(), cull);
            });
        });
    }
    if (m_activeListeners) {
        m_activeListeners->clear();
    }
}

void CommandListenerService::startCullTimer()
{
    m_activeListeners.emplace();
    // Parented to the service, as the run loop would own it; the pointer is weak.
    auto* timer = new QTimer(this);
    // A coarse timer may fire up to 5 % early, and a command reporting just within the interval
    // would then be asked whether it has finished.
    timer->setTimerType(Qt::PreciseTimer);
    timer->setInterval(cullInterval());
    QObject::connect(timer, &QTimer::timeout, this, &CommandListenerService::cullTime);
    timer->start();
    m_cullTimer = timer;
}

void CommandListenerService::stopCullTimer()
{
    if (m_cullTimer) {
        m_cullTimer->stop();
        m_cullTimer->deleteLater();
    }
    m_cullTimer.clear();
}

void CommandListenerService::setSwitchboardName(const QString& name)
{
    m_switchboardName = name;
    m_serviceIdentifier = name;
}
