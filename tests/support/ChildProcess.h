#pragma once

#include <QProcess>
#include <QTest>
#include <csignal>
#include <memory>

// A peer process for a test: started, watched for a line on its output, and killed at the end.
class ChildProcess
{
public:
    ChildProcess(const QString& program, const QStringList& arguments)
        : m_process(std::make_unique<QProcess>())
    {
        m_process->setProcessChannelMode(QProcess::MergedChannels);
        m_process->start(program, arguments);
    }
    ~ChildProcess() { stop(SIGKILL); }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    bool started() { return m_process->waitForStarted(30000); }
    qint64 pid() const { return m_process->processId(); }

    // Waits until the output so far contains the text (or the process ends).
    bool waitForOutput(const QString& text, int timeoutMs = 30000)
    {
        return QTest::qWaitFor(
                   [&] {
                       m_output += QString::fromLocal8Bit(m_process->readAll());
                       return m_output.contains(text) || m_process->state() == QProcess::NotRunning;
                   },
                   timeoutMs) &&
               m_output.contains(text);
    }
    QString output()
    {
        m_output += QString::fromLocal8Bit(m_process->readAll());
        return m_output;
    }

    // Sends the signal and waits for the end; true when it ended.
    bool stop(int signal = SIGTERM)
    {
        if (m_process->state() == QProcess::NotRunning) {
            return true;
        }
        ::kill(pid_t(m_process->processId()), signal);
        return m_process->waitForFinished(30000);
    }
    bool finished(int timeoutMs = 30000) { return m_process->waitForFinished(timeoutMs); }
    int exitCode() const { return m_process->exitCode(); }

private:
    std::unique_ptr<QProcess> m_process;
    QString m_output;
};
