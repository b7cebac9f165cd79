#pragma once

#include "tracking/CommandListenerServiceDelegate.h"

#include <QByteArray>
#include <QString>
#include <memory>

// The seams between the monitor's core and the parts of the desktop program that come with
// later work: the activity window, the status item and window, desktop events, the update
// watch, the capture history and the requests commands make of the session. Each has a
// default here that does nothing, on purpose, until its real implementation is installed in
// the composition root (main.cpp); nothing below pretends to do more than that.
class ActivityWindow : public CommandListenerServiceDelegate
{
public:
    using Factory = std::function<std::shared_ptr<CommandListener>(const QString& identifier,
                                                                   const QVariantMap& info)>;
    explicit ActivityWindow(Factory factory);

    // Until the window exists, a new command gets its manager straight from the factory.
    std::shared_ptr<CommandListener> listenerForCommandIdentifier(const QString& identifier,
                                                                  const QVariantMap& info) override;
    virtual void showActivityWindowInFront(bool front);
    virtual bool isVisible() const;
    // Whether the quit must wait: some registered command still runs.
    virtual bool waitForRunningCommandsBecause(quint32 reason);

private:
    Factory m_factory;
};

class StatusItem
{
public:
    virtual ~StatusItem() = default;
    virtual void installStatusItem() {}
    virtual void removeStatusItem() {}
    virtual void updateStatusItemState(quint64 /*state*/) {}
};

class ArchiveStatusWindow
{
public:
    virtual ~ArchiveStatusWindow() = default;
    virtual bool hasStatus() const { return false; }
    virtual void showStatusWindowInFront(bool /*front*/) {}
};

class DesktopEvents
{
public:
    virtual ~DesktopEvents() = default;
    virtual void observeVolumes() {}
    virtual void observeApplications() {}
    virtual void beginMonitoringStatusChangeEvents() {}
    virtual void updateDockMode() {}
    virtual void setLocalNotificationType(int /*type*/, bool /*enabled*/) {}
    virtual bool deliversLocalNotificationType(int /*type*/) const { return false; }
};

class RecentArchives
{
public:
    virtual ~RecentArchives() = default;
    virtual void updateRecentRepositoryCache() {}
    // Keyed archives of arrays; an empty array until the capture history exists.
    virtual QByteArray recentlyCapturedRepositories() const;
    virtual QByteArray findRepositoriesForItems(const QByteArray& items) const;
};

class CommandRequests
{
public:
    virtual ~CommandRequests() = default;
    virtual void repositoryRequested(const QVariantMap& /*info*/) {}
    virtual void keychainPasswordRequested(const QVariantMap& /*info*/) {}
    virtual void scriptRequested(const QVariantMap& /*info*/) {}
};

class UpdateController
{
public:
    virtual ~UpdateController() = default;
};

// Where a quit comes from: a log-out ('rlgo'), shut-down ('shut'), restart ('rest') or, with 0,
// a plain quit. The session hooks come with the desktop work; until then every quit is plain.
class QuitReasonSource
{
public:
    static constexpr quint32 kLogOut = 0x726c676f;   // 'rlgo'
    static constexpr quint32 kShutDown = 0x73687574; // 'shut'
    static constexpr quint32 kRestart = 0x72657374;  // 'rest'

    virtual ~QuitReasonSource() = default;
    virtual quint32 currentQuitReason() const { return 0; }
};
