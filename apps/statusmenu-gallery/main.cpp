// kestrom-statusmenu-gallery: renders the status item's menu in its states, the hold dialog, the
// run-at sheet and every icon of the status item to PNG files, in a light and a dark palette,
// for a reviewer on a machine without a display. The menu's panes are real: progress managers
// connected to commands played on a second bus connection of this process, so titles, run times
// and live states come over the bus as they do in the monitor.
#include "FakeCommand.h"
#include "Gallery.h"
#include "PeerBus.h"
#include "activity/ActivityWindowController.h"
#include "activity/ActivityWindowHost.h"
#include "activity/CommandUmbrellaViewController.h"
#include "errors/ContextualAlertInfo.h"
#include "exception/KSException.h"
#include "messaging/MessagingThread.h"
#include "statusmenu/HoldSchedulesUntilController.h"
#include "statusmenu/MonitorStatusMenuDelegate.h"
#include "statusmenu/RunActionsAtController.h"
#include "statusmenu/RunActionsControllerDelegate.h"
#include "statusmenu/ScheduleControl.h"
#include "statusmenu/StatusItemImage.h"
#include "statusmenu/StatusMenuHost.h"
#include "tracking/CommandInfo.h"
#include "tracking/CommandListenerService.h"
#include "tracking/CommandOnXPCConnection.h"

#include <QAction>
#include <QApplication>
#include <QDialog>
#include <QDir>
#include <QElapsedTimer>
#include <QLocale>
#include <QMenu>
#include <QPainter>
#include <QTimer>
#include <cstdio>
#include <cstdlib>
#include <functional>

namespace {

// The activity window's side of the monitor; the scheduler answers the next action.
class GalleryActivityHost final : public ActivityWindowHost
{
public:
    std::optional<QVariantMap> queryNextScheduledActionInfo() override { return nextAction; }
    std::optional<QVariantMap> nextAction;
};

// The application as the menu sees it: the activity window is real, the rest is set per shot.
class GalleryMenuHost final : public StatusMenuHost
{
public:
    explicit GalleryMenuHost(ActivityWindowController& window)
        : m_window(window)
    {}

    QList<CommandUmbrellaViewController*> orderedViewControllers() override
    {
        return m_window.orderedViewControllers();
    }
    NextAction nextAction() override
    {
        return {m_window.nextActionTitle(), m_window.nextActionTime()};
    }
    ArchiveStates archiveStates() override { return archives; }
    bool showStatusInStatusItem() override { return true; }
    QDateTime now() override { return QDateTime::currentDateTime(); }
    bool schedulerConnected() override { return true; }
    std::optional<QDateTime> holdDate() override { return hold; }
    std::optional<QVariantList> queryActionsInfo() override { return actions; }
    void runActionNow(const QString&) override {}
    void holdSchedules(int) override {}
    void resumeSchedules() override {}
    void orderMonitorWindowFront() override {}
    void orderStatusWindowFront() override {}
    void launchClient() override {}
    void quit() override {}

