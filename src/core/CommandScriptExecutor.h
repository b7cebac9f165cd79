#pragma once

#include <QMap>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>
#include <condition_variable>
#include <mutex>
#include <sys/types.h>

// Runs one prolog or epilog script of a command as a child process, collects its output and
// error lines, logs the outcome under one line, and reports success. One executor runs its
// script once; `cancel` may come from any thread while `execute` blocks another.
class CommandScriptExecutor
{
public:
    static constexpr qint32 kProlog = 0;
    static constexpr qint32 kEpilog = 1;
    static inline const QString kDefaultPath = QStringLiteral("/usr/bin:/bin:/usr/sbin:/sbin");
    static inline const QString kLocalBin = QStringLiteral("/usr/local/bin");
    // Output kept per stream for the log; the rest is read and dropped.
    static constexpr quint64 kKeptOutputBytes = 256 * 1024;

    CommandScriptExecutor(QString scriptPath, qint32 scriptType);
    ~CommandScriptExecutor();
    CommandScriptExecutor(const CommandScriptExecutor&) = delete;
    CommandScriptExecutor& operator=(const CommandScriptExecutor&) = delete;

    // "Prolog", "Epilog", or a null string for any other type.
    static QString readableScriptType(qint32 type);
    // The monitor's own environment overlaid with the script's, /usr/local/bin always on PATH.
    static QProcessEnvironment environmentForScript(const QProcessEnvironment& own,
                                                    const QMap<QString, QString>& overlay);

    void setEnvironment(QMap<QString, QString> environment)
    {
        m_environment = std::move(environment);
    }
    const QMap<QString, QString>& environment() const { return m_environment; }

    // Blocks until the script has ended (or could not start).
    void execute();
    // Stops the script while it runs; before or after, nothing.
    void cancel();

    bool success() const { return m_success; }
    qint32 status() const { return m_status; }
    QStringList outputLines() const { return m_stdLines; }
    QStringList errorLines() const { return m_errLines; }
    QString scriptPath() const { return m_scriptPath; }
    qint32 scriptType() const { return m_scriptType; }

private:
    enum Condition
    {
        kNotStarted = 0,
        kRunning = 1,
        kFinished = 2
    };

    void launchAndWait();
    void logOutcome(bool osaScript, quint64 droppedOutput, quint64 droppedErrors);
    void setCondition(Condition condition);

    QString m_scriptPath;
    qint32 m_scriptType;
    pid_t m_cmdscript = -1; // the running child; -1 once reaped
    QStringList m_stdLines;
    QStringList m_errLines;
    std::mutex m_executionLock;
    std::condition_variable m_conditionChanged;
    Condition m_condition = kNotStarted;
    bool m_success = false;
    qint32 m_status = 0;
    QMap<QString, QString> m_environment;
};
