#include "platform/UnixSignalWatcher.h"

#include <QSocketNotifier>
#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace {
int s_pipe[2] = {-1, -1};

void onSignal(int number)
{
    const char byte = char(number);
    [[maybe_unused]] const ssize_t written = ::write(s_pipe[1], &byte, 1);
}
} // namespace

UnixSignalWatcher::UnixSignalWatcher(std::initializer_list<int> numbers, QObject* parent)
    : QObject(parent)
{
    if (s_pipe[0] < 0 && ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, s_pipe) != 0) {
        return;
    }
    m_notifier = new QSocketNotifier(s_pipe[0], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &UnixSignalWatcher::readSignal);
    for (const int number : numbers) {
        struct sigaction action = {};
        action.sa_handler = onSignal;
        sigemptyset(&action.sa_mask);
        action.sa_flags = SA_RESTART;
        ::sigaction(number, &action, nullptr);
    }
}

UnixSignalWatcher::~UnixSignalWatcher() = default;

void UnixSignalWatcher::readSignal()
{
    char byte = 0;
    if (::read(s_pipe[0], &byte, 1) == 1) {
        Q_EMIT unixSignal(int(byte));
    }
}
