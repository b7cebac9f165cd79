// kestrom-activity-gallery: renders the activity window's states to PNG files, in a light and a
// dark palette, for a reviewer on a machine without a display. Panes are driven by real
// progress managers fed the dictionaries a command would send.
#include "Gallery.h"
#include "activity/ActivityWindowController.h"
#include "activity/ActivityWindowHost.h"
#include "activity/CommandDetailsViewController.h"
#include "activity/CommandFailureViewController.h"
#include "activity/CommandProgressViewController.h"
#include "activity/CommandUmbrellaViewController.h"
#include "activity/LogViewerWindow.h"
#include "errors/ContextualAlertInfo.h"
#include "exception/KSException.h"
#include "logging/LogLineIdentifier.h"
#include "preferences/MonitorDefaults.h"
#include "tracking/CommandInfo.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QLabel>
#include <QLocale>
#include <QScrollArea>
#include <QTextStream>
#include <cstdio>
#include <cstdlib>
#include <functional>

namespace {
// What the monitor's core would answer; here the scheduler and update watch are scripted.
class GalleryHost final : public ActivityWindowHost
{
public:
    std::optional<QVariantMap> queryNextScheduledActionInfo() override { return nextAction; }
    bool updateAvailable() const override { return !version.isEmpty(); }
    QString readableVersionAvailable() const override { return version; }
    QVariant impermanentValue(const QString& key, const QString& identifier) override
    {
        return memory.value(key + identifier);
    }
    void setImpermanentValue(const QVariant& value, const QString& key,
                             const QString& identifier) override
    {
        memory.insert(key + identifier, value);
    }

    std::optional<QVariantMap> nextAction;
    QString version;
    QVariantMap memory;
};

class Scene
{
public:
    Scene()
        : m_window(&m_host)
    {}

    using Manager = std::shared_ptr<ActivityProgressManager>;

    // The title stands in for the one a command answers over the bus.
    Manager start(const QString& command, const QString& title, const QVariantMap& progress)
    {
        auto manager = ActivityProgressManager::initWithCommand(command);
        m_window.willAddListener(manager.get());
        manager->commandDidStart();
        manager->commandProgressDidUpdate(progress);
        m_titles.append({manager, title});
        m_managers.push_back(manager);
        return manager;
    }

    static CommandUmbrellaViewController* paneOf(const Manager& manager)
    {
        return static_cast<CommandUmbrellaViewController*>(manager->viewController().get());
    }

    GalleryHost& host() { return m_host; }
    ActivityWindowController& window() { return m_window; }

