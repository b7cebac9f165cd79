#pragma once

#include <QByteArray>
#include <QString>
#include <optional>

// The user's store of secrets, asked for a generic password by service and account.
class SecretStore
{
public:
    // No item of that service and account.
    static constexpr int kNotFound = -1;

    struct Lookup
    {
        std::optional<QByteArray> secret; // the stored bytes; none on any failure
        int status = 0;                   // 0 when found, kNotFound, or the store's error code
        QString message;                  // what the store said about a failure
    };

    virtual ~SecretStore() = default;
    // May block on the store; safe from any thread.
    virtual Lookup genericPassword(const QString& service, const QString& account) = 0;
};
