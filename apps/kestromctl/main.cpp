// kestromctl: the product's command-line peer. It speaks to the switchboard and the monitor as
// the product's own processes do.
#include "ArchiveVerbs.h"
#include "CommandVerb.h"
#include "RequestVerbs.h"
#include "SchedulerVerb.h"
#include "SwitchboardVerbs.h"
#include "logging/Logger.h"

#include <QCoreApplication>
#include <cstdio>

namespace {
constexpr quint64 kApplicationCode = 7;

int usage(FILE* stream, int status)
{
    std::fprintf(stream, "usage: kestromctl VERB [ARGS...]   (VERB --help for details)\n%s",
                 (SwitchboardVerbs::usage() + CommandVerb::usage() + SchedulerVerb::usage() +
                  RequestVerbs::usage() + ArchiveVerbs::usage())
                     .toLocal8Bit()
                     .constData());
    return status;
}
} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("kestromctl"));
    Logger::setApplicationCode(kApplicationCode);
    QStringList arguments = app.arguments().mid(1);
    if (arguments.isEmpty()) {
        return usage(stderr, 2);
    }
    const QString verb = arguments.takeFirst();
    if (verb == QStringLiteral("--help") || verb == QStringLiteral("-h")) {
        return usage(stdout, 0);
    }
    if (verb == QStringLiteral("command")) {
        return CommandVerb::run(arguments);
    }
    if (verb == QStringLiteral("scheduler")) {
        return SchedulerVerb::run(arguments);
    }
    if (ArchiveVerbs::handles(verb)) {
        return ArchiveVerbs::run(arguments);
    }
    if (RequestVerbs::handles(verb)) {
        return RequestVerbs::run(arguments);
    }
    if (SwitchboardVerbs::handles(verb)) {
        return SwitchboardVerbs::run(verb, arguments);
    }
    std::fprintf(stderr, "kestromctl: unknown verb '%s'\n", verb.toLocal8Bit().constData());
    return usage(stderr, 2);
}
