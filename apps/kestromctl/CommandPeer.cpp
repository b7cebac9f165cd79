#include "CommandPeer.h"

#include "CommandPeerServer.h"
#include "MessageFlood.h"
#include "PacedProgress.h"
#include "errors/ExceptionArchive.h"
#include "exception/KSException.h"
#include "logging/Logger.h"
#include "messaging/InterfaceNames.h"
#include "messaging/KSConnectionServiceSingleton.h"
#include "messaging/KSPublishedConnection.h"
#include "messaging/KSSwitchboardConnection.h"
#include "messaging/MessageSync.h"
#include "messaging/PlatformConnection.h"
#include "messaging/SerializableDictionaryAdditions.h"
#include "messaging/SwitchboardNames.h"

#include <QCoreApplication>
#include <QDBusArgument>
#include <csignal>
#include <cstdio>
#include <unistd.h>

namespace {
const QString& kListenerInterface = InterfaceNames::kCommandListenerMessaging;
constexpr double kReplyTimeoutSeconds = 60;

void say(const QString& line)
{
    std::fprintf(stdout, "%s\n", line.toLocal8Bit().constData());
    std::fflush(stdout);
}

QByteArray iconPixels(int side)
{
    QByteArray pixels(side * side * 4, '\0');
    for (int i = 0; i < side * side; ++i) {
        pixels[i * 4] = char(0x2a); // a blue-green square
        pixels[i * 4 + 1] = char(0x8c);
        pixels[i * 4 + 2] = char(0xc8);
        pixels[i * 4 + 3] = char(0xff);
    }
    return pixels;
}
} // namespace

CommandPeer::CommandPeer(Options options)
    : m_options(std::move(options))
    , m_stopLock(MessageSync::messageLock())
{
    m_timer.setInterval(m_options.intervalMs);
    connect(&m_timer, &QTimer::timeout, this, &CommandPeer::tick);
}

CommandPeer::~CommandPeer() = default;

QStringList CommandPeer::scenarios()
{
    return {QStringLiteral("success"), QStringLiteral("fail"), QStringLiteral("pause"),
            QStringLiteral("wait"),    QStringLiteral("keys"), QStringLiteral("hang"),
            QStringLiteral("flood"),   QStringLiteral("paced")};
}

int CommandPeer::exec()
{
    m_state.update([](CommandPeerState::Snapshot& state) { state.running = true; });
    m_vendor = std::make_unique<KSConnectionServiceSingleton>(
        new CommandPeerServer(m_options.name, m_options.identifier, &m_state));
    m_vendor->publishWithName(m_options.identifier);
    if (!KSConnection::switchboardConnection()->ping()) {
        std::fprintf(stderr, "kestromctl: cannot reach the switchboard\n");
        return 1;
    }
    if (!connectToMonitor()) {
        return 1;
    }
    m_clock.start();
    m_listener->send(kListenerInterface, QStringLiteral("commandStarted"), {});
    say(QStringLiteral("%1 %2 started").arg(m_options.name, m_options.identifier));
    if (m_options.scenario == QStringLiteral("flood")) {
        const auto result = MessageFlood::run(
            *m_listener, kListenerInterface, QStringLiteral("progressUpdate"),
            {SerializableDictionaryAdditions::archivedDictionary(progressFor(1))}, m_options.steps);
        say(MessageFlood::describe(QStringLiteral("progress to the monitor"), result));
        m_step = m_options.steps;
    } else if (m_options.scenario == QStringLiteral("paced")) {
        say(PacedProgress::run(
            *m_listener, kListenerInterface, QStringLiteral("progressUpdate"),
            [this](int step) -> QVariantList {
                return {SerializableDictionaryAdditions::archivedDictionary(progressFor(step))};
            },
            m_options.steps, m_options.intervalMs));
        m_step = m_options.steps;
    }
    m_timer.start();
    return QCoreApplication::exec() == 0 ? m_exitStatus : 1;
}

