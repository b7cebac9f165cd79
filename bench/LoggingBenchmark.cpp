#include "logging/LogFileLogger.h"
#include "logging/Logger.h"

#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

// Lines per second into the shared log file, against a plain write(2) of the same bytes: the
// ratio is the cost of formatting, identifiers and locking.
namespace {
QTemporaryDir* s_stateHome = nullptr;

void logLines(benchmark::State& state)
{
    for (auto _ : state) {
        Logger::log(0, QStringLiteral("Capturing item of the archive, 1024 bytes"));
    }
    state.SetItemsProcessed(state.iterations());
}

void plainWrites(benchmark::State& state)
{
    static int fd = -1;
    if (state.thread_index() == 0) {
        const QString path = s_stateHome->filePath(QStringLiteral("plain.log"));
        fd = ::open(QFile::encodeName(path).constData(), O_WRONLY | O_APPEND | O_CREAT, 0664);
    }
    const QByteArray line =
        Logger::defaultLogger()
            ->formatMessage(QStringLiteral("Capturing item of the archive, "
                                           "1024 bytes"),
                            Logger::rootLogLine()->next(), 0, Logger::nameOfClassification(0))
            .value_or(QByteArray()) +
        '\n';
    for (auto _ : state) {
        benchmark::DoNotOptimize(::write(fd, line.constData(), size_t(line.size())));
    }
    state.SetItemsProcessed(state.iterations());
}
} // namespace

BENCHMARK(logLines)->Threads(1)->Threads(4)->UseRealTime();
BENCHMARK(plainWrites)->Threads(1)->Threads(4)->UseRealTime();

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QTemporaryDir stateHome;
    s_stateHome = &stateHome;
    qputenv("XDG_STATE_HOME", stateHome.path().toLocal8Bit());
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
