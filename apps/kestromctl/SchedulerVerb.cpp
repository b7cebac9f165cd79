#include "SchedulerVerb.h"

#include "SchedulerPeer.h"
#include "foundation/RelativeDate.h"
#include "messaging/KSConnectionServiceSingleton.h"
#include "messaging/KSPublishedConnection.h"
#include "messaging/KSSwitchboardConnection.h"
#include "platform/UnixSignalWatcher.h"
#include "preferences/PropertyList.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>
#include <csignal>
#include <cstdio>

namespace {
void complain(const QString& line)
{
    std::fprintf(stderr, "kestromctl: %s\n", line.toLocal8Bit().constData());
}

QVariantMap action(const char* title, const char* repname, const char* uuid, bool runnable,
                   const QDateTime& time)
{
    QVariantMap action{{QStringLiteral("title"), QString::fromUtf8(title)},
                       {QStringLiteral("uuid"), QString::fromLatin1(uuid)},
                       {QStringLiteral("runnable"), runnable}};
    if (repname != nullptr) {
        action.insert(QStringLiteral("repname"), QString::fromUtf8(repname));
    }
    if (time.isValid()) {
        action.insert(QStringLiteral("time"), time);
    }
    return action;
}

// Enough to fill the menu: two scheduled actions and one that cannot run (its archive is gone).
QVariantList builtInActions()
{
    const QDateTime now = QDateTime::currentDateTimeUtc();
    return {action("Documents every hour", "Documents", "5f0c1a52-6a4e-4d2b-9a53-1d7f1c2a0b01",
                   true, now.addSecs(3600)),
            action("Photos every night", "Photos", "5f0c1a52-6a4e-4d2b-9a53-1d7f1c2a0b02", true,
                   now.addDays(1)),
            action("Old laptop", nullptr, "5f0c1a52-6a4e-4d2b-9a53-1d7f1c2a0b03", false, {})};
}

// An array of dictionaries, each naming its action by a "uuid" string, with a date as "time"
// when it has one.
std::optional<QVariantList> readActions(const QString& path, QString* error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("cannot read %1: %2").arg(path, file.errorString());
        return std::nullopt;
    }
    const PropertyList::Parsed parsed = PropertyList::fromData(file.readAll());
    if (!parsed.isValid()) {
        *error = QStringLiteral("%1 is no property list: %2").arg(path, parsed.error);
        return std::nullopt;
    }
    if (PropertyList::kindOf(parsed.value) != PropertyList::Kind::Array) {
        *error = QStringLiteral("%1 holds no array of actions").arg(path);
        return std::nullopt;
    }
    const QVariantList actions = parsed.value.toList();
    for (qsizetype i = 0; i < actions.size(); ++i) {
        const QVariantMap action = actions.at(i).toMap();
        const QVariant time = action.value(QStringLiteral("time"));
        if (PropertyList::kindOf(actions.at(i)) != PropertyList::Kind::Dictionary ||
            PropertyList::kindOf(action.value(QStringLiteral("uuid"))) !=
                PropertyList::Kind::String ||
            (time.isValid() && PropertyList::kindOf(time) != PropertyList::Kind::Date)) {
            *error = QStringLiteral("action %1 of %2 needs a \"uuid\" string and a \"time\" that "
                                    "is a date, when it has one")
                         .arg(i)
                         .arg(path);
            return std::nullopt;
        }
    }
    return actions;
}
} // namespace

int SchedulerVerb::run(const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Plays the per-user scheduler: publishes itself, answers the monitor's "
                       "questions about its actions and hold, and prints every request it "
                       "receives, until interrupted."));
    const QCommandLineOption help({QStringLiteral("h"), QStringLiteral("help")},
                                  QStringLiteral("Shows this help."));
    const QCommandLineOption actionsFile(
        QStringLiteral("actions"),
        QStringLiteral("Property list (XML or binary) of the actions: an array of dictionaries "
                       "with title, repname, uuid, runnable and time (default: three built-in "
                       "actions)."),
        QStringLiteral("file"));
    const QCommandLineOption holdMinutes(QStringLiteral("hold-minutes"),
                                         QStringLiteral("Start with schedules held this long."),
                                         QStringLiteral("n"));
    const QCommandLineOption misbehave(
        QStringLiteral("misbehave"),
        QStringLiteral("Answer badly: %1.").arg(SchedulerPeer::misbehaviours().join(u", ")),
        QStringLiteral("mode"));
    parser.addOptions({help, actionsFile, holdMinutes, misbehave});
    if (!parser.parse(QStringList{QStringLiteral("kestromctl scheduler")} + arguments)) {
        complain(parser.errorText());
        return 2;
    }
    if (parser.isSet(help)) {
        std::fprintf(stdout, "%s", qPrintable(parser.helpText()));
        return 0;
    }
    if (!parser.positionalArguments().isEmpty()) {
        complain(QStringLiteral("scheduler takes no arguments besides its options"));
        return 2;
    }
    auto misbehaviour = SchedulerPeer::Misbehaviour::None;
    if (parser.isSet(misbehave)) {
        const auto named = SchedulerPeer::misbehaviourNamed(parser.value(misbehave));
        if (!named) {
            complain(QStringLiteral("unknown misbehaviour '%1'").arg(parser.value(misbehave)));
            return 2;
        }
        misbehaviour = *named;
    }
    bool minutesRead = true;
    const int minutes =
        parser.isSet(holdMinutes) ? parser.value(holdMinutes).toInt(&minutesRead) : 0;
    if (!minutesRead || minutes < 0) {
        complain(QStringLiteral("--hold-minutes wants a count of minutes"));
        return 2;
    }
    QString error;
    const std::optional<QVariantList> actions = parser.isSet(actionsFile)
                                                    ? readActions(parser.value(actionsFile), &error)
                                                    : builtInActions();
    if (!actions) {
        complain(error);
        return 2;
    }
    const double hold = minutes > 0 ? RelativeDate::secondsSinceReferenceDate(
                                          QDateTime::currentDateTimeUtc().addSecs(minutes * 60))
                                    : 0;
    if (!KSConnection::switchboardConnection()->ping()) {
        complain(QStringLiteral("cannot reach the switchboard"));
        return 1;
    }
    KSConnectionServiceSingleton vendor(new SchedulerPeer(*actions, hold, misbehaviour));
    // The name the monitor's scheduler connection looks up.
    vendor.publishWithName(KSConnection::schedulerConnection()->publishedName());
    KSConnection::switchboardConnection()->ping();
    std::fprintf(stdout, "scheduler serving %lld actions at %s\n",
                 static_cast<long long>(actions->size()),
                 qPrintable(vendor.endpoint().description()));
    std::fflush(stdout);
    UnixSignalWatcher stopSignals({SIGTERM, SIGINT});
    QObject::connect(&stopSignals, &UnixSignalWatcher::unixSignal, qApp, &QCoreApplication::quit);
    const int status = QCoreApplication::exec();
    vendor.shutdown();
    KSConnection::switchboardConnection()->ping();
    return status;
}

QString SchedulerVerb::usage()
{
    return QStringLiteral("  scheduler [--actions FILE] [--hold-minutes N] [--misbehave M]  "
                          "play the scheduler\n");
}
