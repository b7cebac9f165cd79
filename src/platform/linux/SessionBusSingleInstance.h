#pragma once

#include <QDBusConnection>
#include <QDBusContext>
#include <QObject>
#include <QVariantMap>

// The one process of an application per user: the one that owns the application's well-known
// name on the session bus. The name is claimed without queueing, before anything else is
// offered to peers, so a second start learns at once that it is not wanted. The owner answers
// the desktop's standard activation, which the second start uses to bring it forward.
class SessionBusSingleInstance : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Application")
public:
    enum class Claim
    {
        Owned,
        HeldByAnother,
        Failed, // no bus, or the bus refused: run alone rather than not at all
    };

    SessionBusSingleInstance(QDBusConnection bus, QString name, QString path,
                             QObject* parent = nullptr);

    Claim claim();
    // Asks the current owner to come forward; false when it could not be asked.
    bool activateOwner() const;

Q_SIGNALS:
    void activationRequested();

public Q_SLOTS:
    // Only this user's peers (or the super-user) may bring the window forward, as for every
    // other object the process serves.
    void Activate(const QVariantMap& platformData);

private:
    QDBusConnection m_bus;
    QString m_name;
    QString m_path;
};
