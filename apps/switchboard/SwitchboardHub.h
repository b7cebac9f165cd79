#pragma once

#include "messaging/Endpoint.h"
#include "messaging/ServedObject.h"

#include <QHash>
#include <QMultiHash>
#include <QSet>

class QDBusServiceWatcher;

// The per-user hub: holds published endpoints and relays notifications to observers. It lives
// on the messaging thread, where every call arrives, so its tables need no lock. A client that
// leaves the bus takes its observers and its published endpoints with it.
class SwitchboardHub : public ServedObject
{
    Q_OBJECT
public:
    explicit SwitchboardHub(QObject* parent = nullptr);

    // StromSwitchboarding
    Q_INVOKABLE void publishEndpoint(const Endpoint& endpoint, const QString& identifier);
    Q_INVOKABLE void redactEndpointForIdentifier(const QString& identifier);
    Q_INVOKABLE Endpoint queryEndpointForIdentifier(const QString& identifier);
    Q_INVOKABLE void postNotificationName(const QString& name, const QString& source,
                                          const QByteArray& userInfo);
    // StromSwitchboarding_private
    Q_INVOKABLE void setUser(uint userID);
    Q_INVOKABLE void addProxyObserver(const QString& observer, const QString& name,
                                      const QString& source);
    Q_INVOKABLE void removeObserver(const QString& observer);
    Q_INVOKABLE void removeAllObservers();
    // KSComponentInstalling
    Q_INVOKABLE QString queryComponentVersionWithReply() const;
    Q_INVOKABLE uint queryBuildNumberWithReply() const;
    Q_INVOKABLE void didInstallComponent() {}
    Q_INVOKABLE void willUninstallComponent() {}

    static inline const QString kComponentVersion = QStringLiteral("Switchboard-2.2.5.12");

private:
    struct Observer
    {
        QString name;   // empty: every notification
        QString source; // empty: any source
    };
    struct Publication
    {
        Endpoint endpoint;
        QString publisher;
    };

    QString sender() const;
    void watchClient(const QString& client);
    void clientLeft(const QString& client);
    void redact(const QString& identifier);
    void announce(const QString& notification, const QString& identifier);

    QHash<QString, QHash<QString, Observer>> m_observers; // client -> observer id -> observer
    QHash<QString, Publication> m_endpoints;              // published name -> publication
    QHash<QString, uint> m_users;                         // client -> user id it works for
    QDBusServiceWatcher* m_clients;
};
