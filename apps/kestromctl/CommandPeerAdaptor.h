#pragma once

#include "CommandMessagingIntrospection.h"

#include <QDBusAbstractAdaptor>

class CommandPeerServer;

// com.kestrom.CommandMessaging by hand: a generated adaptor cannot answer the run state's three
// values.
class CommandPeerAdaptor : public QDBusAbstractAdaptor
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.kestrom.CommandMessaging")
    // What the interface file says, so that introspection shows every reply and annotation.
    Q_CLASSINFO("D-Bus Introspection", KESTROM_INTROSPECTION_CommandMessaging)
public:
    explicit CommandPeerAdaptor(CommandPeerServer* server);

public Q_SLOTS:
    bool querySupportsProperty(const QString& property);
    QString queryNameWithReply();
    QString queryHumanReadableNameWithReply();
    // Strings that may be nil travel as keyed archives.
    Q_NOREPLY void setActionUUID(const QByteArray& uuid);
    QByteArray queryActionUUIDWithReply();
    Q_NOREPLY void setCustomDescription(const QByteArray& description);
    QByteArray queryCustomDescriptionWithReply();
    QByteArray queryDisplayDescriptionWithReply();
    QString queryProcessIdentifierWithReply();
    Q_NOREPLY void addListenerToPublishedService(const QString& service);
    Q_NOREPLY void removeListenerWithIdentifier(const QString& identifier);
    bool queryRunStateWithReply(bool& finished, bool& held);
    bool queryIsRunningWithReply();
    bool queryIsFinishedWithReply();
    bool queryIsHeldWithReply();
    Q_NOREPLY void holdWithReason(const QString& reason);
    Q_NOREPLY void releaseHold();
    Q_NOREPLY void run();
    Q_NOREPLY void resume();
    Q_NOREPLY void cancelFrom(int origin);
    bool queryCanCancelWithReply();
    bool queryIsPausedWithReply();
    bool queryCanPauseWithReply();
    bool queryIsPrivilegedWithReply();
    Q_NOREPLY void pauseFor(double seconds);

private:
    CommandPeerServer* m_server;
    QString m_customDescription;
};