    ArchiveStates archives{true, false, false};
    std::optional<QDateTime> hold;
    QVariantList actions;

private:
    ActivityWindowController& m_window;
};

class QuietScheduler final : public ScheduleControl
{
public:
    std::optional<double> queryHoldTime() override { return 0.0; }
    void setHoldTime(double) override {}
};

// The pane that asked for the run-at sheet; its window carries the sheet.
class SheetOwner final : public RunActionsControllerDelegate
{
public:
    void runAction(const QString&, const QDateTime&) override {}
    QWidget* window() override { return nullptr; }
};

QVariantMap scheduledAction(const QString& title, const QString& uuid, bool runnable)
{
    return {{QStringLiteral("title"), title},
            {QStringLiteral("uuid"), uuid},
            {QStringLiteral("repname"), QStringLiteral("Home")},
            {QStringLiteral("runnable"), runnable}};
}

const QVariantList kScheduledActions{
    scheduledAction(QStringLiteral("Capture Home"), QStringLiteral("A-CAPTURE-HOME"), true),
    scheduledAction(QStringLiteral("Capture Photos"), QStringLiteral("A-CAPTURE-PHOTOS"), true),
    scheduledAction(QStringLiteral("Compact Home"), QStringLiteral("A-COMPACT-HOME"), true),
    scheduledAction(QStringLiteral("Verify Music"), QStringLiteral("A-VERIFY-MUSIC"), false),
};

const QVariantMap kCaptureProgress{{QStringLiteral("task"), QStringLiteral("Capturing Home")},
                                   {QStringLiteral("max"), 100},
                                   {QStringLiteral("value"), 40},
                                   {QStringLiteral("time"), 75}};
const QVariantMap kCompactProgress{
    {QStringLiteral("max"), 10}, {QStringLiteral("value"), 4}, {QStringLiteral("time"), 1394}};
const QVariantMap kVerifyProgress{{QStringLiteral("task"), QStringLiteral("Verifying Music")},
                                  {QStringLiteral("time"), 312}};

// One shot's activity window, its panes' commands and the menu over them.
class Scene
{
public:
    explicit Scene(PeerBus& peer)
        : m_peer(peer)
        , m_window(&m_activityHost)
        , m_host(m_window)
        , m_menu(m_host)
    {
        m_host.actions = kScheduledActions;
    }
    ~Scene()
    {
        // Let go, the commands end their panes on the main queue while the window still
        // holds their views.
        CommandListenerService::sharedService().removeAllListeners();
        for (int turn = 0; turn < 4; ++turn) {
            QCoreApplication::sendPostedEvents();
        }
        // A stopped command's manager and its pane hold each other until the pane resigns.
        for (const auto& manager : m_managers) {
            manager->viewController()->holdManagerUntilResigned(nullptr);
        }
    }

    using Manager = std::shared_ptr<ActivityProgressManager>;

    Manager start(const QString& command, const QString& title, const QString& action,
                  const QVariantMap& progress)
    {
        static int s_served = 0;
        auto* played = new FakeCommand(command);
        played->setAnswers({.name = command,
                            .displayDescription = title,
                            .actionUUID = action,
                            .supportsRepositoryRef = false,
                            .canCancel = true,
                            .canPause = true});
        const QString identifier = QStringLiteral("gallery-%1").arg(++s_served);
        const Endpoint endpoint =
            m_peer.serve(played, QStringLiteral("/gallery/command/%1").arg(s_served));
        Manager manager = ActivityProgressManager::initWithCommand(command);
        m_window.willAddListener(manager.get());
        manager->connectToCommand(
            std::make_shared<CommandOnXPCConnection>(command, endpoint, identifier));
        manager->commandDidStart();
        manager->commandProgressDidUpdate(progress);
        m_managers.push_back(manager);
        return manager;
    }

    void fail(const Manager& manager)
    {
        auto failure = std::make_shared<KSException>(KSException::exceptionWithName(
            QStringLiteral("Data"), QStringLiteral("The archive index is damaged")));
        failure->setPOSIXErr(13);
        manager->commandDidStopWithException(failure);
        // The end is queued on the main queue, behind the command's last answers.
        auto* pane = static_cast<CommandUmbrellaViewController*>(manager->viewController().get());
        QElapsedTimer waited;
        waited.start();
        while (!pane->showingAlert() && waited.elapsed() < 5000) {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        }
    }

    void scheduleNext(const QString& title, const QDateTime& time)
    {
        m_activityHost.nextAction =
            QVariantMap{{QStringLiteral("title"), title}, {QStringLiteral("time"), time}};
        m_window.scheduleDidChange();
    }

