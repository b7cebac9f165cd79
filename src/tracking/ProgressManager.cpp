#include "tracking/ProgressManager.h"

#include "errors/CommandAlertInfo.h"
#include "exception/KSException.h"
#include "foundation/HumanReadableString.h"
#include "foundation/MainQueue.h"
#include "logging/Logger.h"
#include "messaging/NilableString.h"
#include "tracking/CommandInfo.h"
#include "tracking/CommandProxy.h"
#include "tracking/IconUtilities.h"

#include <QDBusMessage>
#include <QMutex>
#include <cmath>

namespace {
const QString kTask = QStringLiteral("task");
const QString kVerb = QStringLiteral("verb");
const QString kItem = QStringLiteral("item");
const QString kIcon = QStringLiteral("icon");
const QString kAlt = QStringLiteral("alt");
const QString kWait = QStringLiteral("wait");
const QString kRun = QStringLiteral("run");
const QString kPaws = QStringLiteral("paws");
const QString kTime = QStringLiteral("time");

bool isNullObject(const QVariant& value)
{
    return value.typeId() == QMetaType::Nullptr;
}

// An entry holding the null object counts as absent unless a key says otherwise.
QVariant presentValue(const QVariantMap& progress, const QString& key)
{
    const QVariant value = progress.value(key);
    return isNullObject(value) ? QVariant() : value;
}

// Commands send whole seconds; a fraction is dropped, not rounded.
qint64 integerValue(const QVariant& value)
{
    if (value.typeId() == QMetaType::Double) {
        return static_cast<qint64>(std::trunc(value.toDouble()));
    }
    return value.toLongLong();
}

// A soft failure still completed what it could, and a ".Null" one is a success in disguise.
bool isHardFailure(const Exception& exception)
{
    const KSException* ks = exception.asKSException();
    const bool nullFailure = ks != nullptr && ks->hasFlag(ProgressManager::kNullFlag);
    return exception.asSoftException() == nullptr && !nullFailure;
}

QString readableRunTime(qint64 seconds)
{
    return HumanReadableString::stringWithReadableDuration(seconds);
}

// What the replies of one round trip fill in. Replies arrive on the messaging thread, possibly
// after the caller has stopped waiting, so the answers are shared and locked.
class Answers
{
public:
    explicit Answers(qsizetype count)
        : m_values(count)
    {}

    void set(qsizetype index, const QVariant& value)
    {
        QMutexLocker locker(&m_mutex);
        m_values[index] = value;
    }

    QVariantList values() const
    {
        QMutexLocker locker(&m_mutex);
        return m_values;
    }

private:
    mutable QMutex m_mutex;
    QVariantList m_values;
};
} // namespace

ProgressManager::ProgressManager(QObject* parent)
    : CommandManager(parent)
{}

ProgressManager::~ProgressManager() = default;

quint32 ProgressManager::roles() const
{
    return kProgressManagerRoles;
}

QVariantList ProgressManager::askCommand(const QList<Question>& questions)
{
    const auto answers = std::make_shared<Answers>(questions.size());
    performOnCommand([&questions, answers](const CommandProxy& command) {
        for (qsizetype index = 0; index < questions.size(); ++index) {
            command.call(questions.at(index).first, questions.at(index).second,
                         [answers, index](const QDBusMessage& reply) {
                             answers->set(index, reply.arguments().value(0));
                         });
        }
    });
    return answers->values();
}

bool ProgressManager::performOnCommand(const CommandTaskConnection::Block& block)
{
    if (!connection()) {
        return false;
    }
    connection()->performOnCommand(block);
    return true;
}

QString ProgressManager::actionUUID()
{
    return actionUUIDReturningCachedValue(hasStarted());
}

QString ProgressManager::actionUUIDReturningCachedValue(bool cachedOnly)
{
    if (!cachedOnly && m_actionUUID.isNull()) {
        try {
            // Nil (no action) arrives as a null string, kept apart from "".
            const QVariant reply =
                askCommand({{QStringLiteral("queryActionUUIDWithReply"), {}}}).value(0);
            if (reply.isValid()) {
                m_actionUUID = NilableString::unarchived(reply.toByteArray());
            }
        } catch (const KSException& failure) {
            Logger::log(9, nullptr, QStringLiteral("Action ID query failed"), &failure);
        }
    }
    return m_actionUUID;
}

