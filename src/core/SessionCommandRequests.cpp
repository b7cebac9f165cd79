#include "core/SessionCommandRequests.h"

#include "core/CommandScriptExecutor.h"
#include "core/WorkerPool.h"
#include "foundation/MainQueue.h"
#include "logging/Logger.h"
#include "messaging/KSSwitchboardConnection.h"
#include "platform/SecretStore.h"

#include <QFileInfo>
#include <QStringDecoder>
#include <QThreadPool>
#include <unordered_map>

namespace {
const QString kMonitorIdentifier = QStringLiteral("com.kestrom.monitor");
const QString kKeychainService = QStringLiteral("Kestrom");
const QString kCommandID = QStringLiteral("CommandID");

QString orNull(const QString& text)
{
    return text.isNull() ? QStringLiteral("(null)") : text;
}

// Resolutions, scripts and keychain lookups may block for minutes each; none may block the
// thread that delivered the request, nor wait behind another.
QThreadPool& backgroundQueue()
{
    return WorkerPool::shared();
}

// Overwrites the only copy, so the password does not linger in freed memory. The caller makes
// sure nothing else shares the data any more.
void wipe(QString& text)
{
    std::fill(text.begin(), text.end(), QChar(u'\0'));
    text.clear();
}

void wipe(QByteArray& bytes)
{
    std::fill(bytes.begin(), bytes.end(), '\0');
    bytes.clear();
}

// Strict: a password that is not valid UTF-8 is not guessed at.
std::optional<QString> decodedPassword(const QByteArray& bytes)
{
    QStringDecoder decoder(QStringConverter::Utf8, QStringConverter::Flag::Stateless);
    QString text = decoder.decode(bytes);
    if (decoder.hasError()) {
        return std::nullopt;
    }
    return text;
}
} // namespace

struct SessionCommandRequests::State
{
    Switchboard switchboard;
    std::shared_ptr<SecretStore> secrets;
    Resolver resolver;
    RepeatingTimer::Factory timers;
    std::unordered_map<quint64, std::unique_ptr<RepeatingTimer>> keepAlives; // main thread only
    quint64 nextKeepAlive = 0;

    // Main thread: the keep-alive stops before the final answer, so none follows it.
    void finish(quint64 keepAlive, const QString& name, const QVariantMap& answer)
    {
        if (const auto found = keepAlives.find(keepAlive); found != keepAlives.end()) {
            found->second->stop();
            keepAlives.erase(found);
        }
        switchboard.post(name, kMonitorIdentifier, answer);
    }
};

SessionCommandRequests::Switchboard SessionCommandRequests::Switchboard::processHub()
{
    Switchboard hub;
    hub.post = [](const QString& name, const QString& source, const QVariantMap& info) {
        KSConnection::switchboardConnection()->postNotification(name, source, info);
    };
    hub.observe = [](const QString& observer, const QString& name, Block block) {
        KSConnection::switchboardConnection()->addObserver(
            observer, name, QString(),
            [block = std::move(block)](const QString&, const QVariantMap& info) { block(info); });
    };
    hub.removeObserver = [](const QString& observer) {
        KSConnection::switchboardConnection()->removeObserver(observer);
    };
    return hub;
}

SessionCommandRequests::SessionCommandRequests(Parts parts)
    : m_state(std::make_shared<State>())
{
    m_state->switchboard = std::move(parts.switchboard);
    m_state->secrets = std::move(parts.secrets);
    m_state->resolver = std::move(parts.resolver);
    m_state->timers = std::move(parts.timers);
}

SessionCommandRequests::~SessionCommandRequests()
{
    for (const auto& [key, timer] : m_state->keepAlives) {
        timer->stop();
    }
    m_state->keepAlives.clear();
}

QString SessionCommandRequests::cancelObserverName(const QString& identifier)
{
    return QStringLiteral("monitor.script.cancel.") + identifier;
}

quint64 SessionCommandRequests::keepAlive(std::chrono::milliseconds interval,
                                          std::function<void()> fire)
{
    const quint64 key = ++m_state->nextKeepAlive;
    m_state->keepAlives.emplace(key, m_state->timers(interval, std::move(fire)));
    return key;
}

void SessionCommandRequests::repositoryRequested(const QVariantMap& info)
{
    command(info.value(kCommandID).toString(),
            info.value(QStringLiteral("RepositoryBookmark")).toByteArray());
}

void SessionCommandRequests::keychainPasswordRequested(const QVariantMap& info)
{
    requestKeychainPasswordOfAccount(info.value(QStringLiteral("Account")).toString(),
                                     info.value(kCommandID).toString());
}