    QWidget* render()
    {
        for (const auto& [manager, title] : m_titles) {
            CommandUmbrellaViewController* pane = paneOf(manager);
            for (QLabel* field :
                 {pane->collapsedViewController() ? pane->collapsedViewController()->titleField()
                                                  : nullptr,
                  pane->detailedViewController() ? pane->detailedViewController()->titleField()
                                                 : nullptr,
                  pane->failureViewController() ? pane->failureViewController()->titleField()
                                                : nullptr}) {
                if (field) {
                    field->setText(title);
                }
            }
        }
        QWidget* shown = m_window.window();
        shown->resize(440, 60);
        shown->show();
        // The window grows by itself to hold its panes.
        const QScrollArea* scroll = m_window.contentScrollView();
        QElapsedTimer waited;
        waited.start();
        while (scroll->widget()->height() > scroll->viewport()->height() &&
               waited.elapsed() < 5000) {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
        }
        return shown;
    }

private:
    GalleryHost m_host;
    ActivityWindowController m_window;
    QList<QPair<Manager, QString>> m_titles;
    std::vector<Manager> m_managers;
};

const QVariantMap kCaptureProgress{{QStringLiteral("task"), QStringLiteral("Capturing Home")},
                                   {QStringLiteral("max"), 100},
                                   {QStringLiteral("value"), 40},
                                   {QStringLiteral("time"), 75},
                                   {QStringLiteral("verb"), QStringLiteral("Copying")},
                                   {QStringLiteral("item"), QStringLiteral("Notes.txt")},
                                   {QStringLiteral("alt"), true},
                                   {QStringLiteral("bytes"), 734003200},
                                   {QStringLiteral("items"), 1234},
                                   {QStringLiteral("rate"), 52428800},
                                   {QStringLiteral("dup"), 7}};

const QVariantMap kCompactProgress{{QStringLiteral("max"), 10},
                                   {QStringLiteral("value"), 4},
                                   {QStringLiteral("bytes"), 5000000},
                                   {QStringLiteral("saved"), 1200000}};

const QVariantMap kVerifyProgress{{QStringLiteral("task"), QStringLiteral("Verifying Home")},
                                  {QStringLiteral("time"), 312},
                                  {QStringLiteral("files"), 4210},
                                  {QStringLiteral("folders"), 318},
                                  {QStringLiteral("stromi"), 1},
                                  {QStringLiteral("layers"), 42}};

void pause(const Scene::Manager& manager)
{
    manager->commandProgressDidUpdate({{QStringLiteral("paws"), 1500}});
}

void failVerify(Scene& scene)
{
    const auto manager =
        scene.start(QStringLiteral("verify"), QStringLiteral("Verify Home"), kVerifyProgress);
    auto failure = std::make_shared<KSException>(KSException::exceptionWithName(
        QStringLiteral("Data"), QStringLiteral("The archive index is damaged")));
    failure->setPOSIXErr(13);
    failure->setDetail(QStringLiteral("verify"), QStringLiteral(".Command"));
    manager->commandDidStopWithException(failure);
    QCoreApplication::processEvents(); // the end is queued on the main queue
    QCoreApplication::processEvents();
}

using Render = std::function<QWidget*(Scene&)>;

struct Shot
{
    const char* name;
    const char* what;
    Render render;
};

const Shot kShots[] = {
    {"capture-collapsed", "a capture mid-run, collapsed",
     [](Scene& scene) {
         scene.start(QStringLiteral("capture"), QStringLiteral("Capture Home"), kCaptureProgress);
         return scene.render();
     }},
    {"capture-detailed", "the same capture with its details",
     [](Scene& scene) {
         const auto capture = scene.start(QStringLiteral("capture"), QStringLiteral("Capture Home"),
                                          kCaptureProgress);
         Scene::paneOf(capture)->setShowingDetails(true);
         return scene.render();
     }},
    {"compact-paused", "a compact paused for 25 minutes, with its details",
     [](Scene& scene) {
         const auto compact = scene.start(QStringLiteral("compact"), QStringLiteral("Compact Home"),
                                          kCompactProgress);
         pause(compact);
         Scene::paneOf(compact)->setShowingDetails(true);
         return scene.render();
     }},
    {"verify-failure", "a verify that could not access its archive",
     [](Scene& scene) {
         failVerify(scene);
         return scene.render();
     }},
    {"idle-next-action", "nothing running, the next action in five minutes",
     [](Scene& scene) {
         scene.host().nextAction =
             QVariantMap{{QStringLiteral("title"), QStringLiteral("Capture Home")},
                         {QStringLiteral("time"), QDateTime::currentDateTime().addSecs(300)}};
         scene.window().scheduleDidChange();
         return scene.render();
     }},
    {"update-notice", "the update notice above a running capture",
     [](Scene& scene) {
         scene.host().version = QStringLiteral("2.3.0");
         scene.window().updateAvailableChanged();
         scene.start(QStringLiteral("capture"), QStringLiteral("Capture Home"), kCaptureProgress);
         return scene.render();
     }},
    {"keyboard-focus", "two captures, the second reached with Tab",
     [](Scene& scene) {
         scene.start(QStringLiteral("capture"), QStringLiteral("Capture Home"), kCaptureProgress);
         const auto focused = scene.start(QStringLiteral("capture"), QStringLiteral("Capture Mail"),
                                          kCaptureProgress);
         QWidget* shown = scene.render();
         shown->activateWindow();
         Scene::paneOf(focused)->view()->setFocus(Qt::TabFocusReason);
         QCoreApplication::processEvents();
         return shown;
     }},
    {"five-panes", "five commands at once, one detailed and one failed",
     [](Scene& scene) {
         scene.host().nextAction =
             QVariantMap{{QStringLiteral("title"), QStringLiteral("Capture Photos")},
                         {QStringLiteral("time"), QDateTime::currentDateTime().addSecs(120)}};
         scene.window().scheduleDidChange();
         scene.start(QStringLiteral("capture"), QStringLiteral("Capture Home"), kCaptureProgress);
         const auto detailed = scene.start(QStringLiteral("capture"),
                                           QStringLiteral("Capture Mail"), kCaptureProgress);
         Scene::paneOf(detailed)->setShowingDetails(true);
         pause(scene.start(QStringLiteral("compact"), QStringLiteral("Compact Home"),
                           kCompactProgress));
         scene.start(QStringLiteral("merge"), QStringLiteral("Merge Layers"),
                     {{QStringLiteral("task"), QStringLiteral("Merging layers")},
                      {QStringLiteral("time"), 40}});
         failVerify(scene);
         return scene.render();
     }},
};

QString writeSampleLog(const QDir& folder)
{
    const QString path = folder.filePath(QStringLiteral("gallery-sample.log"));
    QFile file(path);
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        QTextStream(&file)
            << "2026-11-23 09:00:00.120 +0100 Capture Home started [4.11]\n"
               "2026-11-23 09:00:02.481 +0100 Copied 1,234 items (734.0 MB) [4.11.1]\n"
               "2026-11-23 09:00:03.002 +0100 Verify Home started [4.12]\n"
               "2026-11-23 09:00:04.317 +0100 Verify Home stopped: The archive index is "
               "damaged [4.12.1]\n"
               "2026-11-23 09:00:04.318 +0100 posix = 13 [4.12.1.1]\n"
               "2026-11-23 09:00:04.319 +0100 Command could not access archive [4.12.2]\n"
               "2026-11-23 09:00:09.900 +0100 Capture Home complete [4.11.2]\n";
    }
    return path;
}