QString ProgressManager::humanReadableCommandName()
{
    if (m_humanReadableCommandName.isNull()) {
        try {
            const QVariant name = askCommand({{QStringLiteral("queryNameWithReply"), {}}}).value(0);
            if (name.isValid()) {
                m_humanReadableCommandName =
                    CommandInfo::humanReadableNameForCommandName(name.toString());
            }
        } catch (const KSException& failure) {
            Logger::log(9, nullptr, QStringLiteral("command name query failed"), &failure);
        }
    }
    return m_humanReadableCommandName.isNull() ? QStringLiteral("Unknown")
                                               : m_humanReadableCommandName;
}

QString ProgressManager::displayTitle()
{
    if (m_displayTitle.isEmpty()) {
        // A command that gives no answer, like one that answers nil, has no title; "" is one.
        QString title;
        try {
            const QVariant reply =
                askCommand({{QStringLiteral("queryDisplayDescriptionWithReply"), {}}}).value(0);
            if (reply.isValid()) {
                title = NilableString::unarchived(reply.toByteArray());
            }
        } catch (const KSException& failure) {
            Logger::log(9, nullptr, QStringLiteral("command description query failed"), &failure);
        }
        m_displayTitle = title;
    }
    return m_displayTitle.isNull() ? QStringLiteral("Unknown Action") : m_displayTitle;
}

QImage ProgressManager::altDescriptionIcon()
{
    if (m_altIconImage.isNull() && m_altDescriptionIcon.isValid()) {
        m_altIconImage = IconUtilities::imageForIconValue(m_altDescriptionIcon);
    }
    return m_altIconImage;
}

void ProgressManager::runCommand()
{
    beginProgress();
    CommandManager::runCommand();
}

void ProgressManager::beginProgress()
{
    humanReadableCommandName();
    displayTitle();
    actionUUIDReturningCachedValue(false);
    m_beginProgressSent = true;
}

void ProgressManager::endProgress()
{
    setPrimaryDescription(QStringLiteral("%1 complete").arg(humanReadableCommandName()));
    setShowingAlternateDescription(false);
}

void ProgressManager::endProgressWithException(const Exception& /*exception*/)
{
    setPrimaryDescription(QStringLiteral("%1 stopped").arg(humanReadableCommandName()));
    setShowingAlternateDescription(false);
}

std::unique_ptr<ContextualAlertInfo>
ProgressManager::chooseAlertForException(const Exception* exception) const
{
    if (exception == nullptr) {
        return nullptr;
    }
    if (auto canceled = AlertInfoForCanceledCommand(exception)) {
        return canceled;
    }
    return AlertInfoForAnyCommand(exception);
}

void ProgressManager::commandDidStart()
{
    setDisplayRunTime(readableRunTime(0));
    if (!m_beginProgressSent) {
        beginProgress();
    }
    CommandManager::commandDidStart();
}

void ProgressManager::commandProgressDidUpdate(const QVariantMap& dictionary)
{
    CommandManager::commandProgressDidUpdate(dictionary);
    interpretProgress(dictionary);
}

void ProgressManager::interpretProgress(const QVariantMap& progress)
{
    bool showAlternate = m_showingAlternateDescription;
    const QVariant alt = progress.value(kAlt);
    if (isNullObject(alt)) {
        showAlternate = false;
    } else if (alt.isValid()) {
        showAlternate = alt.toBool();
    }

    const QVariant task = presentValue(progress, kTask);
    if (task.isValid() && task.toString() != m_primaryDescription) {
        // A pause keeps showing "Paused"; the new task is what the pause gives way to.
        if (m_commandPaused) {
            m_saveRunningDescription = task.toString();
        } else {
            setPrimaryDescription(task.toString());
        }
    }

    const QVariant verb = presentValue(progress, kVerb);
    if (verb.isValid()) {
        setAltDescriptionVerb(verb.toString());
    }

    const QVariant item = progress.value(kItem);
    if (isNullObject(item)) {
        setAltDescriptionVerb(QString());
        setAltDescriptionName(QString());
        setAltDescriptionIconValue(QVariant());
        showAlternate = false;
    } else if (item.isValid()) {
        setAltDescriptionName(item.toString());
    }

    const QVariant icon = presentValue(progress, kIcon);
    if (icon.typeId() == QMetaType::QByteArray && !IconUtilities::isRGBAData(icon.toByteArray())) {
        // A peer's bad icon is dropped here, once logged, and the pane is drawn without it.
        if (!m_badIconLogged) {
            m_badIconLogged = true;
            Logger::log(4, QStringLiteral("A command sent an icon of %1 bytes, which is no square "
                                          "of 16, 32, 64 or 128 pixels; it is not shown")
                               .arg(icon.toByteArray().size()));
        }
    } else if (icon.isValid()) {
        setAltDescriptionIconValue(icon);
    }

    bool working = m_commandIsWorking;
    if (presentValue(progress, kWait).toBool()) {
        setDisplayRunTime(QStringLiteral("waiting"));
        working = false;
    }
    if (presentValue(progress, kRun).toBool()) {
        setDisplayRunTime(readableRunTime(0));
        working = true;
    }

    const QVariant paws = presentValue(progress, kPaws);
    const QVariant time = presentValue(progress, kTime);
    if (paws.isValid()) {
        setReportedRunTime(-integerValue(paws));
        if (!m_commandPaused) {
            m_commandPaused = true;
            m_saveRunningDescription = m_primaryDescription;
            setPrimaryDescription(QStringLiteral("Paused"));
        }
        showAlternate = true;
        working = false;
    } else if (time.isValid()) {
        setReportedRunTime(integerValue(time));
        working = true;
        if (m_commandPaused) {
            m_commandPaused = false;
            setPrimaryDescription(m_saveRunningDescription);
            m_saveRunningDescription.clear();
        }
    }

    setShowingAlternateDescription(showAlternate);
    setCommandIsWorking(working);
}

