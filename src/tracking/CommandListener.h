#pragma once

#include "exception/Exception.h"
#include "messaging/Endpoint.h"

#include <QDateTime>
#include <QObject>
#include <QVariantMap>
#include <functional>
#include <memory>

class AnonymousListener;
class CommandListenerService;

// The monitor's side of one running command: it keeps the command's start time, stop time and
// final exception, and offers the command an endpoint to report them to. Messages arriving on
// the messaging thread are moved here, to the main thread, as the overridable notifications
// below; subclasses that override one call the base.
//
// Listeners are owned through std::shared_ptr (the service's registry holds them), so that a
// message still queued for a listener that has gone finds nothing instead of a dangling object.
// Main thread only, except shouldBeCulledFromService, which the service asks on a background
// thread.
class CommandListener : public QObject, public std::enable_shared_from_this<CommandListener>
{
    Q_OBJECT
    Q_PROPERTY(bool started READ hasStarted NOTIFY startedChanged)
    Q_PROPERTY(QDateTime startTime READ startTime NOTIFY startTimeChanged)
    Q_PROPERTY(bool stopped READ hasStopped NOTIFY stoppedChanged)
    Q_PROPERTY(QDateTime stopTime READ stopTime NOTIFY stopTimeChanged)
    Q_PROPERTY(bool commandIsRunning READ commandIsRunning NOTIFY commandIsRunningChanged)
    Q_PROPERTY(double runTime READ runTime)
    Q_PROPERTY(quint32 roles READ roles CONSTANT)

public:
    using Clock = std::function<QDateTime()>;
    using ExceptionPtr = std::shared_ptr<const Exception>;

    static constexpr quint32 kListenerRole = 1;

    explicit CommandListener(QObject* parent = nullptr);
    ~CommandListener() override;

    // What every listener takes as "now"; tests move time. An empty clock restores the wall clock.
    static void setClock(Clock clock);
    static QDateTime now();

    QDateTime startTime() const { return m_startTime; }
    QDateTime stopTime() const { return m_stopTime; }
    bool hasStarted() const { return m_startTime.isValid(); }
    bool hasStopped() const { return m_stopTime.isValid(); }
    bool commandIsRunning() const { return hasStarted() && !hasStopped(); }
    // Seconds: 0 before the start, then up to the stop, or up to now while running.
    double runTime() const;
    // The exception the command stopped with; none for success or while it runs.
    const ExceptionPtr& exception() const { return m_commandException; }
    virtual quint32 roles() const;
    CommandListenerService* listenerService() const { return m_listenerService; }

    // Where the command reaches this listener: an object served on the messaging thread,
    // made and served on first use.
    Endpoint endpoint();

    // Notifications, on the main thread.
    virtual void commandDidStart();
    virtual void commandProgressDidUpdate(const QVariantMap& dictionary);
    virtual void commandDidStopWithException(const ExceptionPtr& exception);

    // The connection back to the command has been invalidated (main thread).
    virtual void connectionToCommandWasLost();
    virtual void stopListening();
    virtual void disconnect();
    virtual void willBeAddedToService(CommandListenerService* service);
    virtual void wasRemovedFromService(CommandListenerService* service);
    // Asked on a background thread: it must not touch the registry or this object's state.
    virtual bool shouldBeCulledFromService(CommandListenerService* service);

Q_SIGNALS:
    void startedChanged(bool started);
    void startTimeChanged(const QDateTime& startTime);
    void stoppedChanged(bool stopped);
    void stopTimeChanged(const QDateTime& stopTime);
    void commandIsRunningChanged(bool commandIsRunning);

private:
    QDateTime m_startTime;
    QDateTime m_stopTime;
    ExceptionPtr m_commandException;
    CommandListenerService* m_listenerService = nullptr;
    std::unique_ptr<AnonymousListener> m_endpointListener;
};
