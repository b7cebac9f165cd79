#pragma once

#include <QHash>
#include <QSet>
#include <QString>
#include <QStringList>

// What the monitor may say to a command of one kind: the command's protocol with its chain of
// ancestors up to CommandMessaging, the bus interface that carries each member, and the archived
// classes each argument may hold.
class CommandInterface
{
public:
    static inline const QString kCommandMessaging = QStringLiteral("CommandMessaging");

    explicit CommandInterface(const QString& protocol = kCommandMessaging);

    const QString& protocol() const { return m_protocol; }
    // The protocol, then its ancestors, up to CommandMessaging or a protocol outside the chains.
    const QStringList& chain() const { return m_chain; }
    bool declares(const QString& member) const;
    // The bus interface of the protocol of the chain that adds the member; empty if none does.
    QString interfaceNameFor(const QString& member) const;
    // Classes set for the argument when the interface was configured, else the catalogue's.
    QSet<QString> allowedClassesFor(const QString& member, int argumentIndex) const;
    void setClasses(const QSet<QString>& classes, const QString& member, int argumentIndex);

private:
    static QString slot(const QString& member, int argumentIndex);

    QString m_protocol;
    QStringList m_chain;
    QHash<QString, QSet<QString>> m_classes;
};
