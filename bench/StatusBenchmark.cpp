#include "messaging/ClientIdentifier.h"
#include "preferences/PropertyList.h"
#include "status/OutlineTree.h"
#include "status/RecentCaptures.h"
#include "status/RepositoryStatus.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <atomic>
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <thread>
#include <unistd.h>

namespace {

// A configuration folder of its own, so that the benchmarks never touch the user's.
QString configFolder()
{
    static QTemporaryDir s_dir;
    static const bool s_set =
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(s_dir.path() + QStringLiteral("/config"))) &&
        qputenv("XDG_STATE_HOME", QFile::encodeName(s_dir.path() + QStringLiteral("/state")));
    (void)s_set;
    return s_dir.path();
}

void BM_AllMirroredStatuses(benchmark::State& state)
{
    configFolder();
    const QString folder = RepositoryStatus::statusFolder();
    QDir(folder).removeRecursively();
    QDir().mkpath(folder);
    for (int i = 0; i < state.range(0); ++i) {
        const QString uuid = QStringLiteral("UUID-%1").arg(i);
        const QVariantMap status{
            {RepositoryStatus::kRepositoryUUID, uuid},
            {RepositoryStatus::kRepositoryPath,
             QStringLiteral("/media/disk/Archive %1.stromi").arg(i)},
            {RepositoryStatus::kLastCaptureDate, QDateTime::currentDateTimeUtc()},
            {RepositoryStatus::kMeanCaptureInterval, 86400.0},
            {RepositoryStatus::kRepositorySize, qint64(1) << 40},
            {RepositoryStatus::kNeedsRepair, false}};
        QFile file(folder + QLatin1Char('/') + uuid + QStringLiteral(".plist"));
        if (!file.open(QIODevice::WriteOnly)) {
            state.SkipWithError("cannot write a mirror");
            return;
        }
        file.write(PropertyList::xmlData(status).data);
    }
    for (auto _ : state) {
        const auto all = RepositoryStatus::all();
        if (all.size() != state.range(0)) {
            state.SkipWithError("a mirror was not read");
        }
        benchmark::DoNotOptimize(all);
    }
}
BENCHMARK(BM_AllMirroredStatuses)->Arg(1000)->Unit(benchmark::kMillisecond);

// `archives` archives with outlines of `entries` items each (one outline file hard-linked into
// every archive: the reading cost is the same, the disk space is not), all in the history.
struct History
{
    QTemporaryDir root;
    QStringList items;
};

std::unique_ptr<History> makeHistory(int archives, int entries)
{
    auto history = std::make_unique<History>();
    configFolder();
    QDir(RecentCaptures::defaultFolder()).removeRecursively();
    const ClientIdentifier owner(QStringLiteral("bench"), 1);
    QList<FQIdentifier> outline;
    for (int i = 0; i < entries; ++i) {
        const QString item =
            history->root.path() + QStringLiteral("/items/folder%1/file%2").arg(i / 100).arg(i);
        outline.append(FullyQualifiedIdentifier::fullyQualifiedIdentifierWithPath(item, owner));
        history->items.append(item);
    }
    const QString first = history->root.path() + QStringLiteral("/A0.stromi");
    QDir().mkpath(first);
    RecentCaptures::writeOutline(first, outline);
    for (int a = 0; a < archives; ++a) {
        const QString archive = history->root.path() + QStringLiteral("/A%1.stromi").arg(a);
        QDir().mkpath(archive);
        if (a > 0) {
            const QByteArray from = QFile::encodeName(first + QStringLiteral("/outline.index"));
            const QByteArray to = QFile::encodeName(archive + QStringLiteral("/outline.index"));
            if (::link(from.constData(), to.constData()) != 0) {
                return nullptr;
            }
        }
        if (!RecentCaptures::recordCapture(archive).isEmpty()) {
            return nullptr;
        }
    }
    return history;
}

void BM_RebuildHistory(benchmark::State& state)
{
    const auto history = makeHistory(int(state.range(0)), int(state.range(1)));
    if (!history) {
        state.SkipWithError("cannot build the history");
        return;
    }
    // What the history holds once rebuilt: the heap in use with it, less the heap before it.
    const auto inUse = [] {
        const struct mallinfo2 info = ::mallinfo2();
        return double(info.uordblks + info.hblkhd);
    };
    const double before = inUse();
    RecentCaptures captures({}, {}, [](const std::function<void()>& job) { job(); });
    for (auto _ : state) {
        captures.updateRecentCaptureHistoryReevaluating(true);
        if (captures.recentlyCapturedRepositories().size() != state.range(0)) {
            state.SkipWithError("an archive was dropped");
        }
    }
    state.counters["MB held"] = (inUse() - before) / 1e6;
    state.counters["entries/s"] = benchmark::Counter(double(state.range(0) * state.range(1)),
                                                     benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_RebuildHistory)
    ->Args({200, 1000})
    ->Args({20, 100000})
    ->Args({200, 100000})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1);

