#pragma once

#include "platform/SecretStore.h"

#include <QHash>
#include <QMutex>
#include <functional>

// A keyring held in memory: passwords by service and account.
class FakeSecretStore : public SecretStore
{
public:
    void store(const QString& service, const QString& account, const QByteArray& secret)
    {
        QMutexLocker locker(&m_mutex);
        m_items.insert(service + QLatin1Char('/') + account, secret);
    }

    // Runs at the start of every lookup, as a locked keyring that waits for the user would.
    void setGate(std::function<void()> gate)
    {
        QMutexLocker locker(&m_mutex);
        m_gate = std::move(gate);
    }

    Lookup genericPassword(const QString& service, const QString& account) override
    {
        QMutexLocker locker(&m_mutex);
        if (const std::function<void()> gate = m_gate) {
            locker.unlock();
            gate();
            locker.relock();
        }
        const auto found = m_items.constFind(service + QLatin1Char('/') + account);
        if (found == m_items.cend()) {
            return {std::nullopt, kNotFound, QStringLiteral("no such item")};
        }
        return {*found, 0, QString()};
    }

private:
    QMutex m_mutex;
    QHash<QString, QByteArray> m_items;
    std::function<void()> m_gate;
};
