#include "PacedProgress.h"

#include "BarrierProbes.h"
#include "messaging/RemoteProxy.h"

#include <QThread>

namespace {
constexpr double kTimeoutSeconds = 60;
} // namespace

QString PacedProgress::run(const RemoteProxy& target, const QString& interface,
                           const QString& member, const ArgumentsForStep& argumentsFor, int steps,
                           int intervalMs)
{
    const auto probes = BarrierProbes::create();
    const qint64 intervalNs = qint64(intervalMs) * 1'000'000;
    for (int step = 0; step < steps; ++step) {
        // Deadlines from the start, so that a late step does not delay all that follow.
        const qint64 waitNs = step * intervalNs - probes->now();
        if (waitNs > 0) {
            QThread::usleep(quint64(waitNs / 1000));
        }
        const QVariantList arguments = argumentsFor(step);
        const qint64 sentNs = probes->now();
        target.send(interface, member, arguments);
        probes->probe(target, sentNs);
    }
    const bool complete = probes->waitForAll(kTimeoutSeconds);
    const auto summary = probes->summary();
    QString samples;
    samples.reserve(qsizetype(summary.latenciesMs.size()) * 7);
    for (const double latency : summary.latenciesMs) {
        samples += QLatin1Char(' ') + QString::number(latency, 'f', 3);
    }
    return QStringLiteral("paced progress: %1 sent every %2 ms, %3 handled%4; send to handled "
                          "p50 %5 ms, p99 %6 ms\nlatencies-ms:%7")
        .arg(summary.sent)
        .arg(intervalMs)
        .arg(summary.answered)
        .arg(complete ? QString() : QStringLiteral(" (incomplete)"))
        .arg(summary.p50Ms, 0, 'f', 2)
        .arg(summary.p99Ms, 0, 'f', 2)
        .arg(samples);
}
