#pragma once

#include <QThreadPool>

// The one pool of the monitor's blocking work: scripts and the readers of their output,
// resolutions, keychain lookups and cancellations. Such jobs may block for minutes and must
// never queue behind one another, so a job that finds no idle thread gets a new one; idle
// threads end after ten seconds.
class WorkerPool
{
public:
    static QThreadPool& shared();
};
