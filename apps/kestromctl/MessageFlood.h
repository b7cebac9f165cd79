#pragma once

#include <QString>
#include <QVariantList>

class RemoteProxy;

// Sends a stream of one-way messages as fast as it can, with a barrier after every
// kProbeEvery-th one; a barrier's round trip is the time from sending the message before it to
// knowing it was handled. Used to measure the monitor's progress path against a bare receiver.
class MessageFlood
{
public:
    static constexpr int kProbeEvery = 50;

    struct Result
    {
        int messages = 0;
        double seconds = 0;
        double p50Ms = 0;
        double p99Ms = 0;
        bool complete = false;
    };

    static Result run(const RemoteProxy& target, const QString& interface, const QString& member,
                      const QVariantList& arguments, int messages);
    static QString describe(const QString& what, const Result& result);
};
