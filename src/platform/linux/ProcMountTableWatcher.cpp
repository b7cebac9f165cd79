#include "platform/linux/ProcMountTableWatcher.h"

#include "platform/linux/MountTable.h"

#include <QSet>
#include <QSocketNotifier>
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

ProcMountTableWatcher::ProcMountTableWatcher(const QString& path, QObject* parent)
    : QObject(parent)
    , m_path(path)
{}

ProcMountTableWatcher::~ProcMountTableWatcher()
{
    delete m_notifier;
    if (m_fd >= 0) {
        ::close(m_fd);
    }
}

void ProcMountTableWatcher::startWatching(Handler mounted, Handler unmounted)
{
    m_mounted = std::move(mounted);
    m_unmounted = std::move(unmounted);
    if (m_fd < 0) {
        m_fd = ::open(m_path.toLocal8Bit().constData(), O_RDONLY | O_CLOEXEC);
    }
    m_known = mountPoints(readTable());
    if (m_fd >= 0 && m_notifier == nullptr) {
        m_notifier = new QSocketNotifier(m_fd, QSocketNotifier::Exception);
        connect(m_notifier, &QSocketNotifier::activated, this, &ProcMountTableWatcher::rescan);
    }
}

void ProcMountTableWatcher::rescan()
{
    const QStringList current = mountPoints(readTable());
    const QSet<QString> before(m_known.cbegin(), m_known.cend());
    const QSet<QString> after(current.cbegin(), current.cend());
    const QStringList known = std::exchange(m_known, current);
    for (const QString& point : known) {
        if (!after.contains(point) && m_unmounted) {
            m_unmounted(point);
        }
    }
    for (const QString& point : current) {
        if (!before.contains(point) && m_mounted) {
            m_mounted(point);
        }
    }
}

QByteArray ProcMountTableWatcher::readTable() const
{
    if (m_fd < 0) {
        return {};
    }
    // Reading the same descriptor from the start is what acknowledges the change.
    QByteArray table;
    char buffer[8192];
    if (::lseek(m_fd, 0, SEEK_SET) < 0) {
        return {};
    }
    for (;;) {
        const ssize_t got = ::read(m_fd, buffer, sizeof buffer);
        if (got > 0) {
            table.append(buffer, got);
        } else if (got == 0 || errno != EINTR) {
            break;
        }
    }
    return table;
}

QStringList ProcMountTableWatcher::mountPoints(const QByteArray& table)
{
    QStringList points;
    QSet<QString> seen;
    const MountTable parsed = MountTable::fromMountInfo(table);
    for (const MountTable::Mount& mount : parsed.mounts()) {
        if (mount.isDisk() && !seen.contains(mount.mountPoint)) {
            seen.insert(mount.mountPoint);
            points.append(mount.mountPoint);
        }
    }
    return points;
}
