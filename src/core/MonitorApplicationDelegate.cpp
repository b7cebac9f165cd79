#include "core/MonitorApplicationDelegate.h"

#include "core/MonitorServer.h"
#include "core/ThemeChangeObserver.h"
#include "foundation/MainQueue.h"
#include "logging/Logger.h"
#include "messaging/KSConnectionServiceSingleton.h"
#include "messaging/KSSwitchboardConnection.h"
#include "platform/ClientApplication.h"
#include "preferences/ImpermanentValues.h"
#include "preferences/MonitorDefaults.h"
#include "preferences/PropertyList.h"
#include "preferences/WTUserPreferences.h"
#include "tracking/ActivityProgressManager.h"
#include "tracking/CommandListenerService.h"
#include "tracking/CommandOnXPCConnection.h"

#include <QCoreApplication>
#include <QMetaProperty>
#include <QTimer>
#include <climits>
#include <optional>
#include <stdexcept>

namespace {
MonitorApplicationDelegate* s_shared = nullptr;

const QString kMonitorIdentifier = QStringLiteral("com.kestrom.monitor");
const QString kCommandSource = QStringLiteral("Command");
const QString kEventAgentSource = QStringLiteral("EventAgent");

MonitorDefaults& defaults()
{
    return MonitorDefaults::standardUserDefaults();
}
} // namespace

QStringList MonitorApplicationDelegate::Subsystems::missing() const
{
    QStringList names;
    const std::pair<bool, const char*> seams[] = {
        {bool(statusItem), "statusItem"},
        {bool(statusWindow), "statusWindow"},
        {bool(desktopEvents), "desktopEvents"},
        {bool(recentArchives), "recentArchives"},
        {bool(commandRequests), "commandRequests"},
        {bool(session), "session"},
        {bool(scheduler), "scheduler"},
        {bool(updateController), "updateController"},
        {bool(shutdownSheet), "shutdownSheet"},
        {bool(makeActivityWindow), "makeActivityWindow"},
    };
    for (const auto& [set, name] : seams) {
        if (!set) {
            names.append(QString::fromLatin1(name));
        }
    }
    return names;
}

namespace {
MonitorApplicationDelegate::Subsystems checked(MonitorApplicationDelegate::Subsystems subsystems)
{
    if (const QStringList missing = subsystems.missing(); !missing.isEmpty()) {
        throw std::invalid_argument("the composition left these seams unset: " +
                                    missing.join(QStringLiteral(", ")).toStdString());
    }
    return subsystems;
}
} // namespace

MonitorApplicationDelegate::MonitorApplicationDelegate(Subsystems subsystems, Clock clock)
    : m_subsystems(checked(std::move(subsystems)))
    , m_impermanentValues(std::make_unique<ImpermanentValues>(defaults()))
    , m_clock(clock ? std::move(clock) : Clock(&QDateTime::currentDateTimeUtc))
{
    s_shared = this;
    m_subsystems.desktopEvents->observeVolumes();
    m_subsystems.scheduler->initializeScheduler();
}

MonitorApplicationDelegate::~MonitorApplicationDelegate()
{
    if (s_shared == this) {
        s_shared = nullptr;
    }
}

MonitorApplicationDelegate* MonitorApplicationDelegate::sharedDelegate()
{
    return s_shared;
}

void MonitorApplicationDelegate::initializeClass()
{
    // Registers the defaults and writes the first notification choices once per user.
    defaults();
}

