#pragma once

#include <QStringList>

// kestromctl scheduler: plays the per-user scheduler until interrupted, with actions read from
// a property list or a built-in few, optionally held, optionally misbehaving.
class SchedulerVerb
{
public:
    // 0 after an interrupt, 1 without a hub, 2 a usage error or an unreadable actions file.
    static int run(const QStringList& arguments);
    static QString usage();
};
