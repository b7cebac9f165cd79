#include "activity/CommandUmbrellaViewController.h"

#include "activity/ActivityWindowHost.h"
#include "activity/CommandDetailsViewController.h"
#include "activity/CommandFailureViewController.h"
#include "activity/CompactCommandProgressViewController.h"
#include "activity/FileCommandProgressViewController.h"
#include "activity/IndexCommandProgressViewController.h"
#include "activity/LogViewerWindow.h"
#include "errors/ContextualAlertInfo.h"
#include "exception/KSException.h"
#include "foundation/NotificationCenter.h"
#include "foundation/RelativeDate.h"
#include "logging/Logger.h"
#include "tracking/CommandProxy.h"
#include "tracking/CommandTaskConnection.h"

#include <QAction>
#include <QMessageBox>
#include <QTimer>
#include <QWidget>

namespace {
constexpr double kPresetPauses[] = {300, 600, 1200, 1800, 3600, 7200}; // tags 201 to 206
constexpr int kFirstPresetTag = 201;

void showModalAlert(const QString& message, const QString& informative)
{
    QMessageBox box(QMessageBox::Warning, message, message, QMessageBox::Ok);
    box.setInformativeText(informative);
    box.exec();
}

void openOwnLogViewer(const LogLine& line)
{
    LogViewerWindow::sharedViewer().showLogLine(line);
}

CommandUmbrellaViewController::AlertPresenter& alertPresenter()
{
    static CommandUmbrellaViewController::AlertPresenter presenter = showModalAlert;
    return presenter;
}

CommandUmbrellaViewController::LogViewerOpener& logViewerOpener()
{
    static CommandUmbrellaViewController::LogViewerOpener opener = openOwnLogViewer;
    return opener;
}

ActivityWindowHost& quietHost()
{
    static ActivityWindowHost host;
    return host;
}

std::unique_ptr<CommandDetailsViewController> detailsForKind(ProgressPane::Kind kind)
{
    switch (kind) {
    case ProgressPane::Kind::File:
        return std::make_unique<FileCommandProgressViewController>();
    case ProgressPane::Kind::Compact:
        return std::make_unique<CompactCommandProgressViewController>();
    case ProgressPane::Kind::Index:
        return std::make_unique<IndexCommandProgressViewController>();
    case ProgressPane::Kind::Details:
        break;
    }
    return std::make_unique<CommandDetailsViewController>();
}
} // namespace

std::shared_ptr<CommandUmbrellaViewController>
CommandUmbrellaViewController::umbrellaControllerForCommand(const QString& commandName,
                                                            ActivityWindowHost* host)
{
    const std::optional<Kind> kind = ProgressPane::umbrellaControllerForCommand(commandName);
    return kind ? umbrellaControllerForKind(*kind, host) : nullptr;
}

std::shared_ptr<CommandUmbrellaViewController>
CommandUmbrellaViewController::umbrellaControllerForKind(Kind kind, ActivityWindowHost* host)
{
    return std::make_shared<CommandUmbrellaViewController>(detailsForKind(kind), host);
}

CommandUmbrellaViewController::CommandUmbrellaViewController(
    std::unique_ptr<CommandDetailsViewController> details, ActivityWindowHost* host)
    : m_host(host != nullptr ? host : &quietHost())
    , m_detailed(std::move(details))
{
    m_detailed->setUmbrellaController(this);
    m_collapsed = m_detailed->makeCollapsedViewController();
    m_collapsed->setUmbrellaController(this);
}

CommandUmbrellaViewController::~CommandUmbrellaViewController()
{
    delete m_selfRetirementTimer.data();
}

void CommandUmbrellaViewController::setAlertPresenter(AlertPresenter presenter)
{
    alertPresenter() = presenter ? std::move(presenter) : AlertPresenter(showModalAlert);
}

void CommandUmbrellaViewController::setLogViewerOpener(LogViewerOpener opener)
{
    logViewerOpener() = opener ? std::move(opener) : LogViewerOpener(openOwnLogViewer);
}

double CommandUmbrellaViewController::pauseSecondsForTag(const QVariant& tag)
{
    if (!tag.isValid()) {
        return kUntaggedPauseSeconds;
    }
    const int index = tag.toInt() - kFirstPresetTag;
    if (index >= 0 && index < int(std::size(kPresetPauses))) {
        return kPresetPauses[index];
    }
    return kDefaultPauseSeconds;
}

QWidget* CommandUmbrellaViewController::view()
{
    if (!m_view) {
        m_view = m_collapsed->view();
    }
    return m_view.data();
}

