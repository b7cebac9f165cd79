#include "tracking/CommandInfo.h"

#include "foundation/KeyedArchive.h"
#include "messaging/ProtocolCatalogue.h"
#include "preferences/MonitorDefaults.h"
#include "preferences/WTUserPreferences.h"
#include "tracking/CommandInterface.h"

#include <QFileInfo>
#include <QHash>
#include <QList>
#include <QMetaType>
#include <QSet>
#include <QStringList>
#include <utility>

namespace {
const QString kInstallProtocol = QStringLiteral("InstallCommandMessaging");

// Kept in this order: the first pair whose command name matches wins. "open" has no class.
const QList<std::pair<QString, QString>>& classNames()
{
    static const QList<std::pair<QString, QString>> pairs{
        {QStringLiteral("install"), QStringLiteral("InstallCommand")},
        {QStringLiteral("create"), QStringLiteral("CreateRepositoryCommand")},
        {QStringLiteral("capture"), QStringLiteral("CaptureCommand")},
        {QStringLiteral("restore"), QStringLiteral("RestoreCommand")},
        {QStringLiteral("recall"), QStringLiteral("RecallCommand")},
        {QStringLiteral("merge"), QStringLiteral("MergeCommand")},
        {QStringLiteral("combine"), QStringLiteral("CombineCommand")},
        {QStringLiteral("delete"), QStringLiteral("DeleteLayerCommand")},
        {QStringLiteral("erase"), QStringLiteral("DeleteItemCommand")},
        {QStringLiteral("compact"), QStringLiteral("CompactCommand")},
        {QStringLiteral("verify"), QStringLiteral("VerifyCommand")},
        {QStringLiteral("encrypt"), QStringLiteral("EncryptCommand")},
        {QStringLiteral("correction"), QStringLiteral("CorrectionCommand")},
        {QStringLiteral("reindex"), QStringLiteral("ReindexCommand")},
        {QStringLiteral("repair"), QStringLiteral("RepairCommand")},
        {QStringLiteral("dump"), QStringLiteral("DumpCommand")},
    };
    return pairs;
}

// "erase" and "delete" both read "Delete"; "correction" reads "Inflate".
const QHash<QString, QString>& displayNames()
{
    static const QHash<QString, QString> table{
        {QStringLiteral("install"), QStringLiteral("Install")},
        {QStringLiteral("open"), QStringLiteral("Open")},
        {QStringLiteral("create"), QStringLiteral("Create")},
        {QStringLiteral("capture"), QStringLiteral("Capture")},
        {QStringLiteral("restore"), QStringLiteral("Restore")},
        {QStringLiteral("recall"), QStringLiteral("Recall")},
        {QStringLiteral("merge"), QStringLiteral("Merge")},
        {QStringLiteral("combine"), QStringLiteral("Combine")},
        {QStringLiteral("delete"), QStringLiteral("Delete")},
        {QStringLiteral("erase"), QStringLiteral("Delete")},
        {QStringLiteral("compact"), QStringLiteral("Compact")},
        {QStringLiteral("verify"), QStringLiteral("Verify")},
        {QStringLiteral("reindex"), QStringLiteral("Reindex")},
        {QStringLiteral("repair"), QStringLiteral("Repair")},
        {QStringLiteral("dump"), QStringLiteral("Dump")},
        {QStringLiteral("encrypt"), QStringLiteral("Encrypt")},
        {QStringLiteral("correction"), QStringLiteral("Inflate")},
    };
    return table;
}

// The classes install parameters may carry; the platform's dictionary, array, string and
// number are the archive's property-list kinds.
QSet<QString> installParameterClasses()
{
    const QStringList wanted{QStringLiteral("InstallComponent"),
                             QStringLiteral("ActionPowerRequest"),
                             QStringLiteral("LogLineIdentifier"),
                             KeyedArchive::kDictionary,
                             KeyedArchive::kArray,
                             KeyedArchive::kString,
                             KeyedArchive::kNumber};
    const QSet<QString> plistKinds = KeyedArchive::propertyListClasses();
    QSet<QString> classes;
    for (const QString& name : wanted) {
        // Names that are no class of this process are skipped.
        if (plistKinds.contains(name) || KeyedArchive::isRegisteredClass(name)) {
            classes.insert(name);
        }
    }
    return classes;
}

QSet<QString> scriptExtensions()
{
    static const QSet<QString> extensions = [] {
        const QString joined =
            WTUserPreferences::sharedPreferences()
                .valueForKey(MonitorDefaults::kOSAScriptExtensions,
                             WTUserPreferences::kHelperDomain, QStringLiteral("scpt"))
                .toString();
        const QStringList parts = joined.split(QLatin1Char(':'));
        return QSet<QString>(parts.cbegin(), parts.cend());
    }();
    return extensions;
}
} // namespace

CommandInfo::CommandInfo(QObject* parent)
    : QObject(parent)
{}

CommandInfo::~CommandInfo() = default;

QString CommandInfo::classNameForCommandName(const QString& name)
{
    for (const auto& [command, className] : classNames()) {
        if (command == name) {
            return className;
        }
    }
    return {};
}

const QMetaObject* CommandInfo::classForCommandName(const QString& name)
{
    const QString className = classNameForCommandName(name);
    if (className.isEmpty()) {
        return nullptr;
    }
    const QMetaType type = QMetaType::fromName((className + QLatin1Char('*')).toLatin1());
    return type.isValid() ? type.metaObject() : nullptr;
}

QString CommandInfo::commandName() const
{
    const QString className = QString::fromLatin1(metaObject()->className());
    for (const auto& [command, commandClass] : classNames()) {
        if (commandClass == className) {
            return command;
        }
    }
    return {};
}

QString CommandInfo::protocolForName(const QString& name)
{
    // The catalogue holds the table of the wire, irregular rows included.
    return ProtocolCatalogue::protocolForCommandName(name);
}

CommandInterface CommandInfo::interfaceForName(const QString& name)
{
    CommandInterface interface(protocolForName(name));
    for (const QString& protocol : interface.chain()) {
        if (protocol == kInstallProtocol) {
            interface.setClasses(installParameterClasses(), QStringLiteral("setInstallParameters"),
                                 0);
        }
    }
    return interface;
}

QString CommandInfo::humanReadableNameForCommandName(const QString& name)
{
    return displayNames().value(name, QStringLiteral("Command"));
}

bool CommandInfo::commandNeedsPrivileges(const QString& name)
{
    static const QSet<QString> privileged{QStringLiteral("install"), QStringLiteral("capture"),
                                          QStringLiteral("recall"), QStringLiteral("restore")};
    return privileged.contains(name);
}

bool CommandInfo::fileIsOSAScript(const QString& path)
{
    const QString extension = QFileInfo(path).suffix();
    return !extension.isEmpty() && scriptExtensions().contains(extension);
}
