#include "BarrierProbes.h"

#include "messaging/InterfaceNames.h"
#include "messaging/MessageSync.h"
#include "messaging/RemoteProxy.h"

#include <algorithm>

namespace {
const QString& kBarrierInterface = InterfaceNames::kComponentMessaging;
const QString kBarrierMember = QStringLiteral("barrierWithCompletion");
} // namespace

BarrierProbes::BarrierProbes()
    : m_allAnswered(MessageSync::messageLock())
{
    m_clock.start();
}

std::shared_ptr<BarrierProbes> BarrierProbes::create()
{
    return std::shared_ptr<BarrierProbes>(new BarrierProbes());
}

qint64 BarrierProbes::now() const
{
    return m_clock.nsecsElapsed();
}

void BarrierProbes::probe(const RemoteProxy& target, qint64 fromNs)
{
    {
        QMutexLocker locker(&m_mutex);
        ++m_sent;
        ++m_outstanding;
    }
    target.call(
        kBarrierInterface, kBarrierMember, {},
        [self = shared_from_this(), fromNs](const QDBusMessage&) { self->answered(fromNs); });
}

void BarrierProbes::answered(qint64 fromNs)
{
    QMutexLocker locker(&m_mutex);
    m_lastAnswerNs = m_clock.nsecsElapsed();
    m_latenciesMs.push_back(double(m_lastAnswerNs - fromNs) / 1e6);
    --m_outstanding;
    finishIfDone();
}

void BarrierProbes::finishIfDone()
{
    if (m_allSent && m_outstanding == 0) {
        m_allAnswered->messageReplied();
    }
}

bool BarrierProbes::waitForAll(double seconds)
{
    {
        QMutexLocker locker(&m_mutex);
        m_allSent = true;
        finishIfDone();
    }
    return m_allAnswered->waitForMessageReplyBeforeInterval(seconds);
}

BarrierProbes::Summary BarrierProbes::summary() const
{
    QMutexLocker locker(&m_mutex);
    Summary summary;
    summary.sent = m_sent;
    summary.answered = int(m_latenciesMs.size());
    summary.lastAnswerSeconds = double(m_lastAnswerNs) / 1e9;
    summary.p50Ms = percentile(m_latenciesMs, 0.50);
    summary.p99Ms = percentile(m_latenciesMs, 0.99);
    summary.latenciesMs = m_latenciesMs;
    return summary;
}

double BarrierProbes::percentile(std::vector<double> values, double fraction)
{
    if (values.empty()) {
        return 0;
    }
    std::sort(values.begin(), values.end());
    const auto index = size_t(fraction * double(values.size() - 1));
    return values[index];
}