QMenu* CommandUmbrellaViewController::controlMenu()
{
    if (showingAlert()) {
        return nullptr;
    }
    return showingDetails() ? m_detailed->controlMenu() : m_collapsed->controlMenu();
}

void CommandUmbrellaViewController::setView(QWidget* newView)
{
    QWidget* oldView = view();
    if (newView == oldView) {
        return;
    }
    // Toggled from the keyboard, the pane keeps the focus across its two forms.
    const bool hadFocus = oldView != nullptr && oldView->hasFocus();
    m_view = newView;
    Q_EMIT viewChanged(oldView, newView);
    if (hadFocus && newView != nullptr) {
        newView->setFocus(Qt::OtherFocusReason);
    }
}

ActivityProgressManager::LiveStatus CommandUmbrellaViewController::safeCommandStatus() const
{
    if (!m_progressManager) {
        return {};
    }
    try {
        return m_progressManager->liveStatus();
    } catch (const KSException& failure) {
        Logger::log(9, nullptr, QStringLiteral("command status query failed"), &failure);
        return {};
    }
}

bool CommandUmbrellaViewController::showingDetails()
{
    return view() == m_detailed->view();
}

bool CommandUmbrellaViewController::showingAlert()
{
    return m_failure && view() == m_failure->view();
}

void CommandUmbrellaViewController::setShowingDetails(bool showing)
{
    QWidget* target = nullptr;
    if (showing && view() == m_collapsed->view()) {
        target = m_detailed->view();
    } else if (!showing && view() == m_detailed->view()) {
        target = m_collapsed->view();
    }
    if (target == nullptr) {
        return; // already so, or the failure form shows
    }
    setView(target);
    Q_EMIT showingDetailsChanged();
    saveDetailsDefaultState(showing);
}

bool CommandUmbrellaViewController::detailsDefaultState()
{
    if (m_actionID.isEmpty()) {
        return false;
    }
    return m_host->impermanentValue(kActionDetailsKey, m_actionID).toBool();
}

void CommandUmbrellaViewController::saveDetailsDefaultState(bool showing)
{
    if (!m_actionID.isEmpty()) {
        m_host->setImpermanentValue(showing, kActionDetailsKey, m_actionID);
    }
}

void CommandUmbrellaViewController::willAddToWindow()
{
    m_collapsed->willBeginStatus();
    m_detailed->willBeginStatus();
}

void CommandUmbrellaViewController::setProgressManager(ActivityProgressManager* manager)
{
    m_progressManager = manager;
}

void CommandUmbrellaViewController::setActionID(const QString& actionID)
{
    if (actionID != m_actionID) {
        m_actionID = actionID;
        Q_EMIT actionIDChanged();
    }
}

void CommandUmbrellaViewController::didBeginStatus()
{
    m_collapsed->didBeginStatus();
    m_detailed->didBeginStatus();
    setShowingDetails(detailsDefaultState());
}

void CommandUmbrellaViewController::updateStatus(const QVariantMap& progress)
{
    m_collapsed->updateStatus(progress);
    m_detailed->updateStatus(progress);
}

void CommandUmbrellaViewController::didEndStatusWithException(const Exception* exception)
{
    m_collapsed->didEndStatusWithException(exception);
    m_detailed->didEndStatusWithException(exception);
    if (exception == nullptr) {
        resignAfter(kRetirementMs);
        return;
    }
    std::unique_ptr<AlertInfo> alert = m_detailed->alertInfoForException(*exception);
    if (!alert && m_progressManager) {
        alert = m_progressManager->chooseAlertForException(exception);
    }
    if (alert) {
        alert = m_detailed->adjustAlert(std::move(alert), *exception);
    }
    if (!alert) {
        resignAfter(kRetirementMs);
        return;
    }
    m_failure = std::make_unique<CommandFailureViewController>();
    m_failure->setUmbrellaController(this);
    m_failure->view();
    m_failure->setEndAlert(*alert, *exception);
    setView(m_failure->view());
    Q_EMIT windowInFrontWanted();
}

void CommandUmbrellaViewController::resignAfter(int milliseconds)
{
    delete m_selfRetirementTimer.data();
    auto* timer = new QTimer(this);
    timer->setSingleShot(true);
    timer->setInterval(milliseconds);
    connect(timer, &QTimer::timeout, this, [this] {
        m_selfRetirementTimer->deleteLater();
        resign();
    });
    m_selfRetirementTimer = timer;
    timer->start();
}

