#pragma once

#include "CommandListenerServiceProviderIntrospection.h"
#include "messaging/GatedAdaptor.h"

class MonitorServer;

// com.kestrom.CommandListenerServiceProvider by hand: a generated adaptor cannot answer with
// the two values of its reply.
class MonitorListenerProviderAdaptor : public GatedAdaptor
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.kestrom.CommandListenerServiceProvider")
    // What the interface file says, so that introspection shows the reply and its annotations.
    Q_CLASSINFO("D-Bus Introspection", KESTROM_INTROSPECTION_CommandListenerServiceProvider)
public:
    explicit MonitorListenerProviderAdaptor(MonitorServer* server);

public Q_SLOTS:
    // The reply ((so) listener, u roles) is sent later, from the main thread.
    void queryListenerForCommandIdentifier(const QString& identifier, const QByteArray& info);

private:
    MonitorServer* m_server;
};
