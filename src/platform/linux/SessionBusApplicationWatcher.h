#pragma once

#include "platform/ApplicationWatcher.h"

#include <QDBusConnection>
#include <QObject>

// Desktop applications as the session bus sees them: an application owns its desktop
// identifier as a well-known name while it runs. Names without a desktop entry of that
// identifier are services, not applications, and are left out. Main thread only.
class SessionBusApplicationWatcher final : public QObject, public ApplicationWatcher
{
    Q_OBJECT
public:
    using ApplicationTest = std::function<bool(const QString& name)>;

    // By default a name is an application when the XDG application folders hold its desktop
    // entry.
    explicit SessionBusApplicationWatcher(ApplicationTest isApplication = {},
                                          QObject* parent = nullptr);

    void startWatching(Handler launched, Handler terminated) override;
    QStringList runningApplications() const override;

    static bool hasDesktopEntry(const QString& name);

private Q_SLOTS:
    void nameOwnerChanged(const QString& name, const QString& oldOwner, const QString& newOwner);

private:
    bool isApplication(const QString& name) const;

    QDBusConnection m_bus;
    ApplicationTest m_isApplication;
    Handler m_launched;
    Handler m_terminated;
};
