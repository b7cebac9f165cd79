// kestrom-status-gallery: renders the archive status window to PNG files, in a light and a dark
// palette, for a reviewer on a machine without a display: archives in every state, summary and
// detailed rows, each mode of the size bar. The statuses are real mirror files in a folder of
// the gallery's own; the window reads and grades them as the monitor does.
#include "Gallery.h"
#include "platform/SleepWatcher.h"
#include "preferences/ImpermanentValues.h"
#include "preferences/MonitorDefaults.h"
#include "preferences/PropertyList.h"
#include "status/RepositoryStatus.h"
#include "statuswindow/ArchiveStatusSizeView.h"
#include "statuswindow/ArchiveStatusViewController.h"
#include "statuswindow/ArchiveStatusWindowController.h"
#include "statuswindow/StatusWindowHost.h"
#include "ui_ArchiveStatusViewController.h"

#include <QApplication>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QLocale>
#include <QTemporaryDir>
#include <cstdio>

namespace {

class GalleryHost final : public StatusWindowHost
{
public:
    void showStatusItemStates(bool, quint64) override {}
    void viewLogLine(const QString&) override {}
    void openRepository(const QString&, qint32) override {}
    void revealInFileViewer(const QString&) override {}
    void runInBackground(std::function<void()> job) override { job(); }
};

class NoSleep final : public SleepWatcher
{
public:
    void setWakeHandler(std::function<void()>) override {}
};

constexpr qint64 kGiB = 1024LL * 1024 * 1024;

// Archives whose paths do not exist, so that the sizes recorded are the ones graded.
void writeStatuses(const QString& folder)
{
    const QDateTime now = QDateTime::currentDateTime();
    const auto write = [&](const QString& uuid, const QString& name, QVariantMap properties) {
        properties.insert(QStringLiteral("repositoryUUID"), uuid);
        properties.insert(QStringLiteral("repositoryPath"),
                          QStringLiteral("/media/backup/%1.stromi").arg(name));
        properties.insert(QStringLiteral("displayName"), name);
        properties.insert(
            QStringLiteral("lastCaptureDate"),
            properties.value(QStringLiteral("lastCaptureDate"), now.addSecs(-3 * 3600)));
        properties.insert(QStringLiteral("lastVerifyDate"),
                          properties.value(QStringLiteral("lastVerifyDate"), now.addDays(-2)));
        properties.insert(QStringLiteral("repositorySize"),
                          properties.value(QStringLiteral("repositorySize"), 120 * kGiB));
        properties.insert(QStringLiteral("repositoryFree"),
                          properties.value(QStringLiteral("repositoryFree"), 8 * kGiB));
        properties.insert(QStringLiteral("volumeSize"),
                          properties.value(QStringLiteral("volumeSize"), 1000 * kGiB));
        properties.insert(QStringLiteral("volumeFree"),
                          properties.value(QStringLiteral("volumeFree"), 420 * kGiB));
        QFile file(QDir(folder).filePath(uuid + QStringLiteral(".plist")));
        if (file.open(QIODevice::WriteOnly)) {
            file.write(PropertyList::xmlData(properties).data);
        }
    };
    write(QStringLiteral("A-OK"), QStringLiteral("Documents"), {});
    write(QStringLiteral("B-CAPTURE"), QStringLiteral("Photos"),
          {{QStringLiteral("captureWarning"), true}});
    write(QStringLiteral("C-VERIFY"), QStringLiteral("Music"),
          {{QStringLiteral("lastVerifyDate"), now.addDays(-40)}});
    write(QStringLiteral("D-FULL"), QStringLiteral("Projects"),
          {{QStringLiteral("repositorySize"), 900 * kGiB},
           {QStringLiteral("repositoryFree"), 2 * kGiB},
           {QStringLiteral("volumeFree"), 12 * kGiB}});
    write(QStringLiteral("E-REPAIR"), QStringLiteral("Laptop"),
          {{QStringLiteral("needsRepair"), true}});
    write(QStringLiteral("F-IGNORED"), QStringLiteral("Old Disk"),
          {{QStringLiteral("lastCaptureDate"), now.addDays(-30)}});
    QFile unknown(QDir(folder).filePath(QStringLiteral("G-UNKNOWN.plist")));
    if (unknown.open(QIODevice::WriteOnly)) {
        unknown.write(
            PropertyList::xmlData(
                QVariantMap{
                    {QStringLiteral("repositoryUUID"), QStringLiteral("G-UNKNOWN")},
                    {QStringLiteral("repositoryPath"), QStringLiteral("/media/new/Travel.stromi")},
                    {QStringLiteral("lastCaptureDate"), now},
                    {QStringLiteral("lastVerifyDate"), now},
                })
                .data);
    }
}

void settle(ArchiveStatusWindowController& window)
{
    QEventLoop loop;
    QObject::connect(&window, &ArchiveStatusWindowController::reloaded, &loop, &QEventLoop::quit);
    window.reload();
    loop.exec();
    window.showStatusWindowInFront(false);
    for (int round = 0; round < 3; ++round) {
        QCoreApplication::processEvents();
    }
}

} // namespace