void MonitorApplicationDelegate::applicationDidFinishLaunching()
{
    Logger::logStartProcess(kComponentVersion);
    m_subsystems.session->disableRelaunchOnLogin();
    auto& service = CommandListenerService::sharedService();
    service.setSwitchboardName(kMonitorIdentifier);
    ActivityWindow::Factory factory = [this](const QString& identifier, const QVariantMap& info) {
        return std::shared_ptr<CommandListener>(
            monitorRunningCommandWithIdentifier(identifier, info));
    };
    m_activityWindow = m_subsystems.makeActivityWindow(*this, std::move(factory));
    service.setDelegate(m_activityWindow.get());
    m_subsystems.statusWindow->start(*this);
    m_monitorVendor = std::make_unique<KSConnectionServiceSingleton>(new MonitorServer(this));
    // Queued with the delegate as context: dropped, not run, should the delegate go first.
    QMetaObject::invokeMethod(this, &MonitorApplicationDelegate::publishVendor,
                              Qt::QueuedConnection);
    observeSwitchboardRequests();
    KSConnection::switchboardConnection()->postNotification(
        QStringLiteral("DiskEventsAgentDidStart"), kEventAgentSource, {});
    m_subsystems.desktopEvents->observeApplications();
    QTimer::singleShot(3500, this,
                       [this] { m_subsystems.desktopEvents->beginMonitoringStatusChangeEvents(); });
    m_subsystems.statusItem->installStatusItem();
    const auto updateDockMode = [this] {
        QMetaObject::invokeMethod(
            this, [this] { m_subsystems.desktopEvents->updateDockMode(); }, Qt::QueuedConnection);
    };
    connect(this, &MonitorApplicationDelegate::regularAppModeChanged, this, updateDockMode);
    connect(this, &MonitorApplicationDelegate::monitorIsAccessoryAppChanged, this, updateDockMode);
    QTimer::singleShot(3000, this,
                       [this] { m_subsystems.recentArchives->updateRecentRepositoryCache(); });
    removeObsoleteDefaults();
    m_impermanentValues->cullOrphanedImpermanentValuesInNameSpace();
    m_themeObserver = std::make_unique<ThemeChangeObserver>();
    connect(m_themeObserver.get(), &ThemeChangeObserver::themeChanged, this,
            [this] { m_subsystems.statusItem->darkModeChangeNotification(); });
}

void MonitorApplicationDelegate::applicationDidBecomeActive()
{
    if (m_regularAppPolicyChangeDate.isValid() &&
        m_clock().msecsTo(m_regularAppPolicyChangeDate) > -kActivationEchoMs) {
        m_subsystems.session->activateApplication(m_previouslyActiveApplication);
        m_previouslyActiveApplication.clear();
        m_regularAppPolicyChangeDate = QDateTime();
        return;
    }
    if (defaults().showActivityOnActivate() && !m_subsystems.session->hasVisiblePanel()) {
        orderMonitorWindowFront();
    }
}

void MonitorApplicationDelegate::noteActivationPolicyChange(
    bool regular, const QString& previouslyActiveApplication)
{
    m_regularAppPolicyChangeDate = regular ? m_clock() : QDateTime();
    m_previouslyActiveApplication = regular ? previouslyActiveApplication : QString();
}

void MonitorApplicationDelegate::publishVendor()
{
    if (m_monitorVendor) {
        m_monitorVendor->publishWithName(kMonitorIdentifier);
    }
}

void MonitorApplicationDelegate::observeSwitchboardRequests()
{
    const auto switchboard = KSConnection::switchboardConnection();
    CommandRequests* requests = m_subsystems.commandRequests.get();
    switchboard->addObserver(QString(), QStringLiteral("CommandRequestsRepository"), kCommandSource,
                             [requests](const QString&, const QVariantMap& info) {
                                 MainQueue::dispatchMainSoon(
                                     [requests, info] { requests->repositoryRequested(info); });
                             });
    switchboard->addObserver(QString(), QStringLiteral("CommandRequestsKeychainPassword"),
                             kCommandSource, [requests](const QString&, const QVariantMap& info) {
                                 requests->keychainPasswordRequested(info);
                             });
    switchboard->addObserver(QString(), QStringLiteral("RunCommandScript"),
                             [requests](const QString&, const QVariantMap& info) {
                                 MainQueue::dispatchMainSoon(
                                     [requests, info] { requests->scriptRequested(info); });
                             });
}

void MonitorApplicationDelegate::removeObsoleteDefaults()
{
    static const QStringList obsolete{QStringLiteral("KSShowActionDetails"),
                                      QStringLiteral("KSArchiveStatusSizeViewMode"),
                                      QStringLiteral("KSMonitorWindowLocation"),
                                      QStringLiteral("KSMonitorWindowLocation.width"),
                                      QStringLiteral("KSMonitorWindowLocation.x"),
                                      QStringLiteral("KSMonitorWindowLocation.y"),
                                      QStringLiteral("KSStatusWindowLocation"),
                                      QStringLiteral("KSStatusWindowLocation.width"),
                                      QStringLiteral("KSStatusWindowLocation.x"),
                                      QStringLiteral("KSStatusWindowLocation.y"),
                                      QStringLiteral("KSStatusWindowVisible"),
                                      QStringLiteral("KSStatusWindowState")};
    for (const QString& key : obsolete) {
        defaults().removeObjectForKey(key);
    }
}

