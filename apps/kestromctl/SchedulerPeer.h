#pragma once

#include "messaging/ServedObject.h"

#include <QByteArray>
#include <QDateTime>
#include <QMutex>
#include <QStringList>
#include <QVariantList>
#include <optional>

// The per-user scheduler as the monitor meets it: it keeps a list of actions and a hold time,
// answers the questions about them and obeys the hold and run-at requests, posting the
// broadcasts the real one posts. It runs nothing. Each request it receives is printed as one
// line, so a test or a person can follow the conversation. Calls arrive on the messaging
// thread; broadcasts leave from the main thread.
class SchedulerPeer : public ServedObject
{
    Q_OBJECT
public:
    enum class Misbehaviour
    {
        None,
        WrongTypes, // well-formed replies of the wrong kind: a string for an array, a NaN time
        Silent,     // questions are taken and never answered
        Die,        // SIGKILL on the first question
    };

    // Each action is a dictionary: "title", "repname", "uuid", "runnable" and, when it is
    // scheduled, "time" (a date). A hold time of 0 means no hold.
    SchedulerPeer(QVariantList actions, double holdSeconds, Misbehaviour misbehaviour);

    static QStringList misbehaviours();
    static std::optional<Misbehaviour> misbehaviourNamed(const QString& name);

    // StromScheduling
    Q_INVOKABLE QByteArray queryVolatileInfoWithReply();
    Q_INVOKABLE QByteArray queryRunSummariesWithReply();
    Q_INVOKABLE QByteArray queryNextScheduledActionInfoWithReply();
    Q_INVOKABLE QByteArray queryActionsInfoWithReply();
    Q_INVOKABLE double queryHoldTimeWithReply();
    Q_INVOKABLE void setHoldTime(double holdTime);
    Q_INVOKABLE void sabotageScheduleTime(double time);
    Q_INVOKABLE void setAction(const QString& actionIdentifier, double time);
    Q_INVOKABLE void setActionSuspended(const QString& actionIdentifier, bool suspended);
    Q_INVOKABLE void quickCapture(const QByteArray& items, const QString& archive);
    Q_INVOKABLE int launchMetadataService(const QString& service, const QString& commandName);

    // KSComponentInstalling
    Q_INVOKABLE QString queryComponentVersionWithReply();
    Q_INVOKABLE uint queryBuildNumberWithReply();
    Q_INVOKABLE void didInstallComponent();
    Q_INVOKABLE void willUninstallComponent();
    static inline const QString kComponentVersion = QStringLiteral("kestromctl-scheduler");

    // KSComponentPreferencing: the scheduler keeps no preferences of its own here.
    Q_INVOKABLE QByteArray queryComponentPreferenceForKey(const QString& key);
    Q_INVOKABLE bool setComponentPreferenceValue(const QByteArray& value, const QString& key);

private:
    // Prints the request; false when the misbehaviour means the question gets no answer.
    bool answers(const QString& line);
    QByteArray wrongArchive() const;

    const Misbehaviour m_misbehaviour;
    mutable QMutex m_mutex;
    QVariantList m_actions;
    double m_holdSeconds;
};
