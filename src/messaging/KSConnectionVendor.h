#pragma once

#include "messaging/AnonymousListener.h"

#include <memory>

class RemoteProxy;

// Offers one served object to the other processes: its listener's endpoint is published on the
// switchboard under a name, and published again whenever the process reconnects to a hub.
class KSConnectionVendor
{
public:
    explicit KSConnectionVendor(std::unique_ptr<AnonymousListener> listener);
    virtual ~KSConnectionVendor();
    KSConnectionVendor(const KSConnectionVendor&) = delete;
    KSConnectionVendor& operator=(const KSConnectionVendor&) = delete;

    Endpoint endpoint() const;
    const QString& publishedName() const { return m_publishedName; }
    void publishWithName(const QString& name);
    void redact();
    void shutdown();
    void switchboardDidReconnectNotification();

protected:
    AnonymousListener* listener() const { return m_listener.get(); }

private:
    void sendPublication();

    std::unique_ptr<AnonymousListener> m_listener;
    QString m_publishedName;
    int m_reconnectObserver = 0;
    // The hub connection the publication last went through: its own connect notice, which
    // reaches the main queue after the first publication, must not publish a second time.
    std::weak_ptr<RemoteProxy> m_publishedThrough;
};
