// What the activity window costs: one progress update applied to a detailed pane (interpretation
// and repaint) against the interpretation alone, a frame of 20 animating indicators, and the
// timer wake-ups of an idle window, shown and hidden.
#include "activity/ActivityWindowController.h"
#include "activity/CommandUmbrellaViewController.h"
#include "activity/MonitorProgressIndicator.h"
#include "tracking/ActivityProgressManager.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QEvent>
#include <QEventLoop>
#include <QTimer>
#include <QVBoxLayout>
#include <benchmark/benchmark.h>

namespace {
QVariantMap update(qint64 step)
{
    return {{QStringLiteral("task"), QStringLiteral("Capturing Home")},
            {QStringLiteral("max"), 100000},
            {QStringLiteral("value"), step % 100000},
            {QStringLiteral("time"), step / 20},
            {QStringLiteral("verb"), QStringLiteral("Copying")},
            {QStringLiteral("item"), QStringLiteral("file-%1.txt").arg(step)},
            {QStringLiteral("alt"), true},
            {QStringLiteral("bytes"), step * 4096},
            {QStringLiteral("items"), step},
            {QStringLiteral("rate"), 52428800},
            {QStringLiteral("dup"), step % 13}};
}

void BM_InterpretUpdate(benchmark::State& state)
{
    // A manager without a window: what the update costs before anything is drawn.
    auto manager = ActivityProgressManager::initWithCommand(QStringLiteral("capture"));
    manager->commandDidStart();
    qint64 step = 0;
    for (auto _ : state) {
        manager->commandProgressDidUpdate(update(++step));
    }
}
BENCHMARK(BM_InterpretUpdate);

void BM_ApplyUpdateToDetailedPane(benchmark::State& state)
{
    ActivityWindowController window;
    auto manager = ActivityProgressManager::initWithCommand(QStringLiteral("capture"));
    window.willAddListener(manager.get());
    manager->commandDidStart();
    auto* pane = static_cast<CommandUmbrellaViewController*>(manager->viewController().get());
    pane->setShowingDetails(true);
    window.window()->show();
    QCoreApplication::processEvents();
    qint64 step = 0;
    for (auto _ : state) {
        manager->commandProgressDidUpdate(update(++step));
        // The changed fields paint as the event loop would paint them.
        QCoreApplication::processEvents();
    }
    window.window()->hide();
}
BENCHMARK(BM_ApplyUpdateToDetailedPane);

void BM_FrameOfTwentyAnimatingIndicators(benchmark::State& state)
{
    QWidget host;
    auto* layout = new QVBoxLayout(&host);
    for (int i = 0; i < 20; ++i) {
        auto* indicator = new MonitorProgressIndicator(&host);
        indicator->setIndeterminate(true);
        indicator->setAnimating(true);
        layout->addWidget(indicator);
    }
    host.resize(200, 400);
    host.show();
    QCoreApplication::processEvents();
    double now = 0;
    MonitorProgressIndicator::setClock([&now] { return now; });
    for (auto _ : state) {
        now += MonitorProgressIndicator::kAnimationIntervalMs / 1000.0;
        MonitorProgressIndicator::animateIndeterminateTime();
        QCoreApplication::processEvents();
    }
    MonitorProgressIndicator::setClock({});
}
BENCHMARK(BM_FrameOfTwentyAnimatingIndicators);

// Counts the timer events the process receives, but for those of the measurement's own timer.
class TimerCounter final : public QObject
{
public:
    explicit TimerCounter(const QObject* own)
        : m_own(own)
    {}
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        if (event->type() == QEvent::Timer && watched != m_own) {
            ++timers;
        }
        return QObject::eventFilter(watched, event);
    }
    quint64 timers = 0;

private:
    const QObject* m_own;
};

double idleWakeUpsPerSecond(bool shown, int seconds)
{
    ActivityWindowController window;
    if (shown) {
        window.showActivityWindowInFront(true);
    }
    QCoreApplication::processEvents();
    QEventLoop loop;
    QTimer end;
    end.setSingleShot(true);
    QObject::connect(&end, &QTimer::timeout, &loop, &QEventLoop::quit);
    TimerCounter counter(&end);
    QCoreApplication::instance()->installEventFilter(&counter);
    QElapsedTimer clock;
    clock.start();
    end.start(seconds * 1000);
    loop.exec();
    QCoreApplication::instance()->removeEventFilter(&counter);
    return double(counter.timers) * 1000.0 / double(clock.elapsed());
}

void BM_IdleWindowTimerWakeUps(benchmark::State& state)
{
    const bool shown = state.range(0) != 0;
    double perSecond = 0;
    for (auto _ : state) {
        perSecond = idleWakeUpsPerSecond(shown, 30);
    }
    state.counters["wakeups_per_s"] = perSecond;
    state.SetLabel(shown ? "window shown" : "window hidden");
}
BENCHMARK(BM_IdleWindowTimerWakeUps)->Arg(0)->Arg(1)->Iterations(1)->Unit(benchmark::kSecond);
} // namespace

int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
