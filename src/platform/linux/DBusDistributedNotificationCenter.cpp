#include "platform/linux/DBusDistributedNotificationCenter.h"

#include <QDBusMessage>
#include <QObject>
#include <atomic>

namespace {
std::atomic<int> s_instances{0};
constexpr int kBusTimeoutMs = 5000;

class SignalReceiver : public QObject
{
    Q_OBJECT
public:
    explicit SignalReceiver(DBusDistributedNotificationCenter* center)
        : m_center(center)
    {}

public Q_SLOTS:
    void posted(const QString& name, const QString& object) { m_center->dispatch(name, object); }

private:
    DBusDistributedNotificationCenter* m_center;
};
} // namespace

DBusDistributedNotificationCenter::DBusDistributedNotificationCenter(QDBusConnection::BusType bus)
    : m_connectionName(QStringLiteral("kestrom-distributed-%1").arg(s_instances.fetch_add(1)))
    , m_connection(QDBusConnection::connectToBus(bus, m_connectionName))
{
    m_thread.setObjectName(QStringLiteral("distributed notifications"));
    auto* receiver = new SignalReceiver(this);
    receiver->moveToThread(&m_thread);
    m_receiver = receiver;
    m_thread.start();
    if (!m_connection.isConnected()) {
        return;
    }
    m_connection.connect(QString(), kPath, kInterface, kSignal, m_receiver,
                         SLOT(posted(QString, QString)));
    // The match rule goes out before this call on the same connection, so once the bus has
    // answered, no notification posted from now on can be missed.
    roundTripToBus();
}

void DBusDistributedNotificationCenter::roundTripToBus()
{
    m_connection.call(QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.DBus"),
                                                     QStringLiteral("/org/freedesktop/DBus"),
                                                     QStringLiteral("org.freedesktop.DBus"),
                                                     QStringLiteral("GetId")),
                      QDBus::Block, kBusTimeoutMs);
}

DBusDistributedNotificationCenter::~DBusDistributedNotificationCenter()
{
    stop();
    delete m_receiver;
    QDBusConnection::disconnectFromBus(m_connectionName);
}

void DBusDistributedNotificationCenter::stop()
{
    if (!m_thread.isRunning()) {
        return;
    }
    if (m_connection.isConnected()) {
        m_connection.disconnect(QString(), kPath, kInterface, kSignal, m_receiver,
                                SLOT(posted(QString, QString)));
    }
    m_thread.quit();
    m_thread.wait();
}

bool DBusDistributedNotificationCenter::isConnected() const
{
    return m_connection.isConnected();
}

void DBusDistributedNotificationCenter::postNotification(const QString& name, const QString& object)
{
    QDBusMessage signal = QDBusMessage::createSignal(kPath, kInterface, kSignal);
    signal << name << object;
    m_connection.send(signal);
    // Sending only queues the signal; a process that posts and then exits (a rotation from a
    // command-line tool) would lose it. The bus answers in order, so its reply means sent.
    roundTripToBus();
}

int DBusDistributedNotificationCenter::addObserver(const QString& name, const QString& object,
                                                   Observer observer)
{
    QMutexLocker locker(&m_mutex);
    const int token = m_nextToken++;
    m_observers.insert(token, {name, object, std::move(observer)});
    return token;
}

void DBusDistributedNotificationCenter::removeObserver(int token)
{
    QMutexLocker locker(&m_mutex);
    m_observers.remove(token);
}

void DBusDistributedNotificationCenter::dispatch(const QString& name, const QString& object)
{
    QList<Observer> matching;
    {
        QMutexLocker locker(&m_mutex);
        for (const Entry& entry : std::as_const(m_observers)) {
            if (entry.name == name && (entry.object.isEmpty() || entry.object == object)) {
                matching.append(entry.observer);
            }
        }
    }
    for (const Observer& observer : matching) {
        observer(name, object);
    }
}

#include "DBusDistributedNotificationCenter.moc"
