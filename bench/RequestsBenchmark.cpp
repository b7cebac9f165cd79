#include "core/SessionCommandRequests.h"
#include "messaging/AnonymousListener.h"
#include "messaging/InterfaceNames.h"
#include "messaging/MessagingThread.h"
#include "messaging/ServedObject.h"
#include "platform/SecretStore.h"
#include "platform/linux/LibsecretSecretStore.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QMutex>
#include <QProcess>
#include <QSemaphore>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <atomic>
#include <benchmark/benchmark.h>

// The requests commands make of the session: many scripts at once, while the main thread's
// lateness is watched, and keyring lookups against the session's Secret Service. Run inside
// scripts/headless, which unlocks a keyring.
namespace {
QString s_script;
QString s_leaving; // ends at once, leaving a process that holds its output for 30 s

void concurrentScripts(benchmark::State& state)
{
    const int requests = int(state.range(0));
    std::atomic<int> finals{0};
    SessionCommandRequests::Switchboard board;
    board.post = [&finals](const QString&, const QString&, const QVariantMap& info) {
        if (info.contains(QStringLiteral("ScriptSuccess"))) {
            ++finals;
        }
    };
    board.observe = [](const QString&, const QString&, SessionCommandRequests::Switchboard::Block) {
    };
    board.removeObserver = [](const QString&) {
    };
    SessionCommandRequests handler({board, nullptr, {}, RepeatingTimer::mainThreadFactory()});
    double worstLateMs = 0;
    double lateSumMs = 0;
    qint64 ticks = 0;
    double seconds = 0;
    for (auto _ : state) {
        finals = 0;
        // A 1 ms timer on the main thread: how late each tick comes is what a user would feel.
        QElapsedTimer clock;
        QTimer probe;
        probe.setTimerType(Qt::PreciseTimer);
        probe.setInterval(1);
        qint64 last = 0;
        QObject::connect(&probe, &QTimer::timeout, [&] {
            const qint64 now = clock.nsecsElapsed();
            const double late = double(now - last) / 1e6 - 1.0;
            worstLateMs = std::max(worstLateMs, late);
            lateSumMs += std::max(0.0, late);
            ++ticks;
            last = now;
        });
        clock.start();
        probe.start();
        for (int i = 0; i < requests; ++i) {
            handler.runScript(0, s_script, QStringLiteral("bench.%1").arg(i), {});
        }
        [[maybe_unused]] const bool all =
            QTest::qWaitFor([&] { return finals.load() == requests; }, 600000);
        seconds += double(clock.nsecsElapsed()) / 1e9;
        probe.stop();
    }
    state.counters["answered_per_s"] = double(requests) * double(state.iterations()) / seconds;
    state.counters["main_late_worst_ms"] = worstLateMs;
    state.counters["main_late_mean_ms"] = ticks > 0 ? lateSumMs / double(ticks) : 0.0;
}

void keychainLookups(benchmark::State& state)
{
    LibsecretSecretStore store;
    qint64 found = 0;
    for (auto _ : state) {
        found += store.genericPassword(QStringLiteral("Kestrom"), QStringLiteral("bench"))
                     .secret.has_value();
    }
    state.counters["found"] = double(found);
    state.SetItemsProcessed(state.iterations());
}

// A keyring that waits for the user until released.
class LockedKeyring : public SecretStore
{
public:
    Lookup genericPassword(const QString&, const QString&) override
    {
        unlocked.acquire();
        return {std::nullopt, kNotFound, QStringLiteral("locked")};
    }
    QSemaphore unlocked;
};

// From a request delivered on the messaging thread, as the switchboard delivers it, to that
// thread's next answer to another peer: a cancel of a script whose leftovers still hold its
// output (range 0), or a lookup in a keyring that stays locked (range 1).
void answerAfterRequest(benchmark::State& state)
{
    const bool keychain = state.range(0) == 1;
    QMutex mutex;
    QHash<QString, SessionCommandRequests::Switchboard::Block> observers;
    std::atomic<int> finals{0};
    SessionCommandRequests::Switchboard board;
    board.post = [&finals](const QString& name, const QString&, const QVariantMap& info) {
        finals += info.contains(QStringLiteral("ScriptSuccess")) ||
                  name == QStringLiteral("KeychainPasswordResponse");
    };
    board.observe = [&](const QString& observer, const QString&,
                        SessionCommandRequests::Switchboard::Block block) {
        QMutexLocker locker(&mutex);
        observers.insert(observer, std::move(block));
    };
    board.removeObserver = [](const QString&) {
    };
    const auto keyring = std::make_shared<LockedKeyring>();
    SessionCommandRequests handler({board, keyring, {}, RepeatingTimer::mainThreadFactory()});
    AnonymousListener served(new ServedObject);
    served.resume();
    QDBusConnection peer =
        QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("bench-peer"));
    const QDBusMessage barrier = QDBusMessage::createMethodCall(
        served.endpoint().service(), served.endpoint().path(), InterfaceNames::kComponentMessaging,
        QStringLiteral("barrierWithCompletion"));
    int round = 0;
    for (auto _ : state) {
        const QString id = QStringLiteral("bench.answer.%1").arg(++round);
        const int before = finals;
        std::function<void()> request;
        if (keychain) {
            request = [&handler, id] {
                handler.keychainPasswordRequested({{QStringLiteral("Account"), QStringLiteral("x")},
                                                   {QStringLiteral("CommandID"), id}});
            };
        } else {
            QFile::remove(s_leaving + QStringLiteral(".ended"));
            handler.runScript(0, s_leaving, id, {});
            if (!QTest::qWaitFor([] { return QFile::exists(s_leaving + QStringLiteral(".ended")); },
                                 30000)) {
                state.SkipWithError("the script did not start");
                break;
            }
            QMutexLocker locker(&mutex);
            const auto block = observers.value(SessionCommandRequests::cancelObserverName(id));
            request = [block, id] {
                block({{QStringLiteral("CommandID"), id}});
            };
        }
        QElapsedTimer clock;
        clock.start();
        MessagingThread::instance().post(request);
        const QDBusMessage reply = peer.call(barrier, QDBus::Block, 60000);
        state.SetIterationTime(double(clock.nsecsElapsed()) / 1e9);
        if (reply.type() != QDBusMessage::ReplyMessage) {
            state.SkipWithError("no answer");
        }
        if (keychain) {
            keyring->unlocked.release();
        }
        if (!QTest::qWaitFor([&] { return finals.load() > before; }, 60000)) {
            state.SkipWithError("no final answer");
            break;
        }
    }
    QDBusConnection::disconnectFromBus(QStringLiteral("bench-peer"));
}

