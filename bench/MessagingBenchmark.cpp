#include "KSComponentMessagingProxy.h"
#include "messaging/KSConnectionServiceSingleton.h"
#include "messaging/KSPublishedConnection.h"
#include "messaging/KSSwitchboardConnection.h"
#include "messaging/MessagingThread.h"
#include "messaging/ServedObject.h"
#include "messaging/SwitchboardNames.h"

#include <QCoreApplication>
#include <QDBusConnectionInterface>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <atomic>
#include <benchmark/benchmark.h>

// Round trips and notification throughput on a real bus with the real hub. Run inside
// scripts/headless so the bus is private.
namespace {
std::shared_ptr<KSPublishedConnection> s_connection;
Endpoint s_endpoint;

void barrierThroughKSConnection(benchmark::State& state)
{
    for (auto _ : state) {
        benchmark::DoNotOptimize(s_connection->ping());
    }
}

void barrierThroughGeneratedProxy(benchmark::State& state)
{
    // A connection of its own, like any peer's, to the same served object.
    const QDBusConnection peer =
        QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("bench-peer"));
    KSComponentMessagingProxy proxy(s_endpoint.service(), s_endpoint.path(), peer);
    for (auto _ : state) {
        auto reply = proxy.barrierWithCompletion();
        reply.waitForFinished();
        benchmark::DoNotOptimize(reply.isValid());
    }
}

void notificationsThroughTheHub(benchmark::State& state)
{
    const auto switchboard = KSConnection::switchboardConnection();
    std::atomic<qint64> received{0};
    switchboard->addObserver(QStringLiteral("bench"), QStringLiteral("bench.Tick"),
                             [&received](const QString&, const QVariantMap&) { ++received; });
    switchboard->ping();
    const QVariantMap info{{QStringLiteral("n"), 1}};
    qint64 sent = 0;
    for (auto _ : state) {
        switchboard->postNotification(QStringLiteral("bench.Tick"), QStringLiteral("bench"), info);
        ++sent;
    }
    // Counted as delivered only when the observer has them all.
    [[maybe_unused]] const bool all = QTest::qWaitFor([&] { return received == sent; }, 120000);
    state.SetItemsProcessed(received.load());
    switchboard->removeObserver(QStringLiteral("bench"));
}
} // namespace

BENCHMARK(barrierThroughKSConnection)->UseRealTime();
BENCHMARK(barrierThroughGeneratedProxy)->UseRealTime();
BENCHMARK(notificationsThroughTheHub)->Iterations(20000)->UseRealTime();

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QTemporaryDir stateHome;
    qputenv("XDG_STATE_HOME", stateHome.path().toLocal8Bit());
    QProcess hub;
    hub.start(QStringLiteral(SWITCHBOARD_PROGRAM), {});
    const QString hubName = SwitchboardNames::busName(SwitchboardNames::perUserServiceName());
    if (!QTest::qWaitFor(
            [&] {
                return MessagingThread::instance()
                    .connection()
                    .interface()
                    ->isServiceRegistered(hubName)
                    .value();
            },
            30000)) {
        return 1;
    }
    KSConnectionServiceSingleton vendor(new ServedObject);
    vendor.publishWithName(QStringLiteral("bench.served"));
    s_endpoint = vendor.endpoint();
    s_connection = KSConnection::connectionWithPublishedName(QStringLiteral("bench.served"), 0,
                                                             QStringLiteral("KSComponentServing"));
    if (!QTest::qWaitFor([] { return s_connection->ping(); }, 30000)) {
        return 1;
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    s_connection.reset();
    hub.kill();
    hub.waitForFinished();
    return 0;
}