void CommandUmbrellaViewController::holdManagerUntilResigned(
    std::shared_ptr<ActivityProgressManager> manager)
{
    m_heldManager = std::move(manager);
}

void CommandUmbrellaViewController::resign()
{
    // Let go last: the manager may be all that keeps this pane, so nothing of it is touched
    // once the manager goes.
    const std::shared_ptr<ActivityProgressManager> held = std::move(m_heldManager);
    if (QWidget* current = view()) {
        current->hide();
        current->setParent(nullptr);
    }
    NotificationCenter::defaultCenter().post(kMonitorViewControllerResigning, this);
}

bool CommandUmbrellaViewController::tryToPerform(const char* action, QObject* sender)
{
    const QByteArray signature = QByteArray(action) + "(QObject*)";
    if (metaObject()->indexOfSlot(signature.constData()) < 0) {
        return false;
    }
    return QMetaObject::invokeMethod(this, action, Q_ARG(QObject*, sender));
}

bool CommandUmbrellaViewController::validateUserInterfaceItem(const QAction* item) const
{
    return validateAction(item->property("action").toByteArray());
}

bool CommandUmbrellaViewController::validateAction(const QByteArray& action) const
{
    if (action == "resumeCommand") {
        return true;
    }
    const ActivityProgressManager::LiveStatus status = safeCommandStatus();
    if (action == "stopCommand") {
        return status.canCancel;
    }
    if (action == "stopCommandAndReschedule") {
        return status.canReschedule;
    }
    if (action == "ignoreHoldAndRun") {
        return status.isHeld;
    }
    if (action == "pauseCommand") {
        return status.canPause;
    }
    return false;
}

void CommandUmbrellaViewController::toggleDetails(QObject*)
{
    Q_EMIT detailsToggled();
    setShowingDetails(!showingDetails());
}

void CommandUmbrellaViewController::stopCommand(QObject* sender)
{
    if (m_progressManager) {
        m_progressManager->stopCommand(sender);
    }
    m_collapsed->stopButton()->setEnabled(false);
    m_detailed->stopButton()->setEnabled(false);
}

void CommandUmbrellaViewController::stopCommandAndReschedule(QObject* sender)
{
    stopCommand(sender);
    if (!m_actionID.isEmpty()) {
        m_host->runRescheduleSheet(m_actionID);
    }
}

void CommandUmbrellaViewController::ignoreHoldAndRun(QObject*)
{
    performOnCommand(QStringLiteral("releaseHold"));
}

void CommandUmbrellaViewController::pauseCommand(QObject* sender)
{
    const QVariant tag = sender != nullptr ? sender->property("tag") : QVariant();
    performOnCommand(QStringLiteral("pauseFor"), {pauseSecondsForTag(tag)});
}

void CommandUmbrellaViewController::resumeCommand(QObject*)
{
    performOnCommand(QStringLiteral("resume"));
}

void CommandUmbrellaViewController::performOnCommand(const QString& member,
                                                     const QVariantList& arguments)
{
    if (!m_progressManager || !m_progressManager->connection()) {
        return;
    }
    try {
        m_progressManager->connection()->performOnCommand(
            [&member, &arguments](const CommandProxy& command) {
                command.send(member, arguments);
            });
    } catch (const KSException& failure) {
        // A command that has gone cannot be paused or resumed; the pane ends with it anyway.
        Logger::log(5, nullptr, QStringLiteral("%1 failed").arg(member), &failure);
    }
}

void CommandUmbrellaViewController::runAction(const QString& actionID, const QDateTime& date)
{
    const double seconds = date.isValid() ? RelativeDate::secondsSinceReferenceDate(date) : 0.0;
    if (m_host->setActionToExecuteAt(actionID, seconds)) {
        return;
    }
    const QString message = QStringLiteral("Action not scheduled");
    alertPresenter()(message,
                     QStringLiteral("The scheduler service could not be contacted. Open or reopen "
                                    "the Kestrom application to install the scheduler."));
    KSException failure = KSException::exceptionWithName(QStringLiteral("Process"), message);
    failure.setDetail(actionID, QStringLiteral("uuid"));
    failure.raise();
}

void CommandUmbrellaViewController::viewLogLine(const QVariant& value)
{
    LogLine line = value.value<LogLine>();
    if (!line && value.typeId() == QMetaType::QString) {
        line = LogLineIdentifier::fromString(value.toString());
    }
    if (!m_host->viewLogLine(line)) {
        logViewerOpener()(line);
    }
}
