#include "tracking/ProgressServices.h"

#include "tracking/CaptureHistory.h"
#include "tracking/UserNotifier.h"

namespace {
// The defaults. Until the activity window, the user notifications, the capture history and the
// system icon table are built, a command's pane shows nothing, no user notification is
// delivered, the history is not rebuilt and a system icon code gives no image; the managers
// themselves work in full, so the log and the peers see every command's whole life.
class SilentPane final : public ProgressPane
{
public:
    void setProgressManager(ActivityProgressManager*) override {}
    void setActionID(const QString&) override {}
    void didBeginStatus() override {}
    void updateStatus(const QVariantMap&) override {}
    void didEndStatusWithException(const Exception*) override {}
    // No window, no post-mortem window: nothing to keep the manager for.
    void holdManagerUntilResigned(std::shared_ptr<ActivityProgressManager>) override {}
    void resign() override {}
};

class SilentNotifier final : public UserNotifier
{
public:
    void notifyUser(int, const QString&, const QString&, const QString&,
                    const QVariantMap&) override
    {}
};

class SilentHistory final : public CaptureHistory
{
public:
    void updateHistoryNotification() override {}
};

std::shared_ptr<ProgressPane> makeSilentPane(ProgressPane::Kind)
{
    return std::make_shared<SilentPane>();
}

QImage noSystemIcon(int)
{
    return {};
}

struct Services
{
    ProgressServices::PaneFactory paneFactory = makeSilentPane;
    UserNotifier* notifier = nullptr;
    CaptureHistory* history = nullptr;
    ProgressServices::SystemIconTable iconTable = noSystemIcon;
};

Services& services()
{
    static Services installed; // main thread only
    return installed;
}
} // namespace

std::shared_ptr<ProgressPane> ProgressServices::makePane(ProgressPane::Kind kind)
{
    return services().paneFactory(kind);
}

void ProgressServices::setPaneFactory(PaneFactory factory)
{
    services().paneFactory = factory ? std::move(factory) : PaneFactory(makeSilentPane);
}

UserNotifier& ProgressServices::userNotifier()
{
    static SilentNotifier silent;
    UserNotifier* notifier = services().notifier;
    return notifier != nullptr ? *notifier : silent;
}

void ProgressServices::setUserNotifier(UserNotifier* notifier)
{
    services().notifier = notifier;
}

CaptureHistory& ProgressServices::captureHistory()
{
    static SilentHistory silent;
    CaptureHistory* history = services().history;
    return history != nullptr ? *history : silent;
}

void ProgressServices::setCaptureHistory(CaptureHistory* history)
{
    services().history = history;
}

QImage ProgressServices::systemIcon(int index)
{
    return services().iconTable(index);
}

void ProgressServices::setSystemIconTable(SystemIconTable table)
{
    services().iconTable = table ? std::move(table) : SystemIconTable(noSystemIcon);
}
