#include "messaging/KSConnection.h"

#include "foundation/MainQueue.h"
#include "foundation/NotificationCenter.h"
#include "logging/Logger.h"
#include "messaging/BlockCompletion.h"
#include "messaging/InterfaceNames.h"
#include "messaging/KSPublishedConnection.h"
#include "messaging/KSSwitchboardConnection.h"
#include "messaging/MessagingThread.h"

#include <QScopeGuard>
#include <QThread>
#include <QThreadPool>

namespace {
const QString& kBarrierInterface = InterfaceNames::kComponentMessaging;
const QString kBarrierMember = QStringLiteral("barrierWithCompletion");
} // namespace

KSConnection::KSConnection(quint64 options, QString protocol)
    : m_options(options)
    , m_protocol(std::move(protocol))
{}

KSConnection::~KSConnection()
{
    if (m_connection) {
        m_connection->invalidate();
    }
}

QString KSConnection::identifier() const
{
    return m_identifier;
}

void KSConnection::setIdentifier(QString identifier)
{
    m_identifier = std::move(identifier);
}

bool KSConnection::lockConnection(std::unique_lock<QMutex>& locker) const
{
    if (!MessagingThread::instance().isCurrent()) {
        locker.lock();
        return true;
    }
    while (!locker.try_lock()) {
        if (m_connecting.load()) {
            return false;
        }
        QThread::yieldCurrentThread();
    }
    return true;
}

bool KSConnection::connected() const
{
    std::unique_lock<QMutex> locker(m_connectionLock, std::defer_lock);
    return lockConnection(locker) && m_connection != nullptr;
}

KSConnection::Candidate KSConnection::currentConnection() const
{
    std::unique_lock<QMutex> locker(m_connectionLock, std::defer_lock);
    return lockConnection(locker) ? m_connection : nullptr;
}

void KSConnection::setInvalidationHandler(InvalidationHandler handler)
{
    QMutexLocker locker(&m_connectionLock);
    m_invalidationHandler = std::move(handler);
}

std::vector<KSConnection::Candidate> KSConnection::makeConnections()
{
    Candidate candidate = makeConnection();
    if (!candidate) {
        return {};
    }
    return {candidate};
}

KSConnection::Candidate KSConnection::makeConnection()
{
    return nullptr;
}

Error KSConnection::errorFrom(const QDBusError& error)
{
    return Error(kDBusErrorDomain, qint64(error.type()),
                 {{Error::kLocalizedDescriptionKey, error.message()},
                  {QStringLiteral("Name"), error.name()}});
}

void KSConnection::connect()
{
    if (MessagingThread::instance().isCurrent()) {
        // Verification would wait for an answer that can only arrive on this very thread, and
        // so would waiting for the lock of a thread that is verifying.
        if (!connected()) {
            static std::once_flag once;
            std::call_once(once, [this] {
                Logger::log(9, QStringLiteral("-[KSConnection connect] called on the messaging "
                                              "thread for %1; not connecting")
                                   .arg(identifier()));
            });
        }
        return;
    }
    QMutexLocker locker(&m_connectionLock);
    if (m_connection) {
        return;
    }
    m_connecting = true;
    const auto connecting = qScopeGuard([this] { m_connecting = false; });
    m_barrierProxy.reset();
    const std::vector<Candidate> candidates = makeConnections();
    QList<QPair<Error, Candidate>> failures;
    for (const Candidate& candidate : candidates) {
        // Watched before it is resumed, so that a loss in between is not missed.
        watch(candidate);
        candidate->resume();
        Error error;
        if ((!m_verifyConnection && candidates.size() < 2) || verify(candidate, &error)) {
            m_loggedConnectionError = false;
            accept(candidate);
            break;
        }
        candidate->invalidate();
        failures.append({error, candidate});
    }
    if (!m_connection && !m_loggedConnectionError && !failures.isEmpty()) {
        for (const auto& [error, candidate] : std::as_const(failures)) {
            Logger::log(4, QStringLiteral("failed to verify connection %1 with %2")
                               .arg(m_identifier, error.description()));
        }
        m_loggedConnectionError = true;
    }
}

