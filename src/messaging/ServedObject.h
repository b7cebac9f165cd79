#pragma once

#include <QDBusContext>
#include <QObject>

// Base of every object this process serves to peers: it answers the barrier, and, being a
// D-Bus context, can see the message it is handling (its sender, for delayed replies).
class ServedObject : public QObject, protected QDBusContext
{
    Q_OBJECT
public:
    explicit ServedObject(QObject* parent = nullptr);

    // The reply itself is the answer: every earlier message of the caller has been handled.
    Q_INVOKABLE void barrierWithCompletion() {}
};
