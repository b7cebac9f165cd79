#include "messaging/ProtocolCatalogue.h"

#include "foundation/KeyedArchive.h"

#include <QFile>
#include <QHash>
#include <QList>
#include <QXmlStreamReader>
#include <stdexcept>

namespace {
const QString kInterfacePrefix = QStringLiteral("com.kestrom.");
const QString kArchivedClassAnnotation = QStringLiteral("com.kestrom.ArchivedClass.");
const QString kProxyProtocolAnnotation = QStringLiteral("com.kestrom.ProxyProtocol.");
const QString kCommandMessaging = QStringLiteral("CommandMessaging");

struct TreeEntry
{
    QString protocol;
    QStringList parents;
};

const QList<TreeEntry>& tree()
{
    static const QList<TreeEntry> entries = [] {
        const QString serving = QStringLiteral("KSComponentServing");
        const QString repository = QStringLiteral("RepositoryCommandMessaging");
        const QStringList servedService{serving, QStringLiteral("KSComponentPreferencing"),
                                        QStringLiteral("CommandListenerServiceProvider")};
        QList<TreeEntry> list{
            {QStringLiteral("KSComponentMessaging"), {}},
            {QStringLiteral("KSComponentInstalling"), {}},
            {serving,
             {QStringLiteral("KSComponentMessaging"), QStringLiteral("KSComponentInstalling")}},
            {QStringLiteral("KSComponentPreferencing"), {}},
            {QStringLiteral("CommandListenerServiceProvider"), {}},
            {QStringLiteral("StromMonitoring"), servedService},
            {QStringLiteral("StromScheduling"), servedService},
            {QStringLiteral("StromSwitchboarding"), {serving}},
            {QStringLiteral("StromSwitchboarding_private"),
             {QStringLiteral("StromSwitchboarding")}},
            {QStringLiteral("SwitchboardSubscribing"), {}},
            {QStringLiteral("CommandListenerMessaging"), {}},
            {kCommandMessaging, {serving}},
            {QStringLiteral("InstallCommandMessaging"), {kCommandMessaging}},
            {repository, {kCommandMessaging}},
            {QStringLiteral("RestoreCommandMessaging"), {repository}},
            {QStringLiteral("RecallCommandMessaging"), {QStringLiteral("RestoreCommandMessaging")}},
        };
        for (const char* leaf :
             {"CreateRepositoryCommandMessaging", "CaptureCommandMessaging",
              "MergeCommandMessaging", "CombineCommandMessaging", "DeleteItemCommandMessaging",
              "CompactCommandMessaging", "RepairCommandMessaging", "DumpCommandMessaging",
              "EncryptCommandMessaging", "CorrectionCommandMessaging"}) {
            list.append({QString::fromLatin1(leaf), {repository}});
        }
        return list;
    }();
    return entries;
}

const TreeEntry* treeEntry(const QString& protocol)
{
    for (const TreeEntry& entry : tree()) {
        if (entry.protocol == protocol) {
            return &entry;
        }
    }
    return nullptr;
}

// "delete", "verify" and "reindex" deliberately share the plain repository protocol, while
// "erase" is the one that removes items.
const QHash<QString, QString>& commandProtocols()
{
    static const QHash<QString, QString> table{
        {QStringLiteral("install"), QStringLiteral("InstallCommandMessaging")},
        {QStringLiteral("create"), QStringLiteral("CreateRepositoryCommandMessaging")},
        {QStringLiteral("capture"), QStringLiteral("CaptureCommandMessaging")},
        {QStringLiteral("restore"), QStringLiteral("RestoreCommandMessaging")},
        {QStringLiteral("recall"), QStringLiteral("RecallCommandMessaging")},
        {QStringLiteral("merge"), QStringLiteral("MergeCommandMessaging")},
        {QStringLiteral("combine"), QStringLiteral("CombineCommandMessaging")},
        {QStringLiteral("delete"), QStringLiteral("RepositoryCommandMessaging")},
        {QStringLiteral("erase"), QStringLiteral("DeleteItemCommandMessaging")},
        {QStringLiteral("compact"), QStringLiteral("CompactCommandMessaging")},
        {QStringLiteral("verify"), QStringLiteral("RepositoryCommandMessaging")},
        {QStringLiteral("reindex"), QStringLiteral("RepositoryCommandMessaging")},
        {QStringLiteral("repair"), QStringLiteral("RepairCommandMessaging")},
        {QStringLiteral("dump"), QStringLiteral("DumpCommandMessaging")},
        {QStringLiteral("encrypt"), QStringLiteral("EncryptCommandMessaging")},
        {QStringLiteral("correction"), QStringLiteral("CorrectionCommandMessaging")},
    };
    return table;
}

struct Argument
{
    QString type;
    QString archivedClass;
    QString proxyProtocol;
};

struct Method
{
    QList<Argument> ins;
    QList<Argument> outs;
    bool noReply = false;
};

struct ParsedProtocol
{
    QStringList memberOrder;
    QHash<QString, Method> members;
};

// Annotations name an argument by direction and index ("In1", "Out0").
void applyAnnotation(Method& method, const QString& name, const QString& value)
{
    if (name == QLatin1String("org.freedesktop.DBus.Method.NoReply")) {
        method.noReply = value == u"true";
        return;
    }
    const bool archived = name.startsWith(kArchivedClassAnnotation);
    const bool proxy = name.startsWith(kProxyProtocolAnnotation);
    if (!archived && !proxy) {
        return;
    }
    const QString slot =
        name.mid((archived ? kArchivedClassAnnotation : kProxyProtocolAnnotation).size());
    const bool in = slot.startsWith(QStringLiteral("In"));
    const bool out = slot.startsWith(QStringLiteral("Out"));
    bool ok = false;
    const int index = slot.mid(in ? 2 : 3).toInt(&ok);
    QList<Argument>& arguments = in ? method.ins : method.outs;
    if ((!in && !out) || !ok || index < 0 || index >= arguments.size()) {
        throw std::logic_error("annotation names no argument: " + name.toStdString());
    }
    (archived ? arguments[index].archivedClass : arguments[index].proxyProtocol) = value;
}

Method readMethod(QXmlStreamReader& reader)
{
    Method method;
    QList<std::pair<QString, QString>> annotations;
    while (reader.readNextStartElement()) {
        const auto attributes = reader.attributes();
        if (reader.name() == u"arg") {
            const bool out = attributes.value(QLatin1String("direction")) == u"out";
            (out ? method.outs : method.ins)
                .append({attributes.value(QLatin1String("type")).toString(), {}, {}});
        } else if (reader.name() == u"annotation") {
            annotations.append({attributes.value(QLatin1String("name")).toString(),
                                attributes.value(QLatin1String("value")).toString()});
        }
        reader.skipCurrentElement();
    }
    // Annotations may precede the arguments they describe.
    for (const auto& [name, value] : annotations) {
        applyAnnotation(method, name, value);
    }
    return method;
}

void readInterface(QXmlStreamReader& reader, QHash<QString, ParsedProtocol>& protocols)
{
    const QString name = reader.attributes().value(QLatin1String("name")).toString();
    if (!name.startsWith(kInterfacePrefix)) {
        throw std::logic_error("interface outside the product's name space: " + name.toStdString());
    }
    ParsedProtocol& protocol = protocols[name.mid(kInterfacePrefix.size())];
    while (reader.readNextStartElement()) {
        if (reader.name() == u"method") {
            const QString member = reader.attributes().value(QLatin1String("name")).toString();
            protocol.memberOrder.append(member);
            protocol.members.insert(member, readMethod(reader));
        } else {
            reader.skipCurrentElement();
        }
    }
}

// Interfaces of other name spaces (the bus's own, in a live object's document) are skipped
// only when asked to: in the product's files they are a defect.
void readDocument(QXmlStreamReader& reader, QHash<QString, ParsedProtocol>& protocols,
                  bool productOnly)
{
    if (reader.readNextStartElement() && reader.name() == u"node") {
        while (reader.readNextStartElement()) {
            const bool product =
                reader.attributes().value(QLatin1String("name")).startsWith(kInterfacePrefix);
            if (reader.name() == u"interface" && (product || !productOnly)) {
                readInterface(reader, protocols);
            } else {
                reader.skipCurrentElement();
            }
        }
    }
}

void readFile(const QString& path, QHash<QString, ParsedProtocol>& protocols)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        throw std::logic_error("interface file missing: " + path.toStdString());
    }
    QXmlStreamReader reader(&file);
    readDocument(reader, protocols, false);
    if (reader.hasError()) {
        throw std::logic_error("interface file unreadable: " + path.toStdString() + ": " +
                               reader.errorString().toStdString());
    }
}

