#pragma once

#include "messaging/NilableString.h"
#include "messaging/ServedObject.h"

#include <QByteArray>
#include <QDBusAbstractAdaptor>
#include <QHash>
#include <QMutex>
#include <QStringList>
#include <atomic>

// A repository command as the monitor's tracking questions it. Its answers are set by the test;
// every message it receives is recorded, as "member" or "member:argument", and counted by member.
// It lives on a peer thread, so what the test sets is locked.
class FakeCommand : public ServedObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.kestrom.CommandMessaging")

public:
    struct Answers
    {
        QString name = QStringLiteral("capture");
        QString displayDescription = QStringLiteral("Nightly capture");
        QString actionUUID = QStringLiteral("6F1C2A40-action");
        bool supportsRepositoryRef = true;
        QByteArray repositoryRef = QByteArrayLiteral("archived reference");
        bool canCancel = false;
        bool isHeld = false;
        bool isPaused = false;
        bool canPause = false;
    };

    explicit FakeCommand(const QString& name = QStringLiteral("capture"));

    void setAnswers(const Answers& answers)
    {
        QMutexLocker locker(&m_mutex);
        m_answers = answers;
    }
    int count(const QString& member) const
    {
        QMutexLocker locker(&m_mutex);
        return m_counts.value(member);
    }
    QStringList calls() const
    {
        QMutexLocker locker(&m_mutex);
        return m_calls;
    }

    std::atomic<bool> finished{false};

public Q_SLOTS:
    QString queryNameWithReply() { return answer(u"queryNameWithReply").name; }
    // Null strings answer nil.
    QByteArray queryDisplayDescriptionWithReply()
    {
        return NilableString::archived(
            answer(u"queryDisplayDescriptionWithReply").displayDescription);
    }
    QByteArray queryActionUUIDWithReply()
    {
        return NilableString::archived(answer(u"queryActionUUIDWithReply").actionUUID);
    }
    bool querySupportsProperty(const QString& property)
    {
        return property == QStringLiteral("repositoryRef") &&
               answer(u"querySupportsProperty").supportsRepositoryRef;
    }
    bool queryCanCancelWithReply() { return answer(u"queryCanCancelWithReply").canCancel; }
    bool queryIsHeldWithReply() { return answer(u"queryIsHeldWithReply").isHeld; }
    bool queryIsPausedWithReply() { return answer(u"queryIsPausedWithReply").isPaused; }
    bool queryCanPauseWithReply() { return answer(u"queryCanPauseWithReply").canPause; }
    QByteArray queryRepositoryRefWithReply()
    {
        return answer(u"queryRepositoryRefWithReply").repositoryRef;
    }
    bool queryIsFinishedWithReply()
    {
        answer(u"queryIsFinishedWithReply");
        return finished.load();
    }
    QString queryProcessIdentifierWithReply()
    {
        return QStringLiteral("pid-of-") + answer(u"queryProcessIdentifierWithReply").name;
    }
    Q_NOREPLY void run() { answer(u"run"); }
    Q_NOREPLY void cancelFrom(int origin) { answer(u"cancelFrom", QString::number(origin)); }
    Q_NOREPLY void addListenerToPublishedService(const QString& serviceName)
    {
        answer(u"addListenerToPublishedService", serviceName);
    }
    Q_NOREPLY void removeListenerWithIdentifier(const QString& identifier)
    {
        answer(u"removeListenerWithIdentifier", identifier);
    }

private:
    Answers answer(QStringView member, const QString& argument = QString())
    {
        QMutexLocker locker(&m_mutex);
        ++m_counts[member.toString()];
        m_calls.append(argument.isNull() ? member.toString()
                                         : member.toString() + QLatin1Char(':') + argument);
        return m_answers;
    }

    mutable QMutex m_mutex;
    Answers m_answers;
    QHash<QString, int> m_counts;
    QStringList m_calls;
};

// The repository protocol's member, which travels on its own interface.
class FakeRepositoryCommandAdaptor : public QDBusAbstractAdaptor
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.kestrom.RepositoryCommandMessaging")

public:
    explicit FakeRepositoryCommandAdaptor(FakeCommand* command)
        : QDBusAbstractAdaptor(command)
        , m_command(command)
    {}

public Q_SLOTS:
    QByteArray queryRepositoryRefWithReply() { return m_command->queryRepositoryRefWithReply(); }

private:
    FakeCommand* m_command;
};

inline FakeCommand::FakeCommand(const QString& name)
{
    m_answers.name = name;
    new FakeRepositoryCommandAdaptor(this);
}
