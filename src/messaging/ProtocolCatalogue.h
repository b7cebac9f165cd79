#pragma once

#include <QSet>
#include <QString>
#include <QStringList>

// What the message protocols are and how they relate: the protocol tree, which protocol a
// command speaks, what each protocol's proxy offers and which archived classes each argument
// may carry. The members and their types are read from the introspection files built into the
// library, so the wire has one source of truth. In those files a keyed-archive argument names
// the class it holds with the method annotation "com.kestrom.ArchivedClass.In<n>" / "Out<n>"
// (several classes separated by commas: "String,Null" is a string that may be nil),
// and an endpoint that travels as a live proxy names its protocol with
// "com.kestrom.ProxyProtocol.Out<n>" (n counts the arguments of one direction only). An archive
// argument without a named class holds any property-list value.
//
// Safe to call from any thread; the files are parsed once, on first use.
class ProtocolCatalogue
{
public:
    // Every protocol of the tree, parents before children.
    static QStringList protocols();
    static bool isKnownProtocol(const QString& protocol);

    // The protocol of a command's proxy, from its lower-case command name; CommandMessaging for
    // a name not in the table.
    static QString protocolForCommandName(const QString& name);

    // Direct parents, in declaration order; empty for a root or an unknown protocol.
    static QStringList parentsOf(const QString& protocol);
    // The protocol and all its ancestors, each once, nearest first (breadth first).
    static QStringList chainOf(const QString& protocol);
    static QString interfaceName(const QString& protocol);

    // Members the protocol itself adds, in file order (ancestors' members excluded).
    static QStringList ownMembersOf(const QString& protocol);
    // Whether a proxy of the protocol offers the member, its own or an ancestor's.
    static bool declares(const QString& protocol, const QString& member);
    // The nearest protocol of the chain that adds the member, empty when none does.
    static QString declaringProtocol(const QString& protocol, const QString& member);

    // Keyed-archive classes accepted in an object argument (counting the member's in-arguments
    // only); empty for an argument that is not an archive or a member the chain lacks.
    static QSet<QString> allowedClassesFor(const QString& protocol, const QString& member,
                                           int argumentIndex);
    // The same for the member's reply values.
    static QSet<QString> allowedReplyClassesFor(const QString& protocol, const QString& member,
                                                int replyIndex);
    // The protocol spoken by the object whose endpoint comes back in a reply value, so that the
    // caller binds a proxy to it instead of keeping a copy; empty for any other reply value.
    static QString proxyProtocolForReply(const QString& protocol, const QString& member,
                                         int replyIndex);

    // The wire in one line per member, sorted: "<interface>.<member>(<in types>)(<out types>)",
    // then " In1=<classes>" or " Out0=proxy:<protocol>" for each annotated argument, then
    // " noreply" for a one-way member.
    static QStringList wireTable();
    // The same lines for what a live object's introspection document declares of the
    // product's interfaces; one line saying why for a document that cannot be read.
    static QStringList wireTableOf(const QByteArray& introspection);

    // Where the introspection files are found in the resources.
    static QString resourceFolder();
};