// View Log for a failure that names no line: the monitor's viewer at the end of the log.
bool saveLogViewerAtTheEnd(const QDir& folder, const QString& log, const QString& paletteName)
{
    LogViewerWindow viewer;
    viewer.setLogFilePath(log);
    viewer.resize(720, 120);
    viewer.showLogLine(LogLine());
    QCoreApplication::processEvents();
    return Gallery::save(
        &viewer, folder, QStringLiteral("log-viewer-end-%1").arg(paletteName),
        QStringLiteral("View Log for a failure without a line: the end of the log"));
}

// The log rotated while the viewer was open at a line: it follows the new file.
bool saveLogViewerAfterARotation(const QDir& folder, const QString& paletteName)
{
    const QString path = folder.filePath(QStringLiteral("gallery-rotating.log"));
    QFile::remove(path + QStringLiteral(".1"));
    QFile::remove(path);
    QFile::copy(folder.filePath(QStringLiteral("gallery-sample.log")), path);
    LogViewerWindow viewer;
    viewer.setLogFilePath(path);
    viewer.resize(720, 140);
    viewer.showLogLine(LogLineIdentifier::fromString(QStringLiteral("4.12")));
    QFile::rename(path, path + QStringLiteral(".1"));
    QFile fresh(path);
    if (fresh.open(QIODevice::WriteOnly)) {
        fresh.write("2026-11-24 00:00:00.002 +0100 Log continued from gallery-rotating.log.1 "
                    "[5.1]\n"
                    "2026-11-24 00:00:05.740 +0100 Capture Home started [5.2]\n");
        fresh.close();
    }
    viewer.followFile();
    QCoreApplication::processEvents();
    const bool written =
        Gallery::save(&viewer, folder, QStringLiteral("log-viewer-rotated-%1").arg(paletteName),
                      QStringLiteral("the log viewer following the new file after a rotation"));
    QFile::remove(path + QStringLiteral(".1"));
    QFile::remove(path);
    return written;
}

// The one-time hint, as the pointer first enters the window; the user's own setting is put
// back afterwards.
bool saveDetailsHint(const QDir& folder, const QString& paletteName)
{
    Scene scene;
    scene.start(QStringLiteral("capture"), QStringLiteral("Capture Home"), kCaptureProgress);
    QWidget* window = scene.render();
    MonitorDefaults& defaults = MonitorDefaults::standardUserDefaults();
    const QString key = scene.window().detailsHintShownKey();
    const QVariant before = defaults.objectForKey(key);
    defaults.removeObjectForKey(key);
    QEvent enter(QEvent::Enter);
    QCoreApplication::sendEvent(window, &enter);
    QCoreApplication::processEvents();
    QWidget* hint = nullptr;
    for (QWidget* widget : QApplication::topLevelWidgets()) {
        if (widget->accessibleName() == QStringLiteral("Hint") && widget->isVisible()) {
            hint = widget;
        }
    }
    const bool written =
        hint != nullptr &&
        Gallery::save(hint, folder, QStringLiteral("details-hint-%1").arg(paletteName),
                      QStringLiteral("the hint that a click shows a pane's details"));
    scene.window().closeDetailsHint();
    if (before.isValid()) {
        defaults.setObject(before, key);
    }
    return written;
}
} // namespace

int main(int argc, char** argv)
{
    Gallery::prepare();
    QApplication app(argc, argv);
    int status = 0;
    const std::optional<QDir> chosen = Gallery::folder("kestrom-activity-gallery", status);
    if (!chosen) {
        return status;
    }
    const QDir& folder = *chosen;
    ContextualAlertInfo::setCommandNamer(&CommandInfo::humanReadableNameForCommandName);
    const QPalette light = QApplication::palette();
    const QString log = writeSampleLog(folder);
    bool written = true;
    for (const auto& [paletteName, palette] :
         {std::pair{QStringLiteral("light"), light},
          std::pair{QStringLiteral("dark"), Gallery::darkPalette()}}) {
        QApplication::setPalette(palette);
        for (const Shot& shot : kShots) {
            Scene scene;
            written &= Gallery::save(
                shot.render(scene), folder,
                QStringLiteral("activity-%1-%2").arg(QLatin1String(shot.name), paletteName),
                QLatin1String(shot.what));
        }
        LogViewerWindow viewer;
        viewer.setLogFilePath(log);
        viewer.resize(720, 220);
        viewer.showLogLine(LogLineIdentifier::fromString(QStringLiteral("4.12")));
        viewer.show();
        QCoreApplication::processEvents();
        written &=
            Gallery::save(&viewer, folder, QStringLiteral("log-viewer-%1").arg(paletteName),
                          QStringLiteral("the log viewer at a failure's line and its sub-lines"));
        written &= saveLogViewerAtTheEnd(folder, log, paletteName);
        written &= saveLogViewerAfterARotation(folder, paletteName);
        written &= saveDetailsHint(folder, paletteName);
    }
    return written ? 0 : 1;
}
