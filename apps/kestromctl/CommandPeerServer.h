#pragma once

#include "CommandPeerState.h"
#include "messaging/NilableString.h"
#include "messaging/ServedObject.h"

// What a command process serves to the monitor: its name, descriptions, run state, and the
// run, stop and pause controls. It lives on the messaging thread and never waits there: the
// answers come from the shared state, and requests are left for the main thread.
class CommandPeerServer : public ServedObject
{
    Q_OBJECT
public:
    CommandPeerServer(QString name, QString identifier, CommandPeerState* state);

    const QString& name() const { return m_name; }
    const QString& identifier() const { return m_identifier; }
    CommandPeerState& state() const { return *m_state; }
    QString listenerService() const;
    void setActionUUID(const QString& uuid);
    QString actionUUID() const;
    void addListenerService(const QString& service);

    // KSComponentInstalling: a command is no installed component of its own.
    Q_INVOKABLE QString queryComponentVersionWithReply() const { return kComponentVersion; }
    Q_INVOKABLE uint queryBuildNumberWithReply() const { return 0; }
    Q_INVOKABLE void didInstallComponent() {}
    Q_INVOKABLE void willUninstallComponent() {}
    static inline const QString kComponentVersion = QStringLiteral("kestromctl-command");

    // RepositoryCommandMessaging: no archive reference class here yet, so none is reported.
    Q_INVOKABLE void setRepositoryRef(const QByteArray&) {}
    Q_INVOKABLE QByteArray queryRepositoryRefWithReply() const { return {}; }
    Q_INVOKABLE void setLayerPicker(const QByteArray&) {}
    Q_INVOKABLE void setAlternateKeyFilePath(const QByteArray&) {}
    // No alternate key file: nil, archived as every string that may be missing.
    Q_INVOKABLE QByteArray queryAlternateKeyFilePathWithReply() const
    {
        return NilableString::archived(QString());
    }
    Q_INVOKABLE void setPassword(const QString&) {}

private:
    QString m_name;
    QString m_identifier;
    CommandPeerState* m_state;
    mutable QMutex m_mutex;
    QString m_actionUUID;
    QString m_listenerService;
};
