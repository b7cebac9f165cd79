#pragma once

#include <QObject>
#include <initializer_list>

class QSocketNotifier;

// Turns Unix signals (SIGTERM, SIGINT) into a Qt signal on the thread that made the watcher;
// the handler itself only writes a byte, which is all a signal handler may safely do.
class UnixSignalWatcher : public QObject
{
    Q_OBJECT
public:
    UnixSignalWatcher(std::initializer_list<int> numbers, QObject* parent = nullptr);
    ~UnixSignalWatcher() override;

Q_SIGNALS:
    void unixSignal(int number);

private:
    void readSignal();

    QSocketNotifier* m_notifier = nullptr;
};
