#include "MessageFlood.h"

#include "BarrierProbes.h"
#include "messaging/RemoteProxy.h"

namespace {
constexpr double kTimeoutSeconds = 300;
} // namespace

MessageFlood::Result MessageFlood::run(const RemoteProxy& target, const QString& interface,
                                       const QString& member, const QVariantList& arguments,
                                       int messages)
{
    const auto probes = BarrierProbes::create();
    for (int i = 1; i <= messages; ++i) {
        target.send(interface, member, arguments);
        if (i % kProbeEvery == 0 || i == messages) {
            probes->probe(target, probes->now());
        }
    }
    Result result;
    result.messages = messages;
    result.complete = probes->waitForAll(kTimeoutSeconds);
    const auto summary = probes->summary();
    result.seconds = summary.lastAnswerSeconds;
    result.p50Ms = summary.p50Ms;
    result.p99Ms = summary.p99Ms;
    return result;
}

QString MessageFlood::describe(const QString& what, const Result& result)
{
    const double rate = result.seconds > 0 ? result.messages / result.seconds : 0;
    return QStringLiteral("%1: %2 messages in %3 s, %4 per second; send to handled p50 %5 ms, "
                          "p99 %6 ms%7")
        .arg(what)
        .arg(result.messages)
        .arg(result.seconds, 0, 'f', 3)
        .arg(rate, 0, 'f', 0)
        .arg(result.p50Ms, 0, 'f', 2)
        .arg(result.p99Ms, 0, 'f', 2)
        .arg(result.complete ? QString() : QStringLiteral(" (incomplete)"));
}
