#pragma once

#include "messaging/RemoteProxy.h"
#include "tracking/CommandInterface.h"

// A command's remote proxy as the blocks of performOnCommand see it: messages are named by
// member only, and go out on the interface of the protocol that declares them. Replies arrive
// on the messaging thread, possibly after the block's caller has given up, so reply handlers
// keep what they fill in shared.
class CommandProxy
{
public:
    CommandProxy(RemoteProxy proxy, CommandInterface interface);

    const CommandInterface& interface() const { return m_interface; }
    const RemoteProxy& remote() const { return m_proxy; }

    // One-way; raises a logic error for a member the command's protocol lacks.
    void send(const QString& member, const QVariantList& arguments = {}) const;
    void call(const QString& member, const QVariantList& arguments,
              RemoteProxy::ReplyHandler onReply) const;

private:
    QString interfaceFor(const QString& member) const;

    RemoteProxy m_proxy;
    CommandInterface m_interface;
};