int main(int argc, char** argv)
{
    Gallery::prepare();
    QApplication app(argc, argv);
    int status = 0;
    const std::optional<QDir> chosen = Gallery::folder("kestrom-status-gallery", status);
    if (!chosen) {
        return status;
    }
    const QDir& folder = *chosen;
    QTemporaryDir config;
    if (!config.isValid()) {
        std::fprintf(stderr, "cannot make a temporary folder\n");
        return 1;
    }
    // The gallery's statuses and choices never touch the user's own.
    qputenv("XDG_CONFIG_HOME", config.path().toLocal8Bit());
    QDir().mkpath(RepositoryStatus::statusFolder());
    writeStatuses(RepositoryStatus::statusFolder());

    GalleryHost host;
    NoSleep wake;
    MonitorDefaults& defaults = MonitorDefaults::standardUserDefaults();
    ImpermanentValues impermanent(defaults);
    impermanent.setImpermanentValue(true, QStringLiteral("ignoreCaptureWarnings"),
                                    QStringLiteral("F-IGNORED"));
    ArchiveStatusWindowController window({&host, &defaults, &impermanent, &wake,
                                          &QDateTime::currentDateTime,
                                          RepositoryStatus::statusFolder()});
    window.window()->resize(460, 120);

    const QPalette light = QApplication::palette();
    bool written = true;
    for (const auto& [paletteName, palette] :
         {std::pair{QStringLiteral("light"), light},
          std::pair{QStringLiteral("dark"), Gallery::darkPalette()}}) {
        QApplication::setPalette(palette);
        for (const auto& row : window.statusControllers()) {
            impermanent.setImpermanentValue(false, ArchiveStatusViewController::kStatusDetails,
                                            row->uuid());
            row->restoreDefaultView();
        }
        settle(window);
        written &= Gallery::save(window.window(), folder,
                                 QStringLiteral("status-summary-%1").arg(paletteName),
                                 QStringLiteral("every archive state as a summary row"));
        for (unsigned mode : {0U, 1U, 2U}) {
            for (const auto& row : window.statusControllers()) {
                impermanent.setImpermanentValue(true, ArchiveStatusViewController::kStatusDetails,
                                                row->uuid());
                impermanent.setImpermanentValue(
                    qint64(mode), ArchiveStatusViewController::kSizeViewMode, row->uuid());
                row->restoreDefaultView();
            }
            settle(window);
            written &= Gallery::save(
                window.window(), folder,
                QStringLiteral("status-detailed-mode%1-%2").arg(mode).arg(paletteName),
                QStringLiteral("detailed rows, size bar in mode %1").arg(mode));
        }
    }
    return written ? 0 : 1;
}
