#include "tracking/ActivityProgressManager.h"

#include "exception/KSException.h"
#include "foundation/KeyedArchive.h"
#include "foundation/MainQueue.h"
#include "foundation/NotificationCenter.h"
#include "logging/Logger.h"
#include "tracking/CaptureHistory.h"
#include "tracking/CommandTaskConnection.h"
#include "tracking/ProgressPane.h"
#include "tracking/ProgressServices.h"
#include "tracking/UserNotifier.h"

#include <QCoreApplication>
#include <QTimer>
#include <stdexcept>

namespace {
const QString kWake = QStringLiteral("wake");
const QString kRepositoryRef = QStringLiteral("repositoryRef");

void assertMainThread()
{
    Q_ASSERT(MainQueue::isMainThread());
}

// The history belongs to the application, not to this manager, so the update happens even when
// the manager is gone by then.
void runOnMainLoopLater(std::chrono::milliseconds delay, std::function<void()> work)
{
    QTimer::singleShot(delay, QCoreApplication::instance(), std::move(work));
}
} // namespace

std::shared_ptr<ActivityProgressManager>
ActivityProgressManager::initWithCommand(const QString& commandName)
{
    const std::optional<ProgressPane::Kind> kind =
        ProgressPane::umbrellaControllerForCommand(commandName);
    if (!kind) {
        return nullptr;
    }
    std::shared_ptr<ProgressPane> pane = ProgressServices::makePane(*kind);
    if (!pane) {
        return nullptr;
    }
    return std::make_shared<ActivityProgressManager>(std::move(pane));
}

ActivityProgressManager::ActivityProgressManager(std::shared_ptr<ProgressPane> viewController,
                                                 QObject* parent)
    : ProgressManager(parent)
    , m_viewController(std::move(viewController))
    , m_delayedCall(runOnMainLoopLater)
{
    if (!m_viewController) {
        throw std::logic_error("a progress manager needs a pane");
    }
    m_viewController->setProgressManager(this);
}

ActivityProgressManager::~ActivityProgressManager()
{
    // The pane may outlive this manager (a failure pane stays until closed); it must not reach
    // back into a destroyed object.
    m_viewController->setProgressManager(nullptr);
}

void ActivityProgressManager::fireWakeUpNotification()
{
    NotificationCenter::defaultCenter().post(kMonitorWakeUpCall, nullptr);
}

void ActivityProgressManager::setDelayedCall(DelayedCall delayedCall)
{
    m_delayedCall = delayedCall ? std::move(delayedCall) : DelayedCall(runOnMainLoopLater);
}

const ActivityProgressManager::LiveStatus& ActivityProgressManager::liveStatus()
{
    assertMainThread();
    if (!m_liveStatusStale) {
        return m_liveStatus;
    }
    LiveStatus status;
    status.isRunning = commandIsRunning();
    if (status.isRunning) {
        const QVariantList answers = askCommand({
            {QStringLiteral("queryCanCancelWithReply"), {}},
            {QStringLiteral("queryIsHeldWithReply"), {}},
            {QStringLiteral("queryIsPausedWithReply"), {}},
            {QStringLiteral("queryCanPauseWithReply"), {}},
        });
        status.canCancel = answers.value(0).toBool();
        status.isHeld = answers.value(1).toBool();
        status.isPaused = answers.value(2).toBool();
        status.canPause = answers.value(3).toBool();
        status.canReschedule = status.canCancel && !actionUUID().isNull();
    }
    m_liveStatus = status;
    m_liveStatusStale = false;
    return m_liveStatus;
}

void ActivityProgressManager::beginProgress()
{
    ProgressManager::beginProgress();
    const QString action = actionUUID();
    m_viewController->setActionID(action);
    m_viewController->didBeginStatus();
    ProgressServices::userNotifier().notifyUser(
        UserNotifier::kActionStarted, humanReadableCommandName(), displayTitle(), action, {});
}

