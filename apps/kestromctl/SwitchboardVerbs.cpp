#include "SwitchboardVerbs.h"

#include "MessageFlood.h"
#include "exception/ValueDescription.h"
#include "messaging/InterfaceNames.h"
#include "messaging/KSConnectionServiceSingleton.h"
#include "messaging/KSPublishedConnection.h"
#include "messaging/KSSwitchboardConnection.h"
#include "messaging/ServedObject.h"
#include "platform/UnixSignalWatcher.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <csignal>
#include <cstdio>

namespace {
const QStringList kVerbs{QStringLiteral("post"), QStringLiteral("watch"), QStringLiteral("lookup"),
                         QStringLiteral("ping"), QStringLiteral("serve"), QStringLiteral("blast")};

void print(const QString& line)
{
    std::fprintf(stdout, "%s\n", line.toLocal8Bit().constData());
    std::fflush(stdout);
}

void complain(const QString& line)
{
    std::fprintf(stderr, "kestromctl: %s\n", line.toLocal8Bit().constData());
}

// Parses "--help" and the verb's options; false when the process should stop with `status`.
bool parse(QCommandLineParser& parser, const QString& verb, const QStringList& arguments,
           const QString& description, int* status)
{
    parser.setApplicationDescription(description);
    const QCommandLineOption help(QStringList{QStringLiteral("h"), QStringLiteral("help")},
                                  QStringLiteral("Shows this help."));
    parser.addOption(help);
    if (!parser.parse(QStringList{QStringLiteral("kestromctl ") + verb} + arguments)) {
        complain(parser.errorText());
        *status = 2;
        return false;
    }
    if (parser.isSet(help)) {
        print(parser.helpText());
        *status = 0;
        return false;
    }
    return true;
}

int runUntilSignalled()
{
    UnixSignalWatcher stopSignals({SIGTERM, SIGINT});
    QObject::connect(&stopSignals, &UnixSignalWatcher::unixSignal, qApp, &QCoreApplication::quit);
    return QCoreApplication::exec();
}

int post(const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.addPositionalArgument(QStringLiteral("name"), QStringLiteral("Notification name."));
    const QCommandLineOption source(QStringLiteral("source"), QStringLiteral("Source name."),
                                    QStringLiteral("source"));
    const QCommandLineOption info(QStringLiteral("info"),
                                  QStringLiteral("A user-info entry, KEY=VALUE; repeatable."),
                                  QStringLiteral("key=value"));
    parser.addOptions({source, info});
    int status = 0;
    if (!parse(parser, QStringLiteral("post"), arguments,
               QStringLiteral("Posts a notification through the switchboard."), &status)) {
        return status;
    }
    if (parser.positionalArguments().size() != 1) {
        complain(QStringLiteral("post needs exactly one notification name"));
        return 2;
    }
    QVariantMap userInfo;
    for (const QString& entry : parser.values(info)) {
        const qsizetype equals = entry.indexOf(QLatin1Char('='));
        if (equals <= 0) {
            complain(QStringLiteral("--info wants KEY=VALUE, not '%1'").arg(entry));
            return 2;
        }
        userInfo.insert(entry.left(equals), entry.mid(equals + 1));
    }
    const auto switchboard = KSConnection::switchboardConnection();
    switchboard->postNotification(parser.positionalArguments().constFirst(), parser.value(source),
                                  userInfo);
    // The barrier proves the hub has the notification before this process goes.
    if (!switchboard->ping()) {
        complain(QStringLiteral("cannot reach the switchboard"));
        return 1;
    }
    return 0;
}

int watch(const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.addPositionalArgument(QStringLiteral("name"),
                                 QStringLiteral("Notification name; every notification when "
                                                "omitted."),
                                 QStringLiteral("[name]"));
    const QCommandLineOption source(QStringLiteral("source"),
                                    QStringLiteral("Only notifications from this source."),
                                    QStringLiteral("source"));
    parser.addOption(source);
    int status = 0;
    if (!parse(parser, QStringLiteral("watch"), arguments,
               QStringLiteral("Prints notifications from the switchboard until interrupted."),
               &status)) {
        return status;
    }
    const auto switchboard = KSConnection::switchboardConnection();
    switchboard->addObserver(QString(), parser.positionalArguments().value(0), parser.value(source),
                             [](const QString& from, const QVariantMap& info) {
                                 print(QStringLiteral("notification from %1: %2")
                                           .arg(from.isEmpty() ? QStringLiteral("(none)") : from,
                                                ValueDescription::describe(info)));
                             });
    if (!switchboard->ping()) {
        complain(QStringLiteral("cannot reach the switchboard"));
        return 1;
    }
    print(QStringLiteral("watching"));
    return runUntilSignalled();
}

int lookup(const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.addPositionalArgument(QStringLiteral("id"), QStringLiteral("Published name."));
    int status = 0;
    if (!parse(parser, QStringLiteral("lookup"), arguments,
               QStringLiteral("Prints the endpoint published under a name, or \"none\"."),
               &status)) {
        return status;
    }
    if (parser.positionalArguments().size() != 1) {
        complain(QStringLiteral("lookup needs exactly one published name"));
        return 2;
    }
    if (!KSConnection::switchboardConnection()->ping()) {
        complain(QStringLiteral("cannot reach the switchboard"));
        return 1;
    }
    const auto endpoint =
        KSPublishedConnection::lookUpEndpoint(parser.positionalArguments().constFirst());
    print(endpoint ? QStringLiteral("%1 %2").arg(endpoint->service(), endpoint->path())
                   : QStringLiteral("none"));
    return 0;
}

int ping(const QStringList& arguments)
{
    QCommandLineParser parser;
    int status = 0;
    if (!parse(parser, QStringLiteral("ping"), arguments,
               QStringLiteral("Makes a round trip to the switchboard."), &status)) {
        return status;
    }
    QElapsedTimer timer;
    timer.start();
    if (!KSConnection::switchboardConnection()->ping()) {
        complain(QStringLiteral("cannot reach the switchboard"));
        return 1;
    }
    print(QStringLiteral("switchboard %1 answered in %2 ms")
              .arg(KSConnection::switchboardConnection()->machServiceName())
              .arg(double(timer.nsecsElapsed()) / 1e6, 0, 'f', 3));
    return 0;
}

int serve(const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.addPositionalArgument(QStringLiteral("name"), QStringLiteral("Name to publish under."));
    int status = 0;
    if (!parse(parser, QStringLiteral("serve"), arguments,
               QStringLiteral("Serves an object that answers the barrier and publishes it on the "
                              "switchboard until interrupted."),
               &status)) {
        return status;
    }
    if (parser.positionalArguments().size() != 1) {
        complain(QStringLiteral("serve needs exactly one name"));
        return 2;
    }
    KSConnectionServiceSingleton vendor(new ServedObject);
    vendor.publishWithName(parser.positionalArguments().constFirst());
    if (!KSConnection::switchboardConnection()->ping()) {
        complain(QStringLiteral("cannot reach the switchboard"));
        return 1;
    }
    print(QStringLiteral("serving %1 at %2")
              .arg(vendor.publishedName(), vendor.endpoint().description()));
    return runUntilSignalled();
}
int blast(const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.addPositionalArgument(QStringLiteral("name"), QStringLiteral("Published name."));
    const QCommandLineOption count(QStringLiteral("messages"), QStringLiteral("How many."),
                                   QStringLiteral("n"), QStringLiteral("20000"));
    parser.addOption(count);
    int status = 0;
    if (!parse(parser, QStringLiteral("blast"), arguments,
               QStringLiteral("Sends bare one-way calls to a served object as fast as it can, "
                              "as a yardstick for the progress path."),
               &status)) {
        return status;
    }
    if (parser.positionalArguments().size() != 1) {
        complain(QStringLiteral("blast needs exactly one published name"));
        return 2;
    }
    const auto target = KSConnection::connectionWithPublishedName(
        parser.positionalArguments().constFirst(), 0, QStringLiteral("KSComponentServing"));
    const auto proxy = target->serviceProxy();
    if (!proxy) {
        complain(QStringLiteral("nothing is published under that name"));
        return 1;
    }
    const auto result =
        MessageFlood::run(*proxy, InterfaceNames::kComponentMessaging,
                          QStringLiteral("barrierWithCompletion"), {}, parser.value(count).toInt());
    print(MessageFlood::describe(QStringLiteral("bare one-way calls"), result));
    return result.complete ? 0 : 1;
}
} // namespace

bool SwitchboardVerbs::handles(const QString& verb)
{
    return kVerbs.contains(verb);
}

int SwitchboardVerbs::run(const QString& verb, const QStringList& arguments)
{
    if (verb == QStringLiteral("post")) {
        return post(arguments);
    }
    if (verb == QStringLiteral("watch")) {
        return watch(arguments);
    }
    if (verb == QStringLiteral("lookup")) {
        return lookup(arguments);
    }
    if (verb == QStringLiteral("ping")) {
        return ping(arguments);
    }
    if (verb == QStringLiteral("blast")) {
        return blast(arguments);
    }
    return serve(arguments);
}

QString SwitchboardVerbs::usage()
{
    return QStringLiteral(
        "  post NAME [--source S] [--info KEY=VALUE ...]  post a notification\n"
        "  watch [NAME] [--source S]                    print notifications until interrupted\n"
        "  lookup ID                                    print the endpoint published under ID\n"
        "  ping                                         round trip to the switchboard\n"
        "  serve NAME                                   publish a served object until "
        "interrupted\n"
        "  blast NAME [--messages N]                    one-way calls as fast as possible\n");
}