bool KSConnection::verify(const Candidate& candidate, Error* error)
{
    const std::optional<Error> failure = runBlock(candidate, {}, false);
    if (failure) {
        *error = *failure;
    }
    return !failure;
}

void KSConnection::watch(const Candidate& candidate)
{
    const std::weak_ptr<KSConnection> weakSelf = weak_from_this();
    const std::weak_ptr<PlatformConnection> weakCandidate = candidate;
    const bool fromMain = MainQueue::isMainThread();
    candidate->setInvalidationHandler([weakSelf, weakCandidate, fromMain] {
        auto work = [weakSelf, weakCandidate] {
            const auto self = weakSelf.lock();
            const auto lost = weakCandidate.lock();
            if (!self || !lost) {
                return;
            }
            // Blocks of a candidate still being verified end too, so connect goes on.
            self->endBlocksOf(lost.get());
            if (!self->disconnect(lost)) {
                return;
            }
            InvalidationHandler handler;
            {
                QMutexLocker locker(&self->m_connectionLock);
                handler = self->m_invalidationHandler;
            }
            if (handler) {
                handler();
            }
        };
        // Never on the messaging thread: dropping takes the connection lock, which a thread
        // verifying a candidate holds while it waits for that thread.
        if (fromMain) {
            MainQueue::dispatchMainAsync(work);
        } else {
            QThreadPool::globalInstance()->start(work);
        }
    });
}

void KSConnection::accept(const Candidate& candidate)
{
    m_connection = candidate;
}

std::shared_ptr<RemoteProxy> KSConnection::serviceProxy()
{
    connect();
    std::shared_ptr<RemoteProxy> made;
    std::shared_ptr<RemoteProxy> proxy;
    {
        std::unique_lock<QMutex> locker(m_connectionLock, std::defer_lock);
        if (!lockConnection(locker)) {
            return nullptr;
        }
        if (!m_barrierProxy && m_connection) {
            const std::weak_ptr<KSConnection> weakSelf = weak_from_this();
            const QString service = m_connection->serviceName();
            m_barrierProxy =
                m_connection->remoteObjectProxy([weakSelf, service](const QDBusError& error) {
                    if (const auto self = weakSelf.lock()) {
                        self->proxyFailed(error, service);
                    }
                });
            made = m_barrierProxy;
        }
        proxy = m_barrierProxy;
    }
    if (made) {
        setupProxy(made);
    }
    return proxy;
}

void KSConnection::setupProxy(const std::shared_ptr<RemoteProxy>& /*proxy*/)
{
    const std::weak_ptr<KSConnection> weakSelf = weak_from_this();
    MainQueue::dispatchMainAsync([weakSelf] {
        if (const auto self = weakSelf.lock()) {
            NotificationCenter::defaultCenter().post(kDidConnectNotification, self.get());
        }
    });
}

// On the messaging thread, for messages sent outside any block: logged once until a block
// succeeds.
void KSConnection::proxyFailed(const QDBusError& dbusError, const QString& service)
{
    if (!m_loggedBarrierError.exchange(true)) {
        Logger::log(9, QStringLiteral("message from %1 to %2 failed").arg(m_identifier, service),
                    errorFrom(dbusError));
    }
}

std::optional<Error> KSConnection::runBlock(const Candidate& candidate,
                                            const std::function<void(const RemoteProxy&)>& block,
                                            bool logFailures)
{
    auto completion = std::make_shared<BlockCompletion>(candidate.get());
    {
        QMutexLocker locker(&m_blocksLock);
        m_blocks.push_back(completion);
    }
    const auto forget = qScopeGuard([this, &completion] {
        QMutexLocker locker(&m_blocksLock);
        std::erase(m_blocks, completion);
    });
    const std::weak_ptr<KSConnection> weakSelf = weak_from_this();
    const QString service = candidate->serviceName();
    const auto proxy = candidate->remoteObjectProxy(
        [completion, weakSelf, service, logFailures](const QDBusError& dbusError) {
            completion->finish(errorFrom(dbusError));
            const auto self = weakSelf.lock();
            if (logFailures && self) {
                self->proxyFailed(dbusError, service);
            }
        });
    if (block) {
        block(*proxy);
    }
    proxy->call(kBarrierInterface, kBarrierMember, {},
                [completion](const QDBusMessage&) { completion->finish(std::nullopt); });
    return completion->wait();
}