BENCHMARK(answerAfterRequest)
    ->Arg(0)
    ->Arg(1)
    ->Iterations(20)
    ->Unit(benchmark::kMillisecond)
    ->UseManualTime();
BENCHMARK(concurrentScripts)->Arg(100)->Iterations(3)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(keychainLookups)->Iterations(1000)->Unit(benchmark::kMicrosecond)->UseRealTime();
} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QTemporaryDir files;
    qputenv("XDG_STATE_HOME", files.path().toLocal8Bit());
    // A script of the user's, empty when it cannot be written.
    const auto writeScript = [&files](const QString& name, const QByteArray& body) {
        QFile script(QDir(files.path()).filePath(name));
        if (!script.open(QIODevice::WriteOnly) || script.write("#!/bin/sh\n" + body) < 0) {
            return QString();
        }
        script.close();
        script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        return script.fileName();
    };
    s_script = writeScript(QStringLiteral("trivial.sh"), "echo done\n");
    s_leaving = writeScript(QStringLiteral("leaving.sh"), "sleep 30 &\ntouch \"$0.ended\"\n");
    if (s_script.isEmpty() || s_leaving.isEmpty()) {
        return 1;
    }
    QProcess store;
    store.start(QStringLiteral("secret-tool"),
                {QStringLiteral("store"), QStringLiteral("--label=bench"),
                 QStringLiteral("service"), QStringLiteral("Kestrom"), QStringLiteral("account"),
                 QStringLiteral("bench")});
    store.write("bench-secret");
    store.closeWriteChannel();
    if (!store.waitForFinished(30000) || store.exitCode() != 0) {
        return 1;
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
