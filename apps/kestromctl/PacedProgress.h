#pragma once

#include <QString>
#include <QVariantList>
#include <functional>

class RemoteProxy;

// Sends one-way messages at a steady pace, each followed by a barrier: a barrier's round trip,
// counted from just before its message was sent, is send to handled. The pace never waits for
// answers, so a slow receiver shows as latency instead of as a lighter load.
class PacedProgress
{
public:
    using ArgumentsForStep = std::function<QVariantList(int step)>;

    // One line of summary, then one line "latencies-ms:" with every round trip, for merging.
    static QString run(const RemoteProxy& target, const QString& interface, const QString& member,
                       const ArgumentsForStep& argumentsFor, int steps, int intervalMs);
};
