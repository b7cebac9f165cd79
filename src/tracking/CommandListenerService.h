#pragma once

#include <QHash>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QString>
#include <QTimer>
#include <QVariantMap>
#include <atomic>
#include <chrono>
#include <memory>
#include <optional>

class CommandListener;
class CommandListenerServiceDelegate;

// The process's registry of listeners, one per running command identifier. It makes listeners
// through its delegate on demand and culls those whose commands have gone silent and say they
// are finished, or can no longer be reached. Main thread only, apart from the delegate
// accessors; the cull questions run on a background thread and never touch the registry.
class CommandListenerService : public QObject
{
    Q_OBJECT

public:
    using ListenerPtr = std::shared_ptr<CommandListener>;

    static constexpr std::chrono::milliseconds kDefaultCullInterval{121000};

    explicit CommandListenerService(QObject* parent = nullptr);
    ~CommandListenerService() override;

    // Made on first use, which must be on the main thread; lives for the process.
    static CommandListenerService& sharedService();

    // The period of cull timers started from now on; tests and the monitor's option shorten it.
    static void setCullInterval(std::chrono::milliseconds interval);
    static std::chrono::milliseconds cullInterval();

    ListenerPtr listenerForCommandIdentifier(const QString& identifier, const QVariantMap& info);
    bool hasListenerForCommandIdentifier(const QString& identifier) const;
    ListenerPtr listenerForIdentifier(const QString& identifier) const;
    QList<ListenerPtr> listeners() const;

    // The first listener added under an identifier wins; adding again does nothing.
    void addListener(const ListenerPtr& listener, const QString& identifier);
    // By identity; an empty registry afterwards stops the cull timer, found or not.
    void removeListener(const CommandListener* listener);
    void removeAllListeners();
    void didUpdateStatusForListener(const CommandListener* listener);
    void notifyRemovalOfListener(const ListenerPtr& listener);
    // What the cull timer calls; public so that a cull can be asked for at a known moment.
    void cullTime();

    // The listeners that reported since the last cull; none while no cull timer runs.
    std::optional<QSet<const CommandListener*>> activeListeners() const;
    // None exactly while the registry is empty.
    const QTimer* cullTimer() const { return m_cullTimer.data(); }

    // Not owned: whoever sets it clears it before it goes. Any thread.
    CommandListenerServiceDelegate* delegate() const { return m_delegate.load(); }
    void setDelegate(CommandListenerServiceDelegate* delegate) { m_delegate.store(delegate); }

    QString switchboardName() const { return m_switchboardName; }
    // Also becomes the service identifier.
    void setSwitchboardName(const QString& name);
    QString serviceIdentifier() const { return m_serviceIdentifier; }
    bool published() const { return !m_switchboardName.isNull(); }

Q_SIGNALS:
    // On the main thread, when a cull question has come back (after any removal it caused).
    void cullQuestionAnswered(CommandListener* listener, bool culled);

private:
    void startCullTimer();
    void stopCullTimer();

    QHash<QString, ListenerPtr> m_listeners;
    // Insertion order, so "the first identifier whose listener is this object" is well defined.
    QList<QString> m_order;
    std::optional<QSet<const CommandListener*>> m_activeListeners;
    QPointer<QTimer> m_cullTimer;
    std::atomic<CommandListenerServiceDelegate*> m_delegate{nullptr};
    QString m_switchboardName;
    QString m_serviceIdentifier;
};