    GalleryMenuHost& host() { return m_host; }
    MonitorStatusMenuDelegate& menu() { return m_menu; }

private:
    PeerBus& m_peer;
    GalleryActivityHost m_activityHost;
    ActivityWindowController m_window;
    GalleryMenuHost m_host;
    MonitorStatusMenuDelegate m_menu;
    std::vector<Manager> m_managers;
};

QColor desktopColor()
{
    return QApplication::palette().color(QPalette::Window).lightness() < 128
               ? QColor(0x1c, 0x1c, 0x1c)
               : QColor(0xde, 0xdd, 0xda);
}

using ItemChoice = std::function<QAction*(QMenu*)>;

// The menu as it opens, and beside it the submenu of the item `open` chooses once the menu is
// filled; a strip of desktop around them so that the menu's edge shows.
QImage renderMenu(QMenu* menu, const ItemChoice& choose = {})
{
    menu->popup(QPoint(8, 8));
    QCoreApplication::processEvents();
    QList<QWidget*> shown{menu};
    QAction* open = choose ? choose(menu) : nullptr;
    if (open != nullptr && open->menu() != nullptr) {
        menu->setActiveAction(open);
        QMenu* submenu = open->menu();
        for (int turn = 0; turn < 50 && !submenu->isVisible(); ++turn) {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        }
        shown.append(submenu);
    }
    QCoreApplication::processEvents();
    QRect area;
    for (const QWidget* widget : std::as_const(shown)) {
        area |= widget->geometry();
    }
    area.adjust(-8, -8, 8, 8);
    QImage image(area.size(), QImage::Format_ARGB32);
    image.fill(desktopColor());
    QPainter painter(&image);
    for (QWidget* widget : std::as_const(shown)) {
        painter.drawPixmap(widget->geometry().topLeft() - area.topLeft(), widget->grab());
    }
    painter.end();
    menu->hide();
    QCoreApplication::processEvents();
    return image;
}

// The dialog that `run` opens modally, grabbed and then cancelled.
QImage renderModal(const std::function<void()>& run)
{
    QImage image;
    QTimer::singleShot(0, qApp, [&image] {
        if (auto* dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget())) {
            QCoreApplication::processEvents();
            image = dialog->grab().toImage();
            dialog->reject();
        }
    });
    run();
    return image;
}

struct IconColumn
{
    quint64 state;
    const char* label;
};

// Every image the status item can show, at the two sizes panels use most, named under each.
QImage renderIcons(bool dark)
{
    const IconColumn columns[] = {
        {0, "idle"},
        {StatusItemImage::kActive, "running"},
        {StatusItemImage::kHeld, "held"},
        {~quint64(0), "selected"},
        {StatusItemImage::kWarning, "warning"},
        {StatusItemImage::kCritical, "critical"},
        {StatusItemImage::kActive | StatusItemImage::kWarning, "running\nwarning"},
        {StatusItemImage::kActive | StatusItemImage::kCritical, "running\ncritical"},
        {StatusItemImage::kHeld | StatusItemImage::kWarning, "held\nwarning"},
        {StatusItemImage::kHeld | StatusItemImage::kCritical, "held\ncritical"},
    };
    constexpr int kColumn = 76;
    constexpr int kRow = 60;
    constexpr int kLabels = 40;
    const int count = int(std::size(columns));
    QImage sheet(count * kColumn, 2 * kRow + kLabels, QImage::Format_ARGB32);
    sheet.fill(dark ? QColor(0x24, 0x24, 0x24) : QColor(0xf6, 0xf5, 0xf4));
    QPainter painter(&sheet);
    QFont font = QApplication::font();
    font.setPointSizeF(font.pointSizeF() * 0.85);
    painter.setFont(font);
    painter.setPen(dark ? QColor(0xde, 0xdd, 0xda) : QColor(0x3d, 0x3d, 0x3d));
    const QColor glyph = dark ? QColor(0xf2, 0xf2, 0xf2) : QColor(0x2e, 0x2e, 0x2e);
    for (int column = 0; column < count; ++column) {
        const int left = column * kColumn;
        for (const int size : {22, 44}) {
            const int top = size == 22 ? (kRow - 22) / 2 : kRow + (kRow - 44) / 2;
            const QPoint at(left + (kColumn - size) / 2, top);
            if (columns[column].state == ~quint64(0)) {
                painter.drawImage(at, StatusItemImage::namedImage(
                                          QStringLiteral("MenuBarIconSelected"), size, glyph));
            } else {
                painter.drawPixmap(
                    at,
                    StatusItemImage::icon(columns[column].state, true, dark).pixmap(size, size));
            }
        }
        painter.drawText(QRect(left, 2 * kRow, kColumn, kLabels), Qt::AlignHCenter | Qt::AlignTop,
                         QString::fromLatin1(columns[column].label));
    }
    painter.end();
    return sheet;
}

using Render = std::function<QImage(Scene&)>;

struct Shot
{
    const char* name;
    const char* what;
    Render render;
};

