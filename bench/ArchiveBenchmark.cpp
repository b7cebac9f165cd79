#include "errors/ExceptionArchive.h"
#include "exception/KSException.h"
#include "foundation/KeyedArchive.h"
#include "messaging/SerializableDictionaryAdditions.h"

#include <QDateTime>
#include <benchmark/benchmark.h>

namespace {
// The shape of a busy command's progress dictionary, scaled to 1,000 entries.
QVariantMap progressDictionary()
{
    QVariantMap dictionary;
    const QDateTime start = QDateTime::currentDateTimeUtc();
    for (int i = 0; i < 1000; ++i) {
        const QString key = QStringLiteral("key%1").arg(i, 4, 10, QLatin1Char('0'));
        switch (i % 5) {
        case 0:
            dictionary.insert(key, QStringLiteral("Capturing item %1 of the archive").arg(i));
            break;
        case 1:
            dictionary.insert(key, qint64(i) * 1'000'003);
            break;
        case 2:
            dictionary.insert(key, i / 7.0);
            break;
        case 3:
            dictionary.insert(key, start.addSecs(i));
            break;
        default:
            dictionary.insert(key, i % 2 == 0);
            break;
        }
    }
    return dictionary;
}

KSException sampleException()
{
    auto cause = KSException::exceptionWithName(QStringLiteral("IPC"),
                                                QStringLiteral("lost connection with command"));
    auto exception = KSException::exceptionWithName(QStringLiteral("IO"),
                                                    QStringLiteral("Cannot create support folder"));
    exception.setPOSIXErr(13, QStringLiteral("mkdir"))
        .setStrPath(QStringLiteral("/home/me/.local/state/Kestrom"))
        .setCause(cause)
        .setExplanation(QStringLiteral("The folder could not be made."));
    return exception;
}

void encodeProgressDictionary(benchmark::State& state)
{
    const QVariantMap dictionary = progressDictionary();
    for (auto _ : state) {
        benchmark::DoNotOptimize(KeyedArchive::archivedData(
            SerializableDictionaryAdditions::dictionaryEncodingNonSerializableObjects(dictionary)));
    }
    state.SetItemsProcessed(state.iterations() * dictionary.size());
}

void decodeProgressDictionary(benchmark::State& state)
{
    const QByteArray data = KeyedArchive::archivedData(
        SerializableDictionaryAdditions::dictionaryEncodingNonSerializableObjects(
            progressDictionary()));
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            SerializableDictionaryAdditions::dictionaryDecodingSerializableObjects(
                KeyedArchive::unarchivedObject(data, KeyedArchive::propertyListClasses()).toMap()));
    }
    state.SetBytesProcessed(state.iterations() * data.size());
}

void exceptionRoundTrip(benchmark::State& state)
{
    const KSException exception = sampleException();
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            ExceptionArchive::exceptionFromData(ExceptionArchive::dataForException(exception)));
    }
}
} // namespace

BENCHMARK(encodeProgressDictionary);
BENCHMARK(decodeProgressDictionary);
BENCHMARK(exceptionRoundTrip);
BENCHMARK_MAIN();
