#pragma once

#include "core/ArchiveStatusWindow.h"
#include "statuswindow/StatusWindowHost.h"

#include <functional>
#include <memory>

class ArchiveStatusWindowController;
class FileViewer;
class SleepWatcher;

// The real archive status window behind the core's seam: the window controller grades the
// archives, and this object answers what the window asks of the application through the
// delegate. Main thread only.
class MonitorStatusWindow final : public ArchiveStatusWindow, public StatusWindowHost
{
public:
    struct Parts
    {
        std::unique_ptr<FileViewer> fileViewer;
        std::unique_ptr<SleepWatcher> wake;
        // Runs file work on a worker thread.
        std::function<void(std::function<void()>)> runner;
        QString statusFolder;
    };

    explicit MonitorStatusWindow(Parts parts);
    ~MonitorStatusWindow() override;

    // None before start.
    ArchiveStatusWindowController* controller() const { return m_controller.get(); }

    // ArchiveStatusWindow
    void start(MonitorApplicationDelegate& delegate) override;
    bool hasStatus() const override;
    bool warnings() const override;
    bool criticals() const override;
    void showStatusWindowInFront(bool front) override;

    // StatusWindowHost
    void showStatusItemStates(bool show, quint64 states) override;
    void viewLogLine(const QString& lineIdentifier) override;
    void openRepository(const QString& path, qint32 action) override;
    void revealInFileViewer(const QString& path) override;
    void runInBackground(std::function<void()> job) override;

private:
    Parts m_parts;
    MonitorApplicationDelegate* m_delegate = nullptr;
    std::unique_ptr<ArchiveStatusWindowController> m_controller;
};
