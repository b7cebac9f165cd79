#include "core/CommandScriptExecutor.h"

#include "core/ScriptTrust.h"
#include "core/TextPipeReader.h"
#include "exception/KSException.h"
#include "logging/Logger.h"
#include "preferences/MonitorDefaults.h"
#include "tracking/CommandInfo.h"

#include <QRegularExpression>
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <vector>

namespace {
QString subject(qint32 type)
{
    const QString name = CommandScriptExecutor::readableScriptType(type);
    return name.isNull() ? QStringLiteral("(null)") : name;
}

struct SpawnActions
{
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    SpawnActions()
    {
        posix_spawn_file_actions_init(&actions);
        posix_spawnattr_init(&attributes);
    }
    ~SpawnActions()
    {
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
    }
};

// Spawns the child in a process group of its own, so that a cancel reaches whatever the
// script started too. Signal dispositions and the mask are reset: the monitor's threads
// ignore or block signals that a script's pipelines rely on.
pid_t spawn(const QStringList& command, const QProcessEnvironment& environment, int outFd,
            int errFd)
{
    SpawnActions spawnActions;
    posix_spawn_file_actions_addopen(&spawnActions.actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&spawnActions.actions, outFd, 1);
    posix_spawn_file_actions_adddup2(&spawnActions.actions, errFd, 2);
    sigset_t all;
    sigfillset(&all);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigdefault(&spawnActions.attributes, &all);
    posix_spawnattr_setsigmask(&spawnActions.attributes, &none);
    posix_spawnattr_setflags(&spawnActions.attributes, POSIX_SPAWN_SETPGROUP |
                                                           POSIX_SPAWN_SETSIGDEF |
                                                           POSIX_SPAWN_SETSIGMASK);
    posix_spawnattr_setpgroup(&spawnActions.attributes, 0);

    std::vector<QByteArray> storage;
    const auto pointers = [&storage](const QStringList& texts) {
        std::vector<char*> list;
        for (const QString& text : texts) {
            storage.push_back(text.toLocal8Bit());
        }
        for (size_t i = storage.size() - size_t(texts.size()); i < storage.size(); ++i) {
            list.push_back(storage[i].data());
        }
        list.push_back(nullptr);
        return list;
    };
    storage.reserve(size_t(command.size() + environment.keys().size()));
    std::vector<char*> arguments = pointers(command);
    std::vector<char*> variables = pointers(environment.toStringList());
    pid_t child = -1;
    const int failed = posix_spawn(&child, arguments.front(), &spawnActions.actions,
                                   &spawnActions.attributes, arguments.data(), variables.data());
    if (failed != 0) {
        throw KSException(QStringLiteral("IO"),
                          QStringLiteral("cannot launch %1").arg(command.front()))
            .setPOSIXErr(failed, QStringLiteral("posix_spawn"))
            .setDetail(command.front(), QStringLiteral("Path"));
    }
    return child;
}
} // namespace

CommandScriptExecutor::CommandScriptExecutor(QString scriptPath, qint32 scriptType)
    : m_scriptPath(std::move(scriptPath))
    , m_scriptType(scriptType)
{}

CommandScriptExecutor::~CommandScriptExecutor() = default;

QString CommandScriptExecutor::readableScriptType(qint32 type)
{
    switch (type) {
    case kProlog:
        return QStringLiteral("Prolog");
    case kEpilog:
        return QStringLiteral("Epilog");
    default:
        return QString();
    }
}

QProcessEnvironment
CommandScriptExecutor::environmentForScript(const QProcessEnvironment& own,
                                            const QMap<QString, QString>& overlay)
{
    QProcessEnvironment environment = own;
    for (auto it = overlay.cbegin(); it != overlay.cend(); ++it) {
        environment.insert(it.key(), it.value());
    }
    const QString path = environment.value(QStringLiteral("PATH"), kDefaultPath);
    QStringList parts = path.split(QLatin1Char(':'));
    if (!parts.contains(kLocalBin)) {
        parts << kLocalBin;
        environment.insert(QStringLiteral("PATH"), parts.join(QLatin1Char(':')));
    }
    return environment;
}

void CommandScriptExecutor::setCondition(Condition condition)
{
    m_condition = condition;
    m_conditionChanged.notify_all();
}

