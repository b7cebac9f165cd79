#pragma once

#include "messaging/ServedObject.h"

#include <QByteArray>
#include <memory>

class CommandListener;

// What a command talks to: the served side of one listener, on the messaging thread. It never
// waits there: every message is queued to the main thread in arrival order, and the stop is
// answered only once the main thread has handled it, so a command that waits for that answer
// knows its stop was seen.
class CommandListenerEndpoint : public ServedObject
{
    Q_OBJECT

public:
    explicit CommandListenerEndpoint(std::weak_ptr<CommandListener> listener,
                                     QObject* parent = nullptr);

    Q_INVOKABLE void commandStarted();
    Q_INVOKABLE void progressUpdate(const QByteArray& dictionary);
    Q_INVOKABLE void commandStoppedWithExceptionData(const QByteArray& data);
    // The empty reply is the answer: commands ping with it.
    Q_INVOKABLE void doNothingButReply() {}

    // The progress dictionary as archived by the command; raises a KSException when the data
    // are not an archive of a dictionary. Empty data are an empty dictionary.
    static QVariantMap decodeProgress(const QByteArray& dictionary);

private:
    std::weak_ptr<CommandListener> m_listener;
};