void KSConnection::endBlocksOf(const PlatformConnection* dropped)
{
    QMutexLocker locker(&m_blocksLock);
    for (const auto& completion : m_blocks) {
        if (completion->connection() == dropped) {
            completion->finish(Error(kCocoaErrorDomain, kConnectionInvalid));
        }
    }
}

bool KSConnection::syncReturningError(Error* error)
{
    return performSynchronousBlock({}, error);
}

bool KSConnection::ping()
{
    return syncReturningError(nullptr);
}

bool KSConnection::performSynchronousBlock(const std::function<void(const RemoteProxy&)>& block,
                                           Error* error)
{
    Candidate candidate;
    if (MessagingThread::instance().isCurrent()) {
        // The answers it would wait for arrive on this very thread.
        static std::once_flag once;
        std::call_once(once, [this] {
            Logger::log(4, QStringLiteral("synchronous call to %1 refused on the messaging thread")
                               .arg(identifier()));
        });
    } else if (serviceProxy()) {
        candidate = currentConnection();
    }
    if (!candidate) {
        if (error != nullptr) {
            *error = Error(kCocoaErrorDomain, kConnectionInvalid);
        }
        return false;
    }
    const std::optional<Error> failure = runBlock(candidate, block, true);
    if (!failure) {
        m_loggedBarrierError = false;
    } else if (error != nullptr) {
        *error = *failure;
    }
    return !failure;
}

void KSConnection::disconnect()
{
    disconnect(nullptr);
}

bool KSConnection::disconnect(const Candidate& candidate)
{
    QMutexLocker locker(&m_connectionLock);
    if (candidate && candidate != m_connection) {
        return false;
    }
    m_barrierProxy.reset();
    if (!m_connection) {
        return false;
    }
    // Every step under the lock, so that a connection made meanwhile by another thread is
    // never the one dropped.
    disconnectInternal(m_connection);
    Logger::log(9, QStringLiteral("%1 invalidating connection (%2)")
                       .arg(QStringLiteral("-[KSConnection disconnect:]"), m_identifier));
    m_connection->setInvalidationHandler(nullptr);
    m_connection->invalidate();
    endBlocksOf(m_connection.get());
    m_connection.reset();
    return true;
}

void KSConnection::disconnectInternal(const Candidate& /*dropped*/) {}

std::shared_ptr<KSPublishedConnection>
KSConnection::connectionWithPublishedName(const QString& name, quint64 options,
                                          const QString& protocol)
{
    auto connection = std::make_shared<KSPublishedConnection>(name, options, protocol);
    return connection;
}

std::shared_ptr<KSPublishedConnection> KSConnection::monitorConnection()
{
    static const auto connection =
        connectionWithPublishedName(kProductIdentifierPrefix + QStringLiteral(".monitor"), 0,
                                    QStringLiteral("StromMonitoring"));
    return connection;
}

std::shared_ptr<RemoteProxy> KSConnection::monitor()
{
    return monitorConnection()->serviceProxy();
}

std::shared_ptr<KSPublishedConnection> KSConnection::schedulerConnection()
{
    static const auto connection =
        connectionWithPublishedName(kProductIdentifierPrefix + QStringLiteral(".scheduler"), 0,
                                    QStringLiteral("StromScheduling"));
    return connection;
}

std::shared_ptr<RemoteProxy> KSConnection::scheduler()
{
    return schedulerConnection()->serviceProxy();
}

std::shared_ptr<RemoteProxy> KSConnection::switchboard()
{
    return switchboardConnection()->serviceProxy();
}
