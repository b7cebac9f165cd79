#pragma once

#include <QString>
#include <QtGlobal>
#include <functional>

// What the archive status window asks of the application around it: the status item's state
// bits, the client application and the file manager, and a thread for file work. The window
// sits below the application core, so the core implements this and hands it over.
// Main thread only.
class StatusWindowHost
{
public:
    virtual ~StatusWindowHost();

    // Sets (show) or clears the status item's state bits in `states`.
    virtual void showStatusItemStates(bool show, quint64 states) = 0;
    // Shows the log at a line: in the client application, or in the monitor's own viewer.
    virtual void viewLogLine(const QString& lineIdentifier) = 0;
    // Asks the client application to open the archive with an action code (3 repairs).
    virtual void openRepository(const QString& path, qint32 action) = 0;
    // Shows the archive selected in the file manager.
    virtual void revealInFileViewer(const QString& path) = 0;
    // Runs file work off the main thread; the job reports back through the main queue.
    virtual void runInBackground(std::function<void()> job) = 0;
};
