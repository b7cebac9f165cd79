#pragma once

#include <QDBusArgument>
#include <QDBusObjectPath>
#include <QMetaType>
#include <QString>

// Where an anonymous listener can be reached: the unique bus name of its process's messaging
// connection and the object path it is served at. ("", "/") is none.
class Endpoint
{
public:
    Endpoint() = default;
    Endpoint(QString service, QString path);

    const QString& service() const { return m_service; }
    const QString& path() const { return m_path; }
    bool isNone() const { return m_service.isEmpty(); }
    QString description() const;

    bool operator==(const Endpoint& other) const = default;

    // Needed before any object using the type is registered on a connection.
    static void registerMetaType();

private:
    QString m_service;
    QString m_path = QStringLiteral("/");
};

QDBusArgument& operator<<(QDBusArgument& argument, const Endpoint& endpoint);
const QDBusArgument& operator>>(const QDBusArgument& argument, Endpoint& endpoint);

Q_DECLARE_METATYPE(Endpoint)
