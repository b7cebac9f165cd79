#pragma once

#include "messaging/Endpoint.h"
#include "messaging/NilableString.h"
#include "messaging/ServedObject.h"

#include <QByteArray>
#include <QDBusAbstractAdaptor>
#include <QDBusMessage>
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

    // Runs the work under the lock that guards what the test and the peer thread share.
    template <typename Work> auto locked(Work work) const
    {
        QMutexLocker locker(&m_mutex);
        return work();
    }

    void setAnswers(const Answers& answers)
    {
        locked([&] { m_answers = answers; });
    }
    int count(const QString& member) const
    {
        return locked([&] { return m_counts.value(member); });
    }
    QStringList calls() const
    {
        return locked([&] { return m_calls; });
    }

    std::atomic<bool> finished{false};

public Q_SLOTS:
    QString queryNameWithReply() { return answer(__func__).name; }
    // Null strings answer nil.
    QByteArray queryDisplayDescriptionWithReply()
    {
        return NilableString::archived(answer(__func__).displayDescription);
    }
    QByteArray queryActionUUIDWithReply()
    {
        return NilableString::archived(answer(__func__).actionUUID);
    }
    bool querySupportsProperty(const QString& property)
    {
        return property == u"repositoryRef" && answer(__func__).supportsRepositoryRef;
    }
    bool queryCanCancelWithReply() { return answer(__func__).canCancel; }
    bool queryIsHeldWithReply() { return answer(__func__).isHeld; }
    bool queryIsPausedWithReply() { return answer(__func__).isPaused; }
    bool queryCanPauseWithReply() { return answer(__func__).canPause; }
    QByteArray queryRepositoryRefWithReply() { return answer(__func__).repositoryRef; }
    bool queryIsFinishedWithReply()
    {
        answer(__func__);
        return finished.load();
    }
    QString queryProcessIdentifierWithReply()
    {
        return QStringLiteral("pid-of-") + answer(__func__).name;
    }
    Q_NOREPLY void run() { answer(__func__); }
    Q_NOREPLY void cancelFrom(int origin) { answer(__func__, QString::number(origin)); }
    Q_NOREPLY void addListenerToPublishedService(const QString& name) { answer(__func__, name); }
    Q_NOREPLY void removeListenerWithIdentifier(const QString& id) { answer(__func__, id); }

private:
    Answers answer(const char* member, const QString& argument = QString())
    {
        const QString name = QString::fromLatin1(member);
        return locked([&] {
            ++m_counts[name];
            m_calls.append(argument.isNull() ? name : name + u':' + argument);
            return m_answers;
        });
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

// A report to a listener's endpoint, as a command sends it.
inline QDBusMessage listenerMessage(const Endpoint& listener, const QString& member,
                                    const QVariantList& arguments = {})
{
    QDBusMessage message = QDBusMessage::createMethodCall(
        listener.service(), listener.path(), QStringLiteral("com.kestrom.CommandListenerMessaging"),
        member);
    message.setArguments(arguments);
    return message;
}
