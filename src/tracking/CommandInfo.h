#pragma once

#include <QObject>
#include <QString>

class CommandInterface;

// What the monitor knows about command kinds without asking a command: names, implementing
// classes, protocols, display names, privilege needs and script types. A command class of this
// process derives from CommandInfo and registers its pointer type with the meta-type system
// (qRegisterMetaType<DumpCommand*>()), which is how a class is found by its name.
class CommandInfo : public QObject
{
    Q_OBJECT

public:
    explicit CommandInfo(QObject* parent = nullptr);
    ~CommandInfo() override;

    static QString classNameForCommandName(const QString& name);
    // The registered class of that name in this process, or none.
    static const QMetaObject* classForCommandName(const QString& name);
    // The command name of this object's class; empty for a class outside the table.
    QString commandName() const;
    static QString protocolForName(const QString& name);
    static CommandInterface interfaceForName(const QString& name);
    static QString humanReadableNameForCommandName(const QString& name);
    static bool commandNeedsPrivileges(const QString& name);
    static bool fileIsOSAScript(const QString& path);
};