std::optional<int> MonitorApplicationDelegate::applicationShouldTerminate()
{
    const quint32 reason = m_subsystems.session->currentQuitReason();
    if (reason == ApplicationSession::kShutDown || reason == ApplicationSession::kRestart ||
        reason == ApplicationSession::kLogOut) {
        m_terminateCleanly = true;
    } else {
        Logger::log(9, QStringLiteral("will exit abnormally"));
        return kAbnormalExit;
    }
    if (m_activityWindow && m_activityWindow->waitForRunningCommandsBecause(reason)) {
        return std::nullopt;
    }
    return kCleanExit;
}

void MonitorApplicationDelegate::terminate()
{
    if (m_terminationPending) {
        return;
    }
    if (const std::optional<int> status = applicationShouldTerminate()) {
        finishTermination(*status);
        return;
    }
    m_terminationPending = true;
}

void MonitorApplicationDelegate::replyToApplicationShouldTerminate(bool shouldTerminate)
{
    if (!std::exchange(m_terminationPending, false)) {
        return;
    }
    if (shouldTerminate) {
        finishTermination(m_terminateCleanly ? kCleanExit : kAbnormalExit);
    }
}

void MonitorApplicationDelegate::finishTermination(int status)
{
    applicationWillTerminate();
    QCoreApplication::exit(status);
}

void MonitorApplicationDelegate::applicationWillTerminate()
{
    const auto switchboard = KSConnection::switchboardConnection();
    switchboard->removeAllObservers();
    switchboard->postNotification(QStringLiteral("DiskEventsAgentDidStop"), kEventAgentSource, {});
    CommandListenerService::sharedService().removeAllListeners();
    if (m_monitorVendor) {
        m_monitorVendor->shutdown();
        m_monitorVendor.reset();
    }
    // The hub has the stop notice and the redaction before the process goes.
    switchboard->ping();
    defaults().preferences().synchronize();
    WTUserPreferences::sharedPreferences().synchronize();
    m_subsystems.statusItem->removeStatusItem();
    CommandListenerService::sharedService().setDelegate(nullptr);
    Logger::logStopProcess(kComponentVersion, m_terminateCleanly ? kCleanExit : kAbnormalExit);
}

bool MonitorApplicationDelegate::canMonitorCommandName(const QString& name)
{
    static const QSet<QString> names{
        QStringLiteral("capture"), QStringLiteral("recall"),  QStringLiteral("restore"),
        QStringLiteral("merge"),   QStringLiteral("combine"), QStringLiteral("delete"),
        QStringLiteral("erase"),   QStringLiteral("compact"), QStringLiteral("verify"),
        QStringLiteral("reindex"), QStringLiteral("repair")};
    return names.contains(name);
}

std::shared_ptr<ActivityProgressManager>
MonitorApplicationDelegate::monitorRunningCommandWithIdentifier(const QString& identifier,
                                                                const QVariantMap& info)
{
    if (CommandListenerService::sharedService().hasListenerForCommandIdentifier(identifier)) {
        return nullptr;
    }
    const QString name = info.value(QStringLiteral("name")).toString();
    auto manager = ActivityProgressManager::initWithCommand(name);
    if (!manager) {
        return nullptr;
    }
    try {
        manager->connectToCommand(
            std::make_shared<CommandOnXPCConnection>(name, Endpoint(), identifier));
    } catch (const std::exception& failure) {
        const LogLine line =
            Logger::log(9, QStringLiteral("failed to create monitor for command '%1' on port %2")
                               .arg(name, identifier));
        Logger::log(7, line, failure);
        return nullptr;
    }
    return manager;
}

void MonitorApplicationDelegate::orderMonitorWindowFront()
{
    if (!m_activityWindow) {
        return; // not launched yet: nothing to show
    }
    m_activityWindow->showActivityWindowInFront(true);
    ActivityProgressManager::fireWakeUpNotification();
}

void MonitorApplicationDelegate::orderMonitorWindowFrontIfVisible()
{
    if (m_activityWindow && m_activityWindow->isVisible()) {
        m_activityWindow->showActivityWindowInFront(true);
    }
}

