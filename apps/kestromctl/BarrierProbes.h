#pragma once

#include <QElapsedTimer>
#include <QMutex>
#include <memory>
#include <vector>

class MessageSync;
class RemoteProxy;

// Barriers sent behind one-way messages. A barrier's answer proves that every earlier message
// of this sender was handled, so its round trip, counted from a moment the caller chooses, is
// that moment to handled. Answers arrive on the messaging thread and may outlive a waiter that
// gave up, hence the shared ownership.
class BarrierProbes : public std::enable_shared_from_this<BarrierProbes>
{
public:
    struct Summary
    {
        int sent = 0;
        int answered = 0;
        double lastAnswerSeconds = 0;
        double p50Ms = 0;
        double p99Ms = 0;
        std::vector<double> latenciesMs; // in order of answer
    };

    static std::shared_ptr<BarrierProbes> create();

    // Nanoseconds on the clock the latencies are counted on.
    qint64 now() const;
    void probe(const RemoteProxy& target, qint64 fromNs);
    // After the last probe: false when some answer did not come in time.
    bool waitForAll(double seconds);
    Summary summary() const;

    static double percentile(std::vector<double> values, double fraction);

private:
    BarrierProbes();
    void answered(qint64 fromNs);
    void finishIfDone();

    mutable QMutex m_mutex;
    QElapsedTimer m_clock;
    std::vector<double> m_latenciesMs;
    int m_sent = 0;
    int m_outstanding = 0;
    bool m_allSent = false;
    qint64 m_lastAnswerNs = 0;
    std::shared_ptr<MessageSync> m_allAnswered;
};