void CommandScriptExecutor::execute()
{
    {
        std::unique_lock lock(m_executionLock);
        if (m_condition != kNotStarted) {
            return;
        }
    }
    // The path is started as it was checked: after the check only the user or the super-user
    // can change what it leads to.
    if (const std::optional<QString> reason = ScriptTrust::reasonNotToRun(m_scriptPath)) {
        const LogLine line =
            Logger::log(5, QStringLiteral("%1 not run: %2").arg(subject(m_scriptType), *reason));
        Logger::log(7, line, QStringLiteral("executable"), m_scriptPath);
        std::lock_guard lock(m_executionLock);
        setCondition(kFinished);
        return;
    }
    try {
        launchAndWait();
    } catch (const KSException& failure) {
        Logger::log(5, nullptr, QStringLiteral("%1 failed to launch").arg(subject(m_scriptType)),
                    &failure);
        std::lock_guard lock(m_executionLock);
        setCondition(kFinished);
    }
}

void CommandScriptExecutor::launchAndWait()
{
    std::unique_lock lock(m_executionLock);
    const bool osaScript = CommandInfo::fileIsOSAScript(m_scriptPath);
    QStringList command{m_scriptPath};
    if (osaScript) {
        command.prepend(MonitorDefaults::standardUserDefaults().osaScriptTool());
    }
    const QProcessEnvironment environment =
        environmentForScript(QProcessEnvironment::systemEnvironment(), m_environment);
    TextPipeReader output;
    TextPipeReader errors;
    output.setLimit(kKeptOutputBytes);
    errors.setLimit(kKeptOutputBytes);
    if (output.writingEnd() < 0 || errors.writingEnd() < 0) {
        throw KSException::ioErrnoWithReason(QStringLiteral("cannot make a pipe for a script"));
    }
    Logger::log(9, QStringLiteral("launching %1").arg(command.join(QLatin1Char(' '))));
    m_cmdscript = spawn(command, environment, output.writingEnd(), errors.writingEnd());
    output.closeWritingEnd();
    errors.closeWritingEnd();
    output.startReading();
    errors.startReading();
    setCondition(kRunning);
    const pid_t child = m_cmdscript;
    lock.unlock();

    // Waits without reaping, so a cancel meanwhile still signals this child's group and
    // never a stranger that was given its number; the group lives on while something the
    // script left behind holds the pipes, and a cancel ends that too.
    siginfo_t ended = {};
    while (::waitid(P_PID, id_t(child), &ended, WEXITED | WNOWAIT) != 0 && errno == EINTR) {
    }
    // The lock is not held while the pipes drain, so a cancel never waits for them.
    m_stdLines = output.lines();
    m_errLines = errors.lines();
    const quint64 dropped[] = {output.droppedBytes(), errors.droppedBytes()};
    int waitStatus = 0;
    lock.lock();
    while (::waitpid(child, &waitStatus, 0) < 0 && errno == EINTR) {
    }
    m_cmdscript = -1;
    lock.unlock();
    m_status = WIFEXITED(waitStatus) ? WEXITSTATUS(waitStatus) : WTERMSIG(waitStatus);
    logOutcome(osaScript, dropped[0], dropped[1]);
    lock.lock();
    setCondition(kFinished);
}

void CommandScriptExecutor::logOutcome(bool osaScript, quint64 droppedOutput, quint64 droppedErrors)
{
    const QString type = subject(m_scriptType);
    LogLine outcome;
    if (m_status != 0) {
        outcome =
            Logger::log(5, QStringLiteral("%1 exited with status %2").arg(type).arg(m_status));
    } else {
        if (osaScript && !m_errLines.isEmpty()) {
            Logger::log(5, QStringLiteral("%1 returned an error message").arg(type));
            const bool cancelled =
                std::any_of(m_errLines.cbegin(), m_errLines.cend(), [](const QString& line) {
                    const QStringList words =
                        line.split(QRegularExpression(QStringLiteral("\\s+")), Qt::SkipEmptyParts);
                    return words.contains(QStringLiteral("-128")) ||
                           words.contains(QStringLiteral("(-128)"));
                });
            if (cancelled) {
                Logger::log(7, QStringLiteral("error output appears to indicate a 'cancel' error"));
            }
        }
        outcome = Logger::log(6, QStringLiteral("%1 executed").arg(type));
        m_success = true;
    }
    for (const QString& line : m_stdLines) {
        Logger::log(7, outcome, line);
    }
    for (const QString& line : m_errLines) {
        Logger::log(4, outcome, line);
    }
    for (const auto& [dropped, stream] :
         {std::pair{droppedOutput, "output"}, std::pair{droppedErrors, "error output"}}) {
        if (dropped > 0) {
            Logger::log(7, outcome,
                        QStringLiteral("%1 more bytes of %2 not kept")
                            .arg(dropped)
                            .arg(QLatin1String(stream)));
        }
    }
    Logger::log(7, outcome, QStringLiteral("executable"), m_scriptPath);
}

void CommandScriptExecutor::cancel()
{
    std::lock_guard lock(m_executionLock);
    if (m_condition == kRunning && m_cmdscript > 0) {
        ::kill(-m_cmdscript, SIGTERM);
    }
}
