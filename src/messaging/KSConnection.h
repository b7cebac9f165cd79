#pragma once

#include "exception/Error.h"
#include "messaging/PlatformConnection.h"
#include "messaging/RemoteProxy.h"

#include <QMutex>
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

class BlockCompletion;
class KSPublishedConnection;
class KSSwitchboardConnection;

// The client side of every conversation: made on first use, verified before use, and made
// again after a loss, so callers simply ask for the proxy each time. Never connect on the
// messaging thread: verification waits for replies that arrive there.
class KSConnection : public std::enable_shared_from_this<KSConnection>
{
public:
    using InvalidationHandler = std::function<void()>;
    using Candidate = std::shared_ptr<PlatformConnection>;

    static inline const QString kProductIdentifierPrefix = QStringLiteral("com.kestrom");
    static inline const QString kDidConnectNotification = QStringLiteral("KSConnectionDidConnect");
    static inline const QString kCocoaErrorDomain = QStringLiteral("NSCocoaErrorDomain");
    static inline const QString kDBusErrorDomain = QStringLiteral("DBus");
    static constexpr qint64 kConnectionInvalid = 4099;

    KSConnection(quint64 options, QString protocol);
    virtual ~KSConnection();
    KSConnection(const KSConnection&) = delete;
    KSConnection& operator=(const KSConnection&) = delete;

    // None when no connection could be made.
    std::shared_ptr<RemoteProxy> serviceProxy();
    const QString& serviceInterface() const { return m_protocol; }
    // Before the connection is shared: the interface is read without a lock.
    void setServiceInterface(QString protocol) { m_protocol = std::move(protocol); }
    QString identifier() const;
    bool connected() const;
    bool verifyConnection() const { return m_verifyConnection; }
    void setVerifyConnection(bool verify) { m_verifyConnection = verify; }
    void setInvalidationHandler(InvalidationHandler handler);

    void connect();
    void disconnect();
    // Whether the candidate was the current connection and was dropped.
    bool disconnect(const Candidate& candidate);

    // True when every message sent before it has been handled by the other side.
    bool syncReturningError(Error* error = nullptr);
    bool ping();
    // The block's messages go through a proxy of their own, so an error of one of them, the
    // barrier's answer, its timeout or the connection's loss ends exactly this block. Blocks
    // on one connection run side by side; none holds a lock while it sends or waits.
    bool performSynchronousBlock(const std::function<void(const RemoteProxy& proxy)>& block,
                                 Error* error = nullptr);

    static std::shared_ptr<KSPublishedConnection> monitorConnection();
    static std::shared_ptr<RemoteProxy> monitor();
    static std::shared_ptr<KSPublishedConnection> schedulerConnection();
    static std::shared_ptr<RemoteProxy> scheduler();
    static std::shared_ptr<KSSwitchboardConnection> switchboardConnection();
    static std::shared_ptr<RemoteProxy> switchboard();
    static std::shared_ptr<KSPublishedConnection>
    connectionWithPublishedName(const QString& name, quint64 options, const QString& protocol);

    static Error errorFrom(const QDBusError& error);

protected:
    virtual std::vector<Candidate> makeConnections();
    virtual Candidate makeConnection();
    // A new proxy was made from a new connection.
    virtual void setupProxy(const std::shared_ptr<RemoteProxy>& proxy);
    // Dropping the current connection, before it is invalidated; runs under the connection
    // lock, so it must not call the members that take it.
    virtual void disconnectInternal(const Candidate& dropped);
    // Constructors only: read without a lock afterwards.
    void setIdentifier(QString identifier);
    Candidate currentConnection() const;
    quint64 options() const { return m_options; }

private:
    // The messaging thread never waits for the lock while a connection is being made: the
    // thread making it waits for answers that only the messaging thread delivers. There it
    // gives up instead (false), as if there were no connection.
    bool lockConnection(std::unique_lock<QMutex>& locker) const;
    bool verify(const Candidate& candidate, Error* error);
    void watch(const Candidate& candidate);
    void accept(const Candidate& candidate);
    void proxyFailed(const QDBusError& error, const QString& service);
    // Sends the block's messages and a barrier through a proxy of their own and waits for
    // the first of: the barrier's reply, an error, the candidate's loss.
    std::optional<Error> runBlock(const Candidate& candidate,
                                  const std::function<void(const RemoteProxy& proxy)>& block,
                                  bool logFailures);
    void endBlocksOf(const PlatformConnection* dropped);

    Candidate m_connection;
    quint64 m_options;
    QString m_protocol;
    mutable QMutex m_connectionLock;
    std::atomic<bool> m_connecting{false}; // set under the lock while candidates are tried
    std::shared_ptr<RemoteProxy> m_barrierProxy;

    // The blocks waiting now, ended with an error when their connection is dropped.
    QMutex m_blocksLock;
    std::vector<std::shared_ptr<BlockCompletion>> m_blocks;

    bool m_loggedConnectionError = false;
    std::atomic<bool> m_loggedBarrierError{false};
    InvalidationHandler m_invalidationHandler;
    bool m_verifyConnection = true;
    QString m_identifier;
};