bool CommandPeer::connectToMonitor()
{
    auto answer = std::make_shared<std::pair<Endpoint, uint>>();
    const QVariantMap info{{QStringLiteral("name"), m_options.name}};
    const bool answered =
        KSConnection::monitorConnection()->performSynchronousBlock([&](const RemoteProxy& monitor) {
            monitor.call(
                InterfaceNames::kCommandListenerServiceProvider,
                QStringLiteral("queryListenerForCommandIdentifier"),
                {m_options.identifier, SerializableDictionaryAdditions::archivedDictionary(info)},
                [answer](const QDBusMessage& reply) {
                    answer->first = qdbus_cast<Endpoint>(reply.arguments().value(0));
                    answer->second = reply.arguments().value(1).toUInt();
                });
        });
    if (!answered) {
        std::fprintf(stderr, "kestromctl: cannot reach the monitor\n");
        return false;
    }
    if (answer->first.isNone()) {
        std::fprintf(stderr, "kestromctl: the monitor gave no listener for %s\n",
                     qPrintable(m_options.identifier));
        return false;
    }
    m_listenerConnection =
        std::make_shared<PlatformConnection>(answer->first.service(), answer->first.path(), 0);
    const auto stopLock = m_stopLock;
    m_listener = m_listenerConnection->remoteObjectProxy([stopLock](const QDBusError& error) {
        std::fprintf(stderr, "kestromctl: message to the listener failed: %s\n",
                     qPrintable(error.message()));
        stopLock->messageReplied(); // a stop waiting for its answer has its answer
    });
    say(QStringLiteral("listener %1 roles %2")
            .arg(answer->first.description())
            .arg(answer->second));
    return true;
}

qint64 CommandPeer::runTime() const
{
    return m_clock.elapsed() / 1000;
}

bool CommandPeer::handleRequests()
{
    int origin = 0;
    if (m_state.takeCancel(&origin)) {
        auto canceled = KSException::exceptionWithName(QStringLiteral("Cancel"),
                                                       QStringLiteral("canceled by request"));
        canceled.setDetail(origin, QStringLiteral("Origin"));
        finish(canceled);
        return true;
    }
    double seconds = 0;
    if (m_state.takePause(&seconds)) {
        m_pausedUntilMs = m_clock.elapsed() + qint64(seconds * 1000);
        m_state.update([](CommandPeerState::Snapshot& state) { state.paused = true; });
        send({{QStringLiteral("paws"), runTime()}});
    }
    const bool resumeAsked = m_state.takeResume();
    if (m_pausedUntilMs >= 0 && (resumeAsked || m_clock.elapsed() >= m_pausedUntilMs)) {
        m_pausedUntilMs = -1;
        m_state.update([](CommandPeerState::Snapshot& state) { state.paused = false; });
        send({{QStringLiteral("time"), runTime()}});
    }
    return false;
}

void CommandPeer::tick()
{
    if (handleRequests() || m_pausedUntilMs >= 0) {
        return;
    }
    if (m_options.dieAfter >= 0 && m_step >= m_options.dieAfter) {
        say(QStringLiteral("%1 dies without a word").arg(m_options.identifier));
        ::kill(::getpid(), SIGKILL);
    }
    if (m_step >= m_options.steps && m_options.scenario != QStringLiteral("hang")) {
        if (m_options.scenario == QStringLiteral("fail")) {
            auto failure = KSException::exceptionWithName(m_options.failName, m_options.failReason);
            if (!m_options.explanation.isEmpty()) {
                failure.setExplanation(m_options.explanation);
            }
            if (m_options.posixError != 0) {
                failure.setPOSIXErr(m_options.posixError);
            }
            if (!m_options.failCommand.isEmpty()) {
                failure.setDetail(m_options.failCommand, QStringLiteral(".Command"));
            }
            if (m_options.soft) {
                failure.setSoft(true);
            }
            // As a real command does: the failure is logged first and names its line, so that
            // View Log can open the log there.
            if (const LogLine line = Logger::logException(failure)) {
                failure.setDetail(line->description(), QStringLiteral(".LogLine"));
            }
            finish(failure);
        } else {
            finish(std::nullopt);
        }
        return;
    }
    send(progressFor(m_step));
    ++m_step;
}