void SessionCommandRequests::scriptRequested(const QVariantMap& info)
{
    QMap<QString, QString> environment;
    const QVariantMap given = info.value(QStringLiteral("ScriptEnvironment")).toMap();
    for (auto it = given.cbegin(); it != given.cend(); ++it) {
        environment.insert(it.key(), it.value().toString());
    }
    runScript(info.value(QStringLiteral("ScriptType")).toUInt(),
              info.value(QStringLiteral("ScriptPath")).toString(),
              info.value(kCommandID).toString(), environment);
}

void SessionCommandRequests::command(const QString& identifier, const QByteArray& bookmark)
{
    const quint64 timer = keepAlive(kResolutionKeepAlive,
                                    [this, identifier] { repositoryResolutionTime(identifier); });
    repositoryResolutionTime(identifier);
    backgroundQueue().start([state = m_state, timer, identifier, bookmark] {
        const Resolution resolution = state->resolver ? state->resolver(bookmark) : Resolution{};
        const QUrl& url = resolution.url;
        const QString path = url.isLocalFile() ? url.toLocalFile() : QString();
        const bool resolved =
            !path.isEmpty() && resolution.error.isNull() && QFileInfo::exists(path);
        if (!resolved) {
            const QString& error = resolution.error;
            Logger::log(9, QStringLiteral("-[MonitorApplicationDelegate "
                                          "command:requestsResolutionOfRepository:]_block_invoke "
                                          "could not resolve repository reference for command "
                                          "%1, path=%2, error=%3")
                               .arg(identifier, orNull(path), orNull(error)));
        }
        QVariantMap answer{{kCommandID, identifier},
                           {QStringLiteral("ResolutionStatus"),
                            QVariant::fromValue(resolved ? kResolved : kUnresolved)}};
        if (!path.isEmpty()) {
            answer.insert(QStringLiteral("RepositoryPath"), path);
        }
        MainQueue::dispatchMainAsync([state, timer, answer] {
            state->finish(timer, QStringLiteral("RepositoryRequestResolved"), answer);
        });
    });
}

void SessionCommandRequests::repositoryResolutionTime(const QString& identifier) const
{
    m_state->switchboard.post(
        QStringLiteral("RepositoryRequestResolved"), kMonitorIdentifier,
        {{kCommandID, identifier},
         {QStringLiteral("ResolutionStatus"), QVariant::fromValue(kStillResolving)}});
}

void SessionCommandRequests::requestKeychainPasswordOfAccount(const QString& account,
                                                              const QString& identifier) const
{
    backgroundQueue().start([state = m_state, account, identifier] {
        SecretStore::Lookup found = state->secrets
                                        ? state->secrets->genericPassword(kKeychainService, account)
                                        : SecretStore::Lookup{std::nullopt, SecretStore::kNotFound,
                                                              QStringLiteral("no keyring")};
        QVariantMap answer;
        std::optional<QString> password;
        if (!found.secret) {
            Logger::log(9, QStringLiteral("-[MonitorApplicationDelegate "
                                          "requestKeychainPasswordOfAccount:forCommand:] could "
                                          "not retrieve password from keychain: account=%1, "
                                          "error=%2/%3")
                               .arg(account)
                               .arg(found.status)
                               .arg(found.message));
        } else {
            password = decodedPassword(*found.secret);
            wipe(*found.secret);
        }
        if (password) {
            answer.insert(QStringLiteral("Account"), *password);
        }
        state->switchboard.post(QStringLiteral("KeychainPasswordResponse"), identifier, answer);
        answer.clear();
        if (password) {
            wipe(*password);
        }
    });
}

void SessionCommandRequests::runScript(quint32 type, const QString& path, const QString& identifier,
                                       const QMap<QString, QString>& environment)
{
    auto executor = std::make_shared<CommandScriptExecutor>(path, qint32(type));
    executor->setEnvironment(environment);
    const quint64 timer =
        keepAlive(kScriptKeepAlive, [this, identifier] { scriptStillRunningTime(identifier); });
    const QString observer = cancelObserverName(identifier);
    m_state->switchboard.observe(observer, QStringLiteral("CancelCommandScript"),
                                 [executor, identifier](const QVariantMap& info) {
                                     if (info.value(kCommandID).toString() == identifier) {
                                         backgroundQueue().start(
                                             [executor] { executor->cancel(); });
                                     }
                                 });
    scriptStillRunningTime(identifier);
    backgroundQueue().start([state = m_state, executor, timer, identifier, observer] {
        executor->execute();
        state->switchboard.removeObserver(observer);
        const QVariantMap answer{{kCommandID, identifier},
                                 {QStringLiteral("ScriptSuccess"), executor->success()}};
        MainQueue::dispatchMainAsync([state, timer, answer] {
            state->finish(timer, QStringLiteral("CommandScriptStatus"), answer);
        });
    });
}

void SessionCommandRequests::scriptStillRunningTime(const QString& identifier) const
{
    m_state->switchboard.post(QStringLiteral("CommandScriptStatus"), kMonitorIdentifier,
                              {{kCommandID, identifier}});
}
