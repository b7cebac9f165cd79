#pragma once

#include "tracking/ProgressPane.h"

#include <QImage>
#include <functional>
#include <memory>

class CaptureHistory;
class UserNotifier;

// The collaborators outside command tracking that the progress managers reach: the pane that
// shows a command, the user's notifications, the capture history and the system icon table.
// The application's composition root installs them at start-up, before any command arrives;
// each setter with an empty argument restores the default. Main thread only.
class ProgressServices
{
public:
    using PaneFactory = std::function<std::shared_ptr<ProgressPane>(ProgressPane::Kind kind)>;
    // The system icon at an index of the table (code + 254); a null image when there is none.
    using SystemIconTable = std::function<QImage(int index)>;

    static std::shared_ptr<ProgressPane> makePane(ProgressPane::Kind kind);
    static void setPaneFactory(PaneFactory factory);

    static UserNotifier& userNotifier();
    static void setUserNotifier(UserNotifier* notifier);

    static CaptureHistory& captureHistory();
    static void setCaptureHistory(CaptureHistory* history);

    static QImage systemIcon(int index);
    static void setSystemIconTable(SystemIconTable table);
};
