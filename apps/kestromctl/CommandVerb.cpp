#include "CommandVerb.h"

#include "CommandPeer.h"

#include <QCommandLineParser>
#include <QUuid>
#include <cstdio>

namespace {
QCommandLineOption option(const QString& name, const QString& description,
                          const QString& valueName = {})
{
    return QCommandLineOption(name, description, valueName);
}
} // namespace

int CommandVerb::run(const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Plays a command process: it publishes itself, asks the monitor for a "
                       "listener, reports its progress and stops as the scenario says."));
    parser.addPositionalArgument(QStringLiteral("name"),
                                 QStringLiteral("Command name: capture, verify, compact, ..."));
    const auto help = QCommandLineOption({QStringLiteral("h"), QStringLiteral("help")},
                                         QStringLiteral("Shows this help."));
    const auto id = option(QStringLiteral("id"),
                           QStringLiteral("Command identifier (default: "
                                          "a fresh one)."),
                           QStringLiteral("id"));
    const auto scenario = option(
        QStringLiteral("scenario"),
        QStringLiteral("One of: %1.").arg(CommandPeer::scenarios().join(QStringLiteral(", "))),
        QStringLiteral("scenario"));
    const auto steps =
        option(QStringLiteral("steps"), QStringLiteral("Progress steps."), QStringLiteral("n"));
    const auto interval =
        option(QStringLiteral("interval-ms"), QStringLiteral("Milliseconds between steps."),
               QStringLiteral("ms"));
    const auto dieAfter =
        option(QStringLiteral("die-after"),
               QStringLiteral("Kill itself (SIGKILL) after this many steps."), QStringLiteral("n"));
    const auto failName =
        option(QStringLiteral("fail-name"), QStringLiteral("Exception name of a failure."),
               QStringLiteral("name"));
    const auto failReason =
        option(QStringLiteral("fail-reason"), QStringLiteral("Exception reason of a failure."),
               QStringLiteral("text"));
    const auto explain =
        option(QStringLiteral("explain"), QStringLiteral("The failure's explanation (.Explain)."),
               QStringLiteral("text"));
    const auto posix = option(QStringLiteral("posix"), QStringLiteral("The failure's POSIX error."),
                              QStringLiteral("errno"));
    const auto command =
        option(QStringLiteral("failed-command"), QStringLiteral("The failure's .Command detail."),
               QStringLiteral("name"));
    const auto soft = option(QStringLiteral("soft"), QStringLiteral("Make the failure soft."));
    parser.addOptions({help, id, scenario, steps, interval, dieAfter, failName, failReason, explain,
                       posix, command, soft});
    if (!parser.parse(QStringList{QStringLiteral("kestromctl command")} + arguments)) {
        std::fprintf(stderr, "kestromctl: %s\n", qPrintable(parser.errorText()));
        return 2;
    }
    if (parser.isSet(help)) {
        std::fprintf(stdout, "%s", qPrintable(parser.helpText()));
        return 0;
    }
    if (parser.positionalArguments().size() != 1) {
        std::fprintf(stderr, "kestromctl: command needs exactly one command name\n");
        return 2;
    }
    CommandPeer::Options options;
    options.name = parser.positionalArguments().constFirst();
    options.identifier = parser.isSet(id)
                             ? parser.value(id)
                             : QStringLiteral("com.kestrom.command.%1")
                                   .arg(QUuid::createUuid().toString(QUuid::WithoutBraces));
    options.scenario = parser.value(scenario).isEmpty() ? options.scenario : parser.value(scenario);
    if (!CommandPeer::scenarios().contains(options.scenario)) {
        std::fprintf(stderr, "kestromctl: unknown scenario '%s'\n", qPrintable(options.scenario));
        return 2;
    }
    options.steps = parser.isSet(steps) ? parser.value(steps).toInt() : options.steps;
    options.intervalMs =
        parser.isSet(interval) ? parser.value(interval).toInt() : options.intervalMs;
    options.dieAfter = parser.isSet(dieAfter) ? parser.value(dieAfter).toInt() : -1;
    options.failName = parser.isSet(failName) ? parser.value(failName) : options.failName;
    options.failReason = parser.isSet(failReason) ? parser.value(failReason) : options.failReason;
    options.explanation = parser.value(explain);
    options.posixError = parser.value(posix).toInt();
    options.failCommand = parser.value(command);
    options.soft = parser.isSet(soft);
    CommandPeer peer(options);
    return peer.exec();
}

QString CommandVerb::usage()
{
    return QStringLiteral(
        "  command NAME [--scenario S] [--id ID] ...    play a command process\n");
}
