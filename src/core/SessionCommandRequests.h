#pragma once

#include "core/CommandRequests.h"
#include "core/RepeatingTimer.h"

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QUrl>
#include <QVariantMap>
#include <functional>
#include <memory>

class SecretStore;

// What commands outside the session ask of it: an archive's bookmark resolved to a path, a
// password from the user's keyring, a prolog or epilog script run as the user. Answers go back
// through the switchboard; long work runs in the background and is kept alive by interim
// answers so that the asking command does not give up.
class SessionCommandRequests : public CommandRequests
{
public:
    static constexpr std::chrono::seconds kResolutionKeepAlive{150};
    static constexpr std::chrono::seconds kScriptKeepAlive{30};
    static constexpr quint64 kResolved = 0;
    static constexpr quint64 kUnresolved = 1;
    static constexpr quint64 kStillResolving = 2;

    // The parts of the switchboard the requests use; tests record instead.
    struct Switchboard
    {
        using Block = std::function<void(const QVariantMap& info)>;
        std::function<void(const QString& name, const QString& source, const QVariantMap& info)>
            post;
        std::function<void(const QString& observer, const QString& name, Block block)> observe;
        std::function<void(const QString& observer)> removeObserver;

        // The process's own connection to the hub.
        static Switchboard processHub();
    };
    // A bookmark's current location, or why it has none. May block.
    struct Resolution
    {
        QUrl url;      // empty when the bookmark leads nowhere
        QString error; // null when the resolution itself went well
    };
    using Resolver = std::function<Resolution(const QByteArray& bookmark)>;

    struct Parts
    {
        Switchboard switchboard;
        std::shared_ptr<SecretStore> secrets;
        Resolver resolver;
        RepeatingTimer::Factory timers;
    };

    explicit SessionCommandRequests(Parts parts);
    ~SessionCommandRequests() override;

    // The switchboard's user info, unpacked. Main thread, except the keychain: any thread.
    void repositoryRequested(const QVariantMap& info) override;
    void keychainPasswordRequested(const QVariantMap& info) override;
    void scriptRequested(const QVariantMap& info) override;

    // Main thread.
    void command(const QString& identifier, const QByteArray& bookmark);
    void repositoryResolutionTime(const QString& identifier) const;
    // Any thread; the lookup and the answer follow on the worker pool.
    void requestKeychainPasswordOfAccount(const QString& account, const QString& identifier) const;
    // Main thread.
    void runScript(quint32 type, const QString& path, const QString& identifier,
                   const QMap<QString, QString>& environment);
    void scriptStillRunningTime(const QString& identifier) const;

    static QString cancelObserverName(const QString& identifier);

private:
    struct State;

    quint64 keepAlive(std::chrono::milliseconds interval, std::function<void()> fire);

    std::shared_ptr<State> m_state;
};
