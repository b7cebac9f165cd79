// What the archive status window costs with many archives: reading the mirrors (a worker
// thread's part of a reload), a whole reload as the main thread sees it (the rows graded and
// shown; made the first time, reused after), and a repaint of a hundred detailed rows.
#include "platform/SleepWatcher.h"
#include "preferences/ImpermanentValues.h"
#include "preferences/MonitorDefaults.h"
#include "preferences/PropertyList.h"
#include "status/RepositoryStatus.h"
#include "statuswindow/ArchiveStatusViewController.h"
#include "statuswindow/ArchiveStatusWindowController.h"
#include "statuswindow/StatusMirrorScan.h"
#include "statuswindow/StatusWindowHost.h"

#include <QApplication>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QTemporaryDir>
#include <QThreadPool>
#include <benchmark/benchmark.h>

namespace {

class BenchHost final : public StatusWindowHost
{
public:
    void showStatusItemStates(bool, quint64) override {}
    void viewLogLine(const QString&) override {}
    void openRepository(const QString&, qint32) override {}
    void revealInFileViewer(const QString&) override {}
    // As in the monitor: the mirrors are read on a worker.
    void runInBackground(std::function<void()> job) override
    {
        QThreadPool::globalInstance()->start(std::move(job));
    }
};

class NoSleep final : public SleepWatcher
{
public:
    void setWakeHandler(std::function<void()>) override {}
};

QString configFolder()
{
    static QTemporaryDir s_dir;
    static const bool s_set =
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(s_dir.path() + QStringLiteral("/config"))) &&
        qputenv("XDG_STATE_HOME", QFile::encodeName(s_dir.path() + QStringLiteral("/state")));
    (void)s_set;
    return s_dir.path();
}

QString writeMirrors(int count)
{
    configFolder();
    const QString folder = RepositoryStatus::statusFolder();
    QDir(folder).removeRecursively();
    QDir().mkpath(folder);
    const QDateTime now = QDateTime::currentDateTime();
    for (int i = 0; i < count; ++i) {
        const QString uuid = QStringLiteral("UUID-%1").arg(i);
        const QVariantMap status{{RepositoryStatus::kRepositoryUUID, uuid},
                                 {RepositoryStatus::kRepositoryPath,
                                  QStringLiteral("/media/disk/Archive %1.stromi").arg(i)},
                                 {RepositoryStatus::kLastCaptureDate, now.addSecs(-i * 600)},
                                 {RepositoryStatus::kLastVerifyDate, now.addDays(-(i % 20))},
                                 {RepositoryStatus::kCaptureWarning, i % 7 == 0},
                                 {RepositoryStatus::kRepositorySize, qint64(1) << 36},
                                 {RepositoryStatus::kRepositoryFree, qint64(1) << 30},
                                 {RepositoryStatus::kVolumeSize, qint64(1) << 40},
                                 {RepositoryStatus::kVolumeFree, qint64(1) << 39},
                                 {RepositoryStatus::kNeedsRepair, i % 50 == 0}};
        QFile file(folder + QLatin1Char('/') + uuid + QStringLiteral(".plist"));
        if (file.open(QIODevice::WriteOnly)) {
            file.write(PropertyList::xmlData(status).data);
        }
    }
    return folder;
}

struct Window
{
    BenchHost host;
    NoSleep wake;
    ImpermanentValues impermanent{MonitorDefaults::standardUserDefaults()};
    ArchiveStatusWindowController controller{{&host, &MonitorDefaults::standardUserDefaults(),
                                              &impermanent, &wake, &QDateTime::currentDateTime,
                                              RepositoryStatus::statusFolder()}};

    // Returns once the reload is shown.
    void reload()
    {
        QEventLoop loop;
        const auto shown = QObject::connect(&controller, &ArchiveStatusWindowController::reloaded,
                                            &loop, &QEventLoop::quit);
        controller.reload();
        loop.exec();
        QObject::disconnect(shown);
    }
};

void BM_ReadMirrors(benchmark::State& state)
{
    const QString folder = writeMirrors(int(state.range(0)));
    const QDateTime cutoff = QDateTime::currentDateTime().addDays(-49);
    for (auto _ : state) {
        const auto entries = StatusMirrorScan::collect(folder, cutoff);
        if (entries.size() != state.range(0)) {
            state.SkipWithError("a mirror was not read");
        }
        benchmark::DoNotOptimize(entries);
    }
}
BENCHMARK(BM_ReadMirrors)->Arg(1000)->Unit(benchmark::kMillisecond);

// The whole reload, reading included; the rows exist already (a reload as most are).
void BM_ReloadShown(benchmark::State& state)
{
    writeMirrors(int(state.range(0)));
    Window window;
    window.reload();
    window.controller.showStatusWindowInFront(false);
    for (auto _ : state) {
        window.reload();
    }
    state.counters["rows"] = double(window.controller.statusControllers().size());
}
BENCHMARK(BM_ReloadShown)->Arg(1000)->Unit(benchmark::kMillisecond)->UseRealTime();

// The first reload, which makes every row (the window's end is not counted).
void BM_FirstReload(benchmark::State& state)
{
    writeMirrors(int(state.range(0)));
    for (auto _ : state) {
        auto window = std::make_unique<Window>();
        window->reload();
        benchmark::DoNotOptimize(window->controller.hasStatus());
        state.PauseTiming();
        window.reset();
        QCoreApplication::processEvents();
        state.ResumeTiming();
    }
}
BENCHMARK(BM_FirstReload)->Arg(1000)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

void BM_RepaintDetailedRows(benchmark::State& state)
{
    writeMirrors(int(state.range(0)));
    Window window;
    window.reload();
    for (const auto& row : window.controller.statusControllers()) {
        window.impermanent.setImpermanentValue(true, ArchiveStatusViewController::kStatusDetails,
                                               row->uuid());
        row->restoreDefaultView();
    }
    QWidget* document = window.controller.contentScrollView()->widget();
    document->resize(460, document->sizeHint().height());
    for (auto _ : state) {
        benchmark::DoNotOptimize(document->grab());
    }
}
BENCHMARK(BM_RepaintDetailedRows)->Arg(100)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
