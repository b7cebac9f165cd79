#pragma once

#include <QDBusContext>
#include <QObject>
#include <QVariantList>
#include <functional>

// Base of every object this process serves to peers: it answers the barrier, and, being a
// D-Bus context, can see the message it is handling (its sender, for delayed replies).
class ServedObject : public QObject, protected QDBusContext
{
    Q_OBJECT
public:
    explicit ServedObject(QObject* parent = nullptr);

    // The reply itself is the answer: every earlier message of the caller has been handled.
    // An object that hands its work to the main thread answers from there, behind that work.
    Q_INVOKABLE void barrierWithCompletion();

protected:
    void setAnswersBarrierOnMainThread(bool onMainThread) { m_barrierOnMainThread = onMainThread; }

    // Answers the call being handled once the main thread has done the work, without this
    // thread waiting for it: the reply carries the values the work returns. Call it from an
    // incoming call only; the caller's own return value is then ignored.
    void replyFromMainThread(std::function<QVariantList()> work);
    // The same, with the work run where `run` puts it (a worker pool, for work that reads files).
    using Runner = std::function<void(std::function<void()> job)>;
    void replyThrough(const Runner& run, std::function<QVariantList()> work);

private:
    friend class GatedAdaptor;
    // Only peers of this user (or the super-user the privileged commands run as) are served:
    // a call from anyone else is answered with an access error and one log line. True when
    // the call being handled was refused. Asked by the adaptors' gate before every member.
    bool refusesCaller(const char* member);

    bool m_barrierOnMainThread = false;
};