QVariantMap CommandPeer::progressFor(int step) const
{
    const QString scenario = m_options.scenario;
    QVariantMap progress{{QStringLiteral("time"), runTime()},
                         {QStringLiteral("min"), 0},
                         {QStringLiteral("max"), m_options.steps},
                         {QStringLiteral("value"), step},
                         {QStringLiteral("bytes"), qint64(step) * 1'048'576},
                         {QStringLiteral("items"), step * 12},
                         {QStringLiteral("can.cancel"), true}};
    if (step == 0) {
        progress.insert(QStringLiteral("task"),
                        QStringLiteral("%1 “Demo Archive”").arg(m_options.name));
    }
    progress.insert(QStringLiteral("verb"), QStringLiteral("Copying"));
    progress.insert(QStringLiteral("item"), QStringLiteral("Document %1.txt").arg(step));
    progress.insert(QStringLiteral("alt"), true);
    if (scenario == QStringLiteral("pause") && step == m_options.steps / 2) {
        progress = {{QStringLiteral("paws"), runTime()}};
    } else if (scenario == QStringLiteral("pause") && step == m_options.steps / 2 + 2) {
        progress = {{QStringLiteral("time"), runTime()}};
    } else if (scenario == QStringLiteral("wait") && step == 1) {
        progress = {{QStringLiteral("wait"), true}};
    } else if (scenario == QStringLiteral("wait") && step == 3) {
        progress = {{QStringLiteral("run"), true}};
    } else if (scenario == QStringLiteral("keys")) {
        static const int kSides[] = {16, 32, 64, 128};
        progress.insert(QStringLiteral("icon"), iconPixels(kSides[step % 4]));
        progress.insert(QStringLiteral("wake"), true);
        progress.insert(QStringLiteral("files"), step);
        progress.insert(QStringLiteral("folders"), step / 2);
        progress.insert(QStringLiteral("layers"), 1);
        progress.insert(QStringLiteral("stromi"), 1);
        progress.insert(QStringLiteral("saved"), step * 100);
        progress.insert(QStringLiteral("dup"), 12.5);
        progress.insert(QStringLiteral("rate"), 480);
        if (step % 3 == 2) {
            // The null object: clears the alternate line and hides it.
            progress.insert(QStringLiteral("item"), QVariant::fromValue(nullptr));
            progress.insert(QStringLiteral("alt"), QVariant::fromValue(nullptr));
        }
    }
    return progress;
}

void CommandPeer::send(const QVariantMap& progress)
{
    m_listener->send(kListenerInterface, QStringLiteral("progressUpdate"),
                     {SerializableDictionaryAdditions::archivedDictionary(progress)});
}

void CommandPeer::finish(const std::optional<KSException>& failure)
{
    m_timer.stop();
    m_state.update([](CommandPeerState::Snapshot& state) {
        state.running = false;
        state.finished = true;
    });
    const QByteArray data = failure ? ExceptionArchive::dataForException(*failure) : QByteArray();
    // Waits for the reply: the monitor answers once it has handled the stop.
    m_stopLock->rearmMessageSync();
    const auto lock = m_stopLock;
    m_listener->call(kListenerInterface, QStringLiteral("commandStoppedWithExceptionData"), {data},
                     [lock](const QDBusMessage&) { lock->messageReplied(); });
    const bool handled = lock->waitForMessageReplyBeforeInterval(kReplyTimeoutSeconds);
    say(QStringLiteral("%1 %2 stopped%3%4")
            .arg(m_options.name, m_options.identifier,
                 failure ? QStringLiteral(" with ") + failure->description() : QString(),
                 handled ? QString() : QStringLiteral(" (the monitor did not confirm)")));
    m_vendor->shutdown();
    KSConnection::switchboardConnection()->ping();
    QCoreApplication::exit(0);
}
