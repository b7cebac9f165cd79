#pragma once

#include "messaging/AnonymousListener.h"
#include "messaging/Endpoint.h"
#include "messaging/KSMachServiceConnection.h"
#include "messaging/SwitchboardSubscriber.h"

// The process's connection to the hub: the user's own hub first, the system-wide one as a
// fallback. Observers are kept here and registered again with every new hub, so they outlive
// any number of hub restarts without their owners doing anything.
class KSSwitchboardConnection : public KSMachServiceConnection
{
public:
    using Block = SwitchboardSubscriber::Block;
    using PublishedBlock = std::function<void(const Endpoint& endpoint)>;
    using RedactedBlock = std::function<void()>;

    KSSwitchboardConnection();
    ~KSSwitchboardConnection() override;

    std::shared_ptr<RemoteProxy> switchboardProxy() { return serviceProxy(); }
    SwitchboardSubscriber& subscriber() const { return *m_subscriber; }

    // An empty observer id gets a fresh anonymous one; an empty source matches any source.
    void addObserver(const QString& observerID, const QString& name, const QString& source,
                     Block block);
    void addObserver(const QString& observerID, const QString& name, Block block);
    void removeObserver(const QString& observerID);
    void removeObserversWithPrefix(const QString& prefix);
    void removeAllObservers();
    // Either block may be empty. A name already published is reported at once.
    void addObserverWhenName(const QString& observer, const QString& publishedName,
                             PublishedBlock isPublished, RedactedBlock isRedacted);
    void removePublishedObserver(const QString& observer, const QString& publishedName);

    void postNotification(const QString& name, const QString& source, const QVariantMap& info);
    void switchboardDidStartNotification(const QString& startedService);

    static QString nextAnonymousObserverID();

protected:
    std::vector<Candidate> makeConnections() override;
    void setupProxy(const std::shared_ptr<RemoteProxy>& proxy) override;
    void disconnectInternal(const Candidate& dropped) override;

private:
    void forgetObserversAt(const Candidate& hub);
    void sendPrivate(const QString& member, const QVariantList& arguments);

    SwitchboardSubscriber* m_subscriber;
    AnonymousListener m_subscriberListener;
};
