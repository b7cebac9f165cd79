#include "MessageFlood.h"

#include "messaging/MessageSync.h"
#include "messaging/RemoteProxy.h"

#include <QElapsedTimer>
#include <QMutex>
#include <algorithm>

namespace {
const QString kBarrierInterface = QStringLiteral("com.kestrom.KSComponentMessaging");
const QString kBarrierMember = QStringLiteral("barrierWithCompletion");
constexpr double kTimeoutSeconds = 300;

// Shared with the reply handlers, which may outlive a flood that timed out.
struct Probes
{
    QMutex mutex;
    QElapsedTimer clock;
    std::vector<double> latenciesMs;
    int outstanding = 0;
    bool allSent = false;
    std::shared_ptr<MessageSync> allAnswered = MessageSync::messageLock();
    qint64 lastAnswerNs = 0;

    void answered(qint64 sentNs)
    {
        QMutexLocker locker(&mutex);
        lastAnswerNs = clock.nsecsElapsed();
        latenciesMs.push_back(double(lastAnswerNs - sentNs) / 1e6);
        --outstanding;
        finishIfDone();
    }
    void finishIfDone()
    {
        if (allSent && outstanding == 0) {
            allAnswered->messageReplied();
        }
    }
};

double percentile(std::vector<double> values, double fraction)
{
    if (values.empty()) {
        return 0;
    }
    std::sort(values.begin(), values.end());
    const auto index = size_t(fraction * double(values.size() - 1));
    return values[index];
}
} // namespace

MessageFlood::Result MessageFlood::run(const RemoteProxy& target, const QString& interface,
                                       const QString& member, const QVariantList& arguments,
                                       int messages)
{
    auto probes = std::make_shared<Probes>();
    probes->clock.start();
    const auto probe = [&target, probes] {
        qint64 sentNs = 0;
        {
            QMutexLocker locker(&probes->mutex);
            ++probes->outstanding;
            sentNs = probes->clock.nsecsElapsed();
        }
        target.call(kBarrierInterface, kBarrierMember, {},
                    [probes, sentNs](const QDBusMessage&) { probes->answered(sentNs); });
    };
    for (int i = 1; i <= messages; ++i) {
        target.send(interface, member, arguments);
        if (i % kProbeEvery == 0 || i == messages) {
            probe();
        }
    }
    {
        QMutexLocker locker(&probes->mutex);
        probes->allSent = true;
        probes->finishIfDone();
    }
    Result result;
    result.messages = messages;
    result.complete = probes->allAnswered->waitForMessageReplyBeforeInterval(kTimeoutSeconds);
    QMutexLocker locker(&probes->mutex);
    result.seconds = double(probes->lastAnswerNs) / 1e9;
    result.p50Ms = percentile(probes->latenciesMs, 0.50);
    result.p99Ms = percentile(probes->latenciesMs, 0.99);
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