const Shot kShots[] = {
    {"idle", "nothing running: the next action and its date; the actions to run now",
     [](Scene& scene) {
         const QDateTime now = QDateTime::currentDateTime();
         scene.scheduleNext(QStringLiteral("Capture Home"),
                            QDateTime(now.date(), QTime(now.time().hour(), 0)).addSecs(2 * 3600));
         return renderMenu(scene.menu().menu(),
                           [&scene](QMenu*) { return scene.menu().itemWithTag(6); });
     }},
    {"running", "two commands running with their run times, a third stopped with an alert",
     [](Scene& scene) {
         scene.start(QStringLiteral("capture"), QStringLiteral("Capture Home"),
                     QStringLiteral("A-CAPTURE-HOME"), kCaptureProgress);
         scene.start(QStringLiteral("compact"), QStringLiteral("Compact Home"),
                     QStringLiteral("A-COMPACT-HOME"), kCompactProgress);
         scene.fail(scene.start(QStringLiteral("verify"), QStringLiteral("Verify Music"),
                                QStringLiteral("A-VERIFY-MUSIC"), kVerifyProgress));
         return renderMenu(scene.menu().menu());
     }},
    {"running-controls", "a running command's controls, as its item's submenu",
     [](Scene& scene) {
         scene.start(QStringLiteral("capture"), QStringLiteral("Capture Home"),
                     QStringLiteral("A-CAPTURE-HOME"), kCaptureProgress);
         return renderMenu(scene.menu().menu(),
                           [](QMenu* menu) { return menu->actions().constLast(); });
     }},
    {"held", "schedules held for three hours",
     [](Scene& scene) {
         scene.host().hold = QDateTime::currentDateTime().addSecs(3 * 3600);
         return renderMenu(scene.menu().menu());
     }},
    {"archive-warning", "an archive needs attention soon",
     [](Scene& scene) {
         scene.host().archives = {true, true, false};
         return renderMenu(scene.menu().menu());
     }},
    {"archive-critical", "an archive needs attention now",
     [](Scene& scene) {
         scene.host().archives = {true, true, true};
         return renderMenu(scene.menu().menu());
     }},
};

bool saveDialogs(const QDir& folder, const QString& paletteName)
{
    QuietScheduler scheduler;
    HoldSchedulesUntilController hold(scheduler, {});
    hold.setHelpButtonHidden(true);
    bool written = Gallery::save(
        renderModal([&hold] { hold.runHoldDialog(); }), folder,
        QStringLiteral("hold-dialog-%1").arg(paletteName),
        QStringLiteral("the hold dialog, proposing one hour from the current minute"));

    SheetOwner owner;
    RunActionsAtController sheet({});
    sheet.setDelegate(&owner);
    written &= Gallery::save(
        renderModal([&sheet] {
            sheet.runSheetWithDefaultDate(std::nullopt, {QStringLiteral("A-CAPTURE-HOME")});
        }),
        folder, QStringLiteral("run-at-sheet-%1").arg(paletteName),
        QStringLiteral("the run-at sheet of a stopped and rescheduled command"));
    sheet.setDelegate(nullptr);
    return written;
}

} // namespace

int main(int argc, char** argv)
{
    Gallery::prepare();
    QApplication app(argc, argv);
    int status = 0;
    const std::optional<QDir> chosen = Gallery::folder("kestrom-statusmenu-gallery", status);
    if (!chosen) {
        return status;
    }
    const QDir& folder = *chosen;
    // The panes' commands answer over the bus, as real ones do.
    if (!MessagingThread::instance().connection().isConnected()) {
        std::fprintf(stderr,
                     "no session bus: run it through scripts/headless or dbus-run-session\n");
        return 1;
    }
    CommandListenerService::sharedService().setSwitchboardName(
        QStringLiteral("com.kestrom.monitor"));
    ContextualAlertInfo::setCommandNamer(&CommandInfo::humanReadableNameForCommandName);
    PeerBus peer(QStringLiteral("statusmenu-gallery-commands"));

    const QPalette light = QApplication::palette();
    bool written = true;
    for (const auto& [paletteName, palette] :
         {std::pair{QStringLiteral("light"), light},
          std::pair{QStringLiteral("dark"), Gallery::darkPalette()}}) {
        QApplication::setPalette(palette);
        for (const Shot& shot : kShots) {
            Scene scene(peer);
            written &= Gallery::save(
                shot.render(scene), folder,
                QStringLiteral("statusmenu-%1-%2").arg(QLatin1String(shot.name), paletteName),
                QLatin1String(shot.what));
        }
        written &= saveDialogs(folder, paletteName);
        written &= Gallery::save(renderIcons(paletteName == QLatin1String("dark")), folder,
                                 QStringLiteral("status-item-icons-%1").arg(paletteName),
                                 QStringLiteral("every status item image at 22 and 44 pixels"));
    }
    return written ? 0 : 1;
}
