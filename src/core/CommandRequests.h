#pragma once

#include <QVariantMap>

// The seam of the requests commands make of the session: ignored until the composition
// root installs the real handler.
class CommandRequests
{
public:
    virtual ~CommandRequests() = default;
    virtual void repositoryRequested(const QVariantMap& /*info*/) {}
    virtual void keychainPasswordRequested(const QVariantMap& /*info*/) {}
    virtual void scriptRequested(const QVariantMap& /*info*/) {}
};