void MonitorApplicationDelegate::orderStatusWindowFront()
{
    if (m_subsystems.statusWindow->hasStatus()) {
        m_subsystems.statusWindow->showStatusWindowInFront(true);
    }
}

void MonitorApplicationDelegate::openRepository(const QString& path, qint32 action)
{
    const int sent = ClientApplication::defaultClient().activateAction(
        QStringLiteral("open-archive"), {path, QVariant::fromValue(action)});
    if (sent != ClientApplication::kNoError) {
        const LogLine failure = Logger::log(
            2, QStringLiteral("Unable to open '%1' in the Kestrom application").arg(path));
        Logger::log(9, failure,
                    QStringLiteral("activation of %1 returned %2")
                        .arg(ClientApplication::kClientIdentifier)
                        .arg(sent));
    }
}

void MonitorApplicationDelegate::launchClient()
{
    if (const int sent = ClientApplication::defaultClient().launch();
        sent != ClientApplication::kNoError) {
        Logger::log(2, QStringLiteral("Unable to start the Kestrom application (%1)").arg(sent));
    }
}

bool MonitorApplicationDelegate::viewLogLine(const LogLine& line)
{
    const auto logger = Logger::defaultLogger();
    return logger && line && logger->openUsingLaunchServices(line->description());
}

void MonitorApplicationDelegate::updateStatusItemState(quint64 state)
{
    if (state != m_statusImageState) {
        m_statusImageState = state;
        m_subsystems.statusItem->loadStatusItemIcon(state);
    }
}

void MonitorApplicationDelegate::showStatusItemStates(bool show, quint64 states)
{
    updateStatusItemState(show ? (m_statusImageState | states) : (m_statusImageState & ~states));
}

bool MonitorApplicationDelegate::statusWindowHasStatus() const
{
    return m_subsystems.statusWindow->hasStatus();
}

void MonitorApplicationDelegate::refreshRecentRepositoryCache()
{
    m_subsystems.recentArchives->updateRecentRepositoryCache();
}

void MonitorApplicationDelegate::refreshRunningApplications()
{
    m_subsystems.desktopEvents->refreshRunningApplications();
}

QByteArray MonitorApplicationDelegate::recentlyCapturedRepositories() const
{
    return m_subsystems.recentArchives->recentlyCapturedRepositories();
}

QByteArray MonitorApplicationDelegate::repositoriesForItems(const QByteArray& items) const
{
    return m_subsystems.recentArchives->findRepositoriesForItems(items);
}

void MonitorApplicationDelegate::setDockActivityPaneCount(quint64 count)
{
    m_subsystems.desktopEvents->setDockActivityPaneCount(count);
}

void MonitorApplicationDelegate::setUserNotificationForType(int type, bool enabled)
{
    m_subsystems.desktopEvents->setLocalNotificationType(type, enabled);
}

bool MonitorApplicationDelegate::enabledUserNotificationForType(int type) const
{
    return m_subsystems.desktopEvents->deliversLocalNotificationType(type);
}

const QHash<QString, QByteArray>& MonitorApplicationDelegate::componentPreferenceProperties()
{
    static const QHash<QString, QByteArray> properties{
        {MonitorDefaults::kMonitorAccessoryApp, "monitorIsAccessoryApp"},
        {MonitorDefaults::kMonitorRegularAppMode, "regularAppMode"},
        {MonitorDefaults::kShowMonitorOnStart, "showMonitorOnStart"},
        {MonitorDefaults::kHideMonitorWhenComplete, "hideMonitorWhenComplete"},
        {MonitorDefaults::kMonitorSpacesJoinAll, "showMonitorInAllSpaces"},
        {MonitorDefaults::kShowStatusMenu, "showStatusItem"},
        {MonitorDefaults::kShowStatusIndicatorInStatusMenu, "showStatusInStatusItem"}};
    return properties;
}

bool MonitorApplicationDelegate::setComponentPreferenceValue(const QVariant& value,
                                                             const QString& key)
{
    const QByteArray property = componentPreferenceProperties().value(key);
    std::optional<QVariant> fitting;
    if (MonitorDefaults::canHold(key, value)) {
        fitting = property.isEmpty() ? value : propertyValue(property, value);
    }
    // A value its key cannot hold changes nothing, and the peer hears NO.
    if (!fitting) {
        Logger::log(3, QStringLiteral("Preference “%1” not set: a %2 value does not fit it")
                           .arg(key, value.isValid() ? QString::fromLatin1(value.typeName())
                                                     : QStringLiteral("nil")));
        return false;
    }
    if (property.isEmpty()) {
        return WTUserPreferences::sharedPreferences().setValue(value, key,
                                                               WTUserPreferences::kMonitorDomain);
    }
    setProperty(property, *fitting);
    return true;
}

