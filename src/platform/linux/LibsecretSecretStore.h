#pragma once

#include "platform/SecretStore.h"

// Secrets from the Secret Service of the session, through libsecret: items with the
// attributes service and account, whatever schema stored them.
class LibsecretSecretStore : public SecretStore
{
public:
    Lookup genericPassword(const QString& service, const QString& account) override;
};
