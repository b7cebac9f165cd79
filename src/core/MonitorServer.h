#pragma once

#include "messaging/Endpoint.h"
#include "messaging/ServedObject.h"

#include <QDBusMessage>

class MonitorApplicationDelegate;

// The monitoring interface as other processes see it. Calls arrive on the messaging thread;
// work on windows and registries goes to the main thread, and where a reply depends on it the
// reply leaves when the main thread is done, never making this thread wait.
class MonitorServer : public ServedObject
{
    Q_OBJECT
public:
    explicit MonitorServer(MonitorApplicationDelegate* delegate);

    // StromMonitoring
    Q_INVOKABLE bool queryCanMonitorCommandName(const QString& name);
    Q_INVOKABLE void orderMonitorWindowFront();
    Q_INVOKABLE void orderMonitorWindowFrontIfVisible();
    Q_INVOKABLE void orderStatusWindowFront();
    Q_INVOKABLE bool queryStatusWindowHasStatus();
    Q_INVOKABLE void refreshRecentRepositoryCache();
    Q_INVOKABLE QByteArray queryRecentlyCapturedRepositoriesWithReply();
    Q_INVOKABLE QByteArray queryRepositoriesForItems(const QByteArray& items);
    Q_INVOKABLE void setUserNotificationForType(int type, bool enabled);
    Q_INVOKABLE bool queryEnabledUserNotificationForType(int type);
    // KSComponentInstalling
    Q_INVOKABLE QString queryComponentVersionWithReply();
    Q_INVOKABLE uint queryBuildNumberWithReply();
    Q_INVOKABLE void didInstallComponent() {}
    Q_INVOKABLE void willUninstallComponent() {}
    // KSComponentPreferencing
    Q_INVOKABLE QByteArray queryComponentPreferenceForKey(const QString& key);
    Q_INVOKABLE bool setComponentPreferenceValue(const QByteArray& value, const QString& key);
    // CommandListenerServiceProvider, through its own adaptor: two values in the reply.
    void queryListenerForCommandIdentifier(const QString& identifier, const QByteArray& info);

private:
    MonitorApplicationDelegate* m_delegate;
};