QString typesOf(const QList<Argument>& arguments)
{
    QString types;
    for (const Argument& argument : arguments) {
        types += argument.type;
    }
    return types;
}

QStringList rowsOf(const QHash<QString, ParsedProtocol>& protocols)
{
    QStringList rows;
    for (auto protocol = protocols.cbegin(); protocol != protocols.cend(); ++protocol) {
        for (auto method = protocol->members.cbegin(); method != protocol->members.cend();
             ++method) {
            QString row = QStringLiteral("%1.%2(%3)(%4)")
                              .arg(kInterfacePrefix + protocol.key(), method.key(),
                                   typesOf(method->ins), typesOf(method->outs));
            for (const auto& [direction, arguments] : {std::pair{QStringLiteral("In"), method->ins},
                                                       {QStringLiteral("Out"), method->outs}}) {
                for (qsizetype index = 0; index < arguments.size(); ++index) {
                    const Argument& argument = arguments.at(index);
                    const QString slot = direction + QString::number(index);
                    if (!argument.archivedClass.isEmpty()) {
                        row += QStringLiteral(" %1=%2").arg(slot, argument.archivedClass);
                    }
                    if (!argument.proxyProtocol.isEmpty()) {
                        row += QStringLiteral(" %1=proxy:%2").arg(slot, argument.proxyProtocol);
                    }
                }
            }
            if (method->noReply) {
                row += QStringLiteral(" noreply");
            }
            rows.append(row);
        }
    }
    rows.sort();
    return rows;
}