void ActivityProgressManager::endProgress()
{
    ProgressManager::endProgress();
    m_viewController->didEndStatusWithException(nullptr);
    fireWakeUpNotification();
    updateHistoryLater();
    ProgressServices::userNotifier().notifyUser(UserNotifier::kActionCompleted,
                                                humanReadableCommandName(), displayTitle(),
                                                actionUUID(), {});
}

void ActivityProgressManager::endProgressWithException(const Exception& exception)
{
    const KSException* failure = exception.asKSException();
    if (failure != nullptr && failure->hasFlag(kNullFlag)) {
        endProgress();
        return;
    }
    ProgressManager::endProgressWithException(exception);
    m_viewController->didEndStatusWithException(&exception);
    fireWakeUpNotification();
    ProgressServices::userNotifier().notifyUser(UserNotifier::kActionIncomplete,
                                                humanReadableCommandName(), displayTitle(),
                                                actionUUID(), exception.userInfo());
    updateHistoryLater();
}

void ActivityProgressManager::commandDidStart()
{
    assertMainThread();
    m_liveStatusStale = true;
    ProgressManager::commandDidStart();
    fireWakeUpNotification();
    if (m_repositoryRef.isEmpty()) {
        fetchRepositoryRef();
    }
}

void ActivityProgressManager::fetchRepositoryRef()
{
    try {
        const bool supported =
            askCommand({{QStringLiteral("querySupportsProperty"), {kRepositoryRef}}})
                .value(0)
                .toBool();
        if (supported) {
            const QByteArray reference =
                askCommand({{QStringLiteral("queryRepositoryRefWithReply"), {}}})
                    .value(0)
                    .toByteArray();
            // An archived nil is no reference: kept, it would offer to repair nothing.
            if (!KeyedArchive::isArchivedNil(reference)) {
                m_repositoryRef = reference;
            }
        }
    } catch (const KSException& failure) {
        // The connection names the command without asking it, which has just failed to answer.
        const QString command = connection() ? connection()->connectionName() : QString();
        Logger::log(9, nullptr, QStringLiteral("%1: repositoryRef query failed").arg(command),
                    &failure);
    }
}

void ActivityProgressManager::commandProgressDidUpdate(const QVariantMap& dictionary)
{
    assertMainThread();
    if (hasStopped()) {
        discardAfterPostMortem();
        return;
    }
    m_liveStatusStale = true;
    ProgressManager::commandProgressDidUpdate(dictionary);
    // Any value wakes the panes; the null object, as everywhere, counts as absent.
    const QVariant wake = dictionary.value(kWake);
    if (wake.isValid() && wake.typeId() != QMetaType::Nullptr) {
        fireWakeUpNotification();
    }
    m_viewController->updateStatus(dictionary);
}

void ActivityProgressManager::discardAfterPostMortem()
{
    const auto self = std::static_pointer_cast<ActivityProgressManager>(shared_from_this());
    MainQueue::dispatchMainAsync([self] {
        const QString name = self->connection() ? self->connection()->connectionName() : QString();
        Logger::log(9, QStringLiteral("%1 received post-mortum: discarding dead monitor for "
                                      "connection %2")
                           .arg(QStringLiteral("-[ActivityProgressManager "
                                               "commandProgressDidUpdate:]_block_invoke"),
                                name));
        self->m_viewController->resign();
        self->stopListening();
    });
}

void ActivityProgressManager::commandDidStopWithException(const ExceptionPtr& exception)
{
    assertMainThread();
    const auto self = std::static_pointer_cast<ActivityProgressManager>(shared_from_this());
    m_liveStatusStale = true;
    ProgressManager::commandDidStopWithException(exception);
    m_viewController->holdManagerUntilResigned(self);
    MainQueue::dispatchMainAsync([self] {
        self->stopListening();
        NotificationCenter::defaultCenter().post(kMonitorProgressDidEnd, self.get());
    });
}

void ActivityProgressManager::updateHistoryLater()
{
    m_delayedCall(kHistoryUpdateDelay,
                  [] { ProgressServices::captureHistory().updateHistoryNotification(); });
}
