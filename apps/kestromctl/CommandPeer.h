#pragma once

#include "CommandPeerState.h"
#include "messaging/Endpoint.h"

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>
#include <QVariantMap>
#include <memory>
#include <optional>

class KSConnectionServiceSingleton;
class MessageSync;
class PlatformConnection;
class KSException;
class RemoteProxy;

// A command process as the product runs one: it publishes itself under its identifier, asks
// the monitor for a listener, reports its start, its progress and its stop, and obeys the
// monitor's stop and pause requests. The scenario decides what its life looks like.
class CommandPeer : public QObject
{
    Q_OBJECT
public:
    struct Options
    {
        QString name;
        QString identifier;
        QString scenario = QStringLiteral("success");
        int steps = 10;
        int intervalMs = 200;
        int dieAfter = -1;
        QString failName = QStringLiteral("IO");
        QString failReason = QStringLiteral("Cannot create support folder");
        QString explanation;
        int posixError = 0;
        QString failCommand;
        bool soft = false;
    };

    explicit CommandPeer(Options options);
    ~CommandPeer() override;

    // The process's exit status: 0 when the command ran to its end (failures included).
    int exec();

    static QStringList scenarios();

private:
    bool connectToMonitor();
    void tick();
    QVariantMap progressFor(int step) const;
    void send(const QVariantMap& progress);
    void finish(const std::optional<KSException>& failure);
    bool handleRequests();
    qint64 runTime() const;

    Options m_options;
    CommandPeerState m_state;
    std::unique_ptr<KSConnectionServiceSingleton> m_vendor;
    // Kept for the proxy's life: a connection that goes invalidates its proxies.
    std::shared_ptr<PlatformConnection> m_listenerConnection;
    std::shared_ptr<RemoteProxy> m_listener;
    std::shared_ptr<MessageSync> m_stopLock;
    QTimer m_timer;
    QElapsedTimer m_clock;
    int m_step = 0;
    qint64 m_pausedUntilMs = -1;
    int m_exitStatus = 0;
};
