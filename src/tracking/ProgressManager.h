#pragma once

#include "tracking/CommandManager.h"
#include "tracking/CommandTaskConnection.h"

#include <QImage>
#include <QString>
#include <QVariant>
#include <QVariantMap>
#include <memory>
#include <utility>

class ContextualAlertInfo;

// A command's progress as the panes show it: the primary description, the alternate one (verb,
// item name, icon), the run-time text and the working, waiting and paused states, all turned
// from the command's start, its progress dictionaries and its stop. Queries to the command are
// synchronous round trips; they never fail outward. Main thread only.
class ProgressManager : public CommandManager
{
    Q_OBJECT
    Q_PROPERTY(bool showingAlternateDescription READ showingAlternateDescription NOTIFY
                   showingAlternateDescriptionChanged)
    Q_PROPERTY(bool commandIsWorking READ commandIsWorking NOTIFY commandIsWorkingChanged)
    Q_PROPERTY(QString primaryDescription READ primaryDescription NOTIFY primaryDescriptionChanged)
    Q_PROPERTY(QString altDescriptionVerb READ altDescriptionVerb NOTIFY altDescriptionVerbChanged)
    Q_PROPERTY(QString altDescriptionName READ altDescriptionName NOTIFY altDescriptionNameChanged)
    Q_PROPERTY(QImage altDescriptionIcon READ altDescriptionIcon NOTIFY altDescriptionIconChanged)
    Q_PROPERTY(QString displayRunTime READ displayRunTime NOTIFY displayRunTimeChanged)
    Q_PROPERTY(QString actionUUID READ actionUUID)
    Q_PROPERTY(QString humanReadableCommandName READ humanReadableCommandName)
    Q_PROPERTY(QString displayTitle READ displayTitle)

public:
    static constexpr quint32 kProgressManagerRoles = 3;
    // The flag of an exception that stands for success.
    static inline const QString kNullFlag = QStringLiteral(".Null");

    explicit ProgressManager(QObject* parent = nullptr);
    ~ProgressManager() override;

    quint32 roles() const override;

    bool showingAlternateDescription() const { return m_showingAlternateDescription; }
    bool commandIsWorking() const { return m_commandIsWorking; }
    const QString& primaryDescription() const { return m_primaryDescription; }
    const QString& altDescriptionVerb() const { return m_altDescriptionVerb; }
    const QString& altDescriptionName() const { return m_altDescriptionName; }
    const QString& displayRunTime() const { return m_displayRunTime; }
    // Made from the icon value on first use; a null image when there is none.
    QImage altDescriptionIcon();
    // The number or data last received under "icon"; invalid when there is none.
    const QVariant& altDescriptionIconValue() const { return m_altDescriptionIcon; }
    bool commandPaused() const { return m_commandPaused; }
    // The run time last received, negative while paused; not CommandListener::runTime, which
    // the monitor measures itself.
    qint64 reportedRunTime() const { return m_runTime; }
    bool beginProgressSent() const { return m_beginProgressSent; }

    // Before the start the command is asked when nothing is cached; afterwards only the cache
    // answers, since a command may be gone by then. A null string when unknown.
    QString actionUUID();
    QString actionUUIDReturningCachedValue(bool cachedOnly);
    // "Unknown" when the command never said.
    QString humanReadableCommandName();
    // "Unknown Action" when the command never said.
    QString displayTitle();

    void runCommand() override;
    // Asks the command what it is while it can still answer.
    virtual void beginProgress();
    virtual void endProgress();
    virtual void endProgressWithException(const Exception& exception);
    // The canceled-command rule first, then the rule for any command; none only for none.
    std::unique_ptr<ContextualAlertInfo> chooseAlertForException(const Exception* exception) const;

    void commandDidStart() override;
    void commandProgressDidUpdate(const QVariantMap& dictionary) override;
    void commandDidStopWithException(const ExceptionPtr& exception) override;
    void wasRemovedFromService(CommandListenerService* service) override;

Q_SIGNALS:
    void showingAlternateDescriptionChanged(bool showingAlternateDescription);
    void commandIsWorkingChanged(bool commandIsWorking);
    void primaryDescriptionChanged(const QString& primaryDescription);
    void altDescriptionVerbChanged(const QString& altDescriptionVerb);
    void altDescriptionNameChanged(const QString& altDescriptionName);
    void altDescriptionIconChanged();
    void displayRunTimeChanged(const QString& displayRunTime);

protected:
    using Question = std::pair<QString, QVariantList>;

    // Asks the command every question in one round trip, in order; the first reply value of
    // each, invalid where none came (as when there is no connection). Raises what the
    // connection raises.
    QVariantList askCommand(const QList<Question>& questions);
    // False, and nothing asked, when there is no connection; raises what the connection raises.
    bool performOnCommand(const CommandTaskConnection::Block& block);
    void setPrimaryDescription(const QString& description);
    void setShowingAlternateDescription(bool showing);
    void setDisplayRunTime(const QString& text);

private:
    void interpretProgress(const QVariantMap& progress);
    void setCommandIsWorking(bool working);
    void setAltDescriptionVerb(const QString& verb);
    void setAltDescriptionName(const QString& name);
    void setAltDescriptionIconValue(const QVariant& value);
    void setReportedRunTime(qint64 seconds);
    QString queryString(const QString& member, const QString& failureMessage);

    bool m_beginProgressSent = false;
    QString m_actionUUID;
    QString m_humanReadableCommandName;
    QString m_displayTitle = QStringLiteral("");
    QVariant m_altDescriptionIcon;
    QImage m_altIconImage;
    bool m_badIconLogged = false;
    bool m_commandPaused = false;
    QString m_saveRunningDescription;
    qint64 m_runTime = 0;
    bool m_showingAlternateDescription = false;
    bool m_commandIsWorking = false;
    QString m_primaryDescription;
    QString m_altDescriptionVerb;
    QString m_altDescriptionName;
    QString m_displayRunTime = QStringLiteral("");
};