// The rebuild on a worker thread, as the monitor runs it, while this thread keeps asking what
// peers ask: the list of recent archives (answered on the main thread, so its longest answer
// is how long a rebuild can hold the main thread up) and which archives hold an item (answered
// on the worker pool).
void BM_MainThreadDuringRebuild(benchmark::State& state)
{
    const auto history = makeHistory(int(state.range(0)), int(state.range(1)));
    if (!history) {
        state.SkipWithError("cannot build the history");
        return;
    }
    const QStringList asked{history->items.constFirst()};
    qint64 longestListNs = 0;
    qint64 longestFindNs = 0;
    int questions = 0;
    for (auto _ : state) {
        RecentCaptures captures({}, {}, [](const std::function<void()>& job) { job(); });
        std::atomic<bool> rebuilt = false;
        std::thread worker([&] {
            captures.updateRecentCaptureHistoryReevaluating(true);
            rebuilt = true;
        });
        while (!rebuilt) {
            QElapsedTimer timer;
            timer.start();
            benchmark::DoNotOptimize(captures.recentlyCapturedRepositories());
            longestListNs = std::max(longestListNs, timer.nsecsElapsed());
            timer.start();
            benchmark::DoNotOptimize(captures.findRepositoriesForItems(asked));
            longestFindNs = std::max(longestFindNs, timer.nsecsElapsed());
            ++questions;
        }
        worker.join();
        if (captures.recentlyCapturedRepositories().size() != state.range(0)) {
            state.SkipWithError("an archive was dropped");
        }
    }
    state.counters["longest list ms"] = double(longestListNs) / 1e6;
    state.counters["longest find ms"] = double(longestFindNs) / 1e6;
    state.counters["questions"] = questions;
}
BENCHMARK(BM_MainThreadDuringRebuild)
    ->Args({20, 100000})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1);

// One outline of 100,000 items read into its tree, from data already in memory: the parsing
// alone, without the disk.
void BM_ReadOutline(benchmark::State& state)
{
    const auto history = makeHistory(1, int(state.range(0)));
    if (!history) {
        state.SkipWithError("cannot build the history");
        return;
    }
    QFile file(history->root.path() + QStringLiteral("/A0.stromi/outline.index"));
    if (!file.open(QIODevice::ReadOnly)) {
        state.SkipWithError("cannot read the outline");
        return;
    }
    const QByteArray data = file.readAll();
    // The levels of the first read are known to the next ones, as in a rebuild of many
    // archives on one volume.
    const auto components = std::make_shared<OutlineComponents>();
    for (auto _ : state) {
        const auto tree = OutlineTree::read(data, components);
        if (!tree || tree->entryCount() != state.range(0)) {
            state.SkipWithError("the outline was not read");
        }
    }
    state.counters["entries/s"] =
        benchmark::Counter(double(state.range(0)), benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_ReadOutline)->Arg(100000)->Unit(benchmark::kMillisecond);

// 1,000 paths, none of them held (every archive's outline is asked about every path), then
// 1,000 paths held by every archive.
void BM_FindRepositoriesForItems(benchmark::State& state)
{
    const auto history = makeHistory(int(state.range(0)), 1000);
    if (!history) {
        state.SkipWithError("cannot build the history");
        return;
    }
    RecentCaptures captures({}, {}, [](const std::function<void()>& job) { job(); });
    captures.updateRecentCaptureHistoryReevaluating(true);
    QStringList paths;
    for (int i = 0; i < 1000; ++i) {
        paths.append(state.range(1) != 0
                         ? history->items.at(i)
                         : history->root.path() + QStringLiteral("/elsewhere/file%1").arg(i));
    }
    for (auto _ : state) {
        const QVariantList found = captures.findRepositoriesForItems(paths);
        if (found.size() != (state.range(1) != 0 ? state.range(0) : 0)) {
            state.SkipWithError("wrong archives found");
        }
    }
}
BENCHMARK(BM_FindRepositoriesForItems)
    ->Args({200, 0})
    ->Args({200, 1})
    ->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
