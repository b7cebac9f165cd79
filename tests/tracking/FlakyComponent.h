#pragma once

#include <QDBusContext>
#include <QDBusError>
#include <QObject>
#include <atomic>

// A peer whose first barrier succeeds, so that a connection to it is made, and whose every later
// barrier fails: each message sent to it then counts as a failed attempt.
class FlakyComponent : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.kestrom.KSComponentMessaging")

public:
    std::atomic<int> barriers{0};

public Q_SLOTS:
    void barrierWithCompletion()
    {
        if (barriers.fetch_add(1) > 0) {
            sendErrorReply(QDBusError::Failed, QStringLiteral("flaky peer"));
        }
    }
};