// The files are compiled into the library; a missing or malformed one is a build defect.
const QHash<QString, ParsedProtocol>& parsed()
{
    static const QHash<QString, ParsedProtocol> protocols = [] {
        QHash<QString, ParsedProtocol> result;
        for (const TreeEntry& entry : tree()) {
            readFile(ProtocolCatalogue::resourceFolder() + QLatin1Char('/') +
                         ProtocolCatalogue::interfaceName(entry.protocol) + QStringLiteral(".xml"),
                     result);
        }
        return result;
    }();
    return protocols;
}

const Method* methodFor(const QString& protocol, const QString& member, QString* declaredBy)
{
    for (const QString& candidate : ProtocolCatalogue::chainOf(protocol)) {
        const auto found = parsed().constFind(candidate);
        if (found == parsed().cend()) {
            continue;
        }
        const auto method = found->members.constFind(member);
        if (method != found->members.cend()) {
            if (declaredBy) {
                *declaredBy = candidate;
            }
            return &*method;
        }
    }
    return nullptr;
}

// Classes looked up by name: only those this process knows how to decode are allowed.
void addRegistered(QSet<QString>& classes, std::initializer_list<const char*> names)
{
    for (const char* name : names) {
        const QString className = QString::fromLatin1(name);
        if (KeyedArchive::isRegisteredClass(className)) {
            classes.insert(className);
        }
    }
}

QSet<QString> declaredClasses(const Argument& argument)
{
    if (argument.type != u"ay") {
        return {};
    }
    if (argument.archivedClass.isEmpty()) {
        return KeyedArchive::propertyListClasses();
    }
    QSet<QString> classes;
    for (const QString& name : argument.archivedClass.split(QLatin1Char(','))) {
        classes.insert(name.trimmed());
    }
    return classes;
}
} // namespace

QStringList ProtocolCatalogue::wireTable()
{
    return rowsOf(parsed());
}

