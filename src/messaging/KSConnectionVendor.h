#pragma once

#include "messaging/AnonymousListener.h"

#include <memory>

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
    void sendPublication() const;

    std::unique_ptr<AnonymousListener> m_listener;
    QString m_publishedName;
    int m_reconnectObserver = 0;
};