std::optional<QVariant> MonitorApplicationDelegate::propertyValue(const QByteArray& property,
                                                                  const QVariant& value) const
{
    // The key's kind is checked already; a property has no form for nil, and an int property
    // holds 32 bits only.
    if (!value.isValid()) {
        return std::nullopt;
    }
    const QMetaProperty target =
        metaObject()->property(metaObject()->indexOfProperty(property.constData()));
    if (target.metaType() != QMetaType::fromType<int>()) {
        return value;
    }
    const std::optional<qint64> number = PropertyList::integerValue(value);
    if (!number || *number < INT_MIN || *number > INT_MAX) {
        return std::nullopt;
    }
    return QVariant(int(*number));
}

QVariant MonitorApplicationDelegate::componentPreferenceForKey(const QString& key) const
{
    return WTUserPreferences::sharedPreferences().valueForKey(key,
                                                              WTUserPreferences::kMonitorDomain);
}

bool MonitorApplicationDelegate::monitorIsAccessoryApp() const
{
    return defaults().boolForKey(MonitorDefaults::kMonitorAccessoryApp);
}

void MonitorApplicationDelegate::setMonitorIsAccessoryApp(bool value)
{
    if (defaults().setBool(value, MonitorDefaults::kMonitorAccessoryApp)) {
        Q_EMIT monitorIsAccessoryAppChanged();
    }
}

int MonitorApplicationDelegate::regularAppMode() const
{
    return int(defaults().integerForKey(MonitorDefaults::kMonitorRegularAppMode));
}

void MonitorApplicationDelegate::setRegularAppMode(int value)
{
    if (defaults().setInteger(value, MonitorDefaults::kMonitorRegularAppMode)) {
        Q_EMIT regularAppModeChanged();
    }
}

bool MonitorApplicationDelegate::showMonitorOnStart() const
{
    return defaults().boolForKey(MonitorDefaults::kShowMonitorOnStart);
}

void MonitorApplicationDelegate::setShowMonitorOnStart(bool value)
{
    defaults().setBool(value, MonitorDefaults::kShowMonitorOnStart);
}

bool MonitorApplicationDelegate::hideMonitorWhenComplete() const
{
    return defaults().boolForKey(MonitorDefaults::kHideMonitorWhenComplete);
}

void MonitorApplicationDelegate::setHideMonitorWhenComplete(bool value)
{
    defaults().setBool(value, MonitorDefaults::kHideMonitorWhenComplete);
}

bool MonitorApplicationDelegate::showMonitorInAllSpaces() const
{
    return defaults().boolForKey(MonitorDefaults::kMonitorSpacesJoinAll);
}

void MonitorApplicationDelegate::setShowMonitorInAllSpaces(bool value)
{
    defaults().setBool(value, MonitorDefaults::kMonitorSpacesJoinAll);
}

bool MonitorApplicationDelegate::showStatusItem() const
{
    return defaults().boolForKey(MonitorDefaults::kShowStatusMenu);
}

void MonitorApplicationDelegate::setShowStatusItem(bool value)
{
    defaults().setBool(value, MonitorDefaults::kShowStatusMenu);
    if (value) {
        m_subsystems.statusItem->installStatusItem();
    } else {
        m_subsystems.statusItem->removeStatusItem();
    }
}

bool MonitorApplicationDelegate::showStatusInStatusItem() const
{
    return defaults().boolForKey(MonitorDefaults::kShowStatusIndicatorInStatusMenu);
}

void MonitorApplicationDelegate::setShowStatusInStatusItem(bool value)
{
    defaults().setBool(value, MonitorDefaults::kShowStatusIndicatorInStatusMenu);
    // Clearing the archive bits and setting them back forces the icon to be drawn again.
    const quint64 state = m_statusImageState;
    updateStatusItemState(state & ~quint64(4 | 8));
    updateStatusItemState(state);
}
