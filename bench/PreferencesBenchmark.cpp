#include "preferences/PreferenceStore.h"
#include "preferences/PropertyList.h"
#include "preferences/WTUserPreferences.h"

#include <QDateTime>
#include <QFile>
#include <QTemporaryDir>
#include <benchmark/benchmark.h>
#include <memory>

namespace {
constexpr int kKeys = 200;
const QString kDomain = QStringLiteral("com.kestrom.monitor");

QString keyAt(int index)
{
    return QStringLiteral("KSBenchKey%1").arg(index, 3, 10, QLatin1Char('0'));
}

// A monitor-sized domain of 200 keys of mixed kinds, flushed once to its file.
struct Domain
{
    Domain()
        : store(std::make_shared<PreferenceStore>(folder.path()))
        , preferences(store, [](std::chrono::milliseconds, WTUserPreferences::Task) {})
    {
        const QDateTime now = QDateTime::currentDateTimeUtc();
        for (int i = 0; i < kKeys; ++i) {
            switch (i % 4) {
            case 0:
                store->setValue(keyAt(i), QStringLiteral("value of key %1").arg(i), kDomain);
                break;
            case 1:
                store->setValue(keyAt(i), QVariant::fromValue(qint64(i) * 1000), kDomain);
                break;
            case 2:
                store->setValue(keyAt(i), now.addSecs(i), kDomain);
                break;
            default:
                store->setValue(keyAt(i), QVariantMap{{QStringLiteral("on"), i % 2 == 0}}, kDomain);
                break;
            }
        }
        store->synchronize(kDomain);
    }

    QTemporaryDir folder;
    std::shared_ptr<PreferenceStore> store;
    WTUserPreferences preferences;
};

void cachedRead(benchmark::State& state)
{
    Domain domain;
    QStringList keys;
    for (int i = 1; i < kKeys; i += 4) {
        keys.append(keyAt(i));
    }
    qsizetype i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(domain.preferences.integerForKey(keys.at(i), kDomain));
        i = (i + 1) % keys.size();
    }
}

void write(benchmark::State& state)
{
    Domain domain;
    qint64 i = 0;
    const QString key = keyAt(1);
    for (auto _ : state) {
        benchmark::DoNotOptimize(domain.preferences.setInteger(++i, key, kDomain));
    }
}

void synchronizeAfterOneWrite(benchmark::State& state)
{
    Domain domain;
    qint64 i = 0;
    const QString key = keyAt(1);
    for (auto _ : state) {
        domain.store->setValue(key, QVariant::fromValue(++i), kDomain);
        benchmark::DoNotOptimize(domain.store->synchronize(kDomain));
    }
}

void synchronizeWithoutChanges(benchmark::State& state)
{
    Domain domain;
    for (auto _ : state) {
        benchmark::DoNotOptimize(domain.store->synchronize(kDomain));
    }
}

void parseDomainFile(benchmark::State& state)
{
    Domain domain;
    QFile file(domain.store->filePath(kDomain));
    file.open(QIODevice::ReadOnly);
    const QByteArray bytes = file.readAll();
    for (auto _ : state) {
        benchmark::DoNotOptimize(PropertyList::fromData(bytes));
    }
    state.SetBytesProcessed(state.iterations() * bytes.size());
}
} // namespace

BENCHMARK(cachedRead);
BENCHMARK(write);
BENCHMARK(synchronizeAfterOneWrite)->Unit(benchmark::kMicrosecond);
BENCHMARK(synchronizeWithoutChanges)->Unit(benchmark::kMicrosecond);
BENCHMARK(parseDomainFile)->Unit(benchmark::kMicrosecond);
BENCHMARK_MAIN();