QStringList ProtocolCatalogue::wireTableOf(const QByteArray& introspection)
{
    QHash<QString, ParsedProtocol> protocols;
    QXmlStreamReader reader(introspection);
    try {
        readDocument(reader, protocols, true);
    } catch (const std::logic_error&) {
        return {QStringLiteral("(annotations that name no argument)")};
    }
    if (reader.hasError()) {
        return {QStringLiteral("(unreadable: %1)").arg(reader.errorString())};
    }
    return rowsOf(protocols);
}

QString ProtocolCatalogue::resourceFolder()
{
    return QStringLiteral(":/com/kestrom/interfaces");
}

QStringList ProtocolCatalogue::protocols()
{
    QStringList names;
    for (const TreeEntry& entry : tree()) {
        names.append(entry.protocol);
    }
    return names;
}

bool ProtocolCatalogue::isKnownProtocol(const QString& protocol)
{
    return treeEntry(protocol) != nullptr;
}

QString ProtocolCatalogue::protocolForCommandName(const QString& name)
{
    return commandProtocols().value(name, kCommandMessaging);
}

QStringList ProtocolCatalogue::parentsOf(const QString& protocol)
{
    const TreeEntry* entry = treeEntry(protocol);
    return entry ? entry->parents : QStringList();
}

QStringList ProtocolCatalogue::chainOf(const QString& protocol)
{
    if (!isKnownProtocol(protocol)) {
        return {};
    }
    QStringList chain{protocol};
    for (qsizetype next = 0; next < chain.size(); ++next) {
        for (const QString& parent : parentsOf(chain.at(next))) {
            if (!chain.contains(parent)) {
                chain.append(parent);
            }
        }
    }
    return chain;
}

QString ProtocolCatalogue::interfaceName(const QString& protocol)
{
    return kInterfacePrefix + protocol;
}

QStringList ProtocolCatalogue::ownMembersOf(const QString& protocol)
{
    return parsed().value(protocol).memberOrder;
}

bool ProtocolCatalogue::declares(const QString& protocol, const QString& member)
{
    return methodFor(protocol, member, nullptr) != nullptr;
}

QString ProtocolCatalogue::declaringProtocol(const QString& protocol, const QString& member)
{
    QString declaredBy;
    methodFor(protocol, member, &declaredBy);
    return declaredBy;
}

QSet<QString> ProtocolCatalogue::allowedClassesFor(const QString& protocol, const QString& member,
                                                   int argumentIndex)
{
    QString declaredBy;
    const Method* method = methodFor(protocol, member, &declaredBy);
    if (!method || argumentIndex < 0 || argumentIndex >= method->ins.size()) {
        return {};
    }
    // The one argument with a list of its own: install parameters may carry the installer's
    // records as well as plain property-list values.
    if (declaredBy == u"InstallCommandMessaging" && member == u"setInstallParameters" &&
        argumentIndex == 0) {
        QSet<QString> classes{KeyedArchive::kDictionary, KeyedArchive::kArray,
                              KeyedArchive::kString, KeyedArchive::kNumber};
        addRegistered(classes, {"ActionPowerRequest", "InstallComponent", "LogLineIdentifier"});
        return classes;
    }
    return declaredClasses(method->ins.at(argumentIndex));
}

QSet<QString> ProtocolCatalogue::allowedReplyClassesFor(const QString& protocol,
                                                        const QString& member, int replyIndex)
{
    QString declaredBy;
    const Method* method = methodFor(protocol, member, &declaredBy);
    if (!method || replyIndex < 0 || replyIndex >= method->outs.size()) {
        return {};
    }
    // The scheduler's interface widens this reply; its summary class is looked up by name.
    if (declaredBy == u"StromScheduling" && member == u"queryRunSummariesWithReply" &&
        replyIndex == 0) {
        QSet<QString> classes{KeyedArchive::kDictionary, KeyedArchive::kString};
        addRegistered(classes, {"ActionRunSummary"});
        return classes;
    }
    return declaredClasses(method->outs.at(replyIndex));
}

QString ProtocolCatalogue::proxyProtocolForReply(const QString& protocol, const QString& member,
                                                 int replyIndex)
{
    const Method* method = methodFor(protocol, member, nullptr);
    if (!method || replyIndex < 0 || replyIndex >= method->outs.size()) {
        return {};
    }
    return method->outs.at(replyIndex).proxyProtocol;
}