void ProgressManager::commandDidStopWithException(const ExceptionPtr& exception)
{
    // Stopping removes this manager from the service, which may have held the last reference.
    const auto self = std::static_pointer_cast<ProgressManager>(shared_from_this());
    CommandManager::commandDidStopWithException(exception);
    setCommandIsWorking(false);
    MainQueue::dispatchMainAsync([self, exception] {
        if (!exception) {
            self->setDisplayRunTime(QStringLiteral("complete"));
            self->endProgress();
            return;
        }
        self->setDisplayRunTime(isHardFailure(*exception) ? QStringLiteral("stopped")
                                                          : QStringLiteral("complete"));
        self->endProgressWithException(*exception);
    });
}

void ProgressManager::wasRemovedFromService(CommandListenerService* service)
{
    CommandManager::wasRemovedFromService(service);
    // Culled while running, or dropped at exit: the command will never say how it ended.
    if (commandIsRunning()) {
        auto lost = std::make_shared<KSException>(QStringLiteral("IPC"),
                                                  QStringLiteral("lost connection with command"));
        lost->setExplanation(QStringLiteral("disconnect"));
        commandDidStopWithException(lost);
    }
}

void ProgressManager::setPrimaryDescription(const QString& description)
{
    if (description != m_primaryDescription) {
        m_primaryDescription = description;
        Q_EMIT primaryDescriptionChanged(m_primaryDescription);
    }
}

void ProgressManager::setShowingAlternateDescription(bool showing)
{
    if (showing != m_showingAlternateDescription) {
        m_showingAlternateDescription = showing;
        Q_EMIT showingAlternateDescriptionChanged(showing);
    }
}

void ProgressManager::setDisplayRunTime(const QString& text)
{
    if (text != m_displayRunTime) {
        m_displayRunTime = text;
        Q_EMIT displayRunTimeChanged(m_displayRunTime);
    }
}

void ProgressManager::setCommandIsWorking(bool working)
{
    if (working != m_commandIsWorking) {
        m_commandIsWorking = working;
        Q_EMIT commandIsWorkingChanged(working);
    }
}

void ProgressManager::setAltDescriptionVerb(const QString& verb)
{
    if (verb != m_altDescriptionVerb) {
        m_altDescriptionVerb = verb;
        Q_EMIT altDescriptionVerbChanged(m_altDescriptionVerb);
    }
}

void ProgressManager::setAltDescriptionName(const QString& name)
{
    if (name != m_altDescriptionName) {
        m_altDescriptionName = name;
        Q_EMIT altDescriptionNameChanged(m_altDescriptionName);
    }
}

void ProgressManager::setAltDescriptionIconValue(const QVariant& value)
{
    if (value == m_altDescriptionIcon && value.typeId() == m_altDescriptionIcon.typeId()) {
        return;
    }
    m_altDescriptionIcon = value;
    m_altIconImage = QImage();
    Q_EMIT altDescriptionIconChanged();
}

void ProgressManager::setReportedRunTime(qint64 seconds)
{
    if (seconds != m_runTime) {
        m_runTime = seconds;
        setDisplayRunTime(readableRunTime(seconds));
    }
}
