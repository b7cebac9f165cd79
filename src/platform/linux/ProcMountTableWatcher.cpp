#include "platform/linux/ProcMountTableWatcher.h"

#include <QSet>
#include <QSocketNotifier>
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

namespace {
// Fields are separated by spaces; a space, tab, newline or backslash inside a path is
// written as a backslash and three octal digits.
QString unescapeField(const QByteArray& field)
{
    QByteArray path;
    path.reserve(field.size());
    for (qsizetype at = 0; at < field.size(); ++at) {
        if (field[at] == '\\' && at + 3 < field.size()) {
            bool ok = false;
            const int code = field.mid(at + 1, 3).toInt(&ok, 8);
            if (ok) {
                path.append(char(code));
                at += 3;
                continue;
            }
        }
        path.append(field[at]);
    }
    return QString::fromUtf8(path);
}
} // namespace

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
    for (const QByteArray& line : table.split('\n')) {
        // id, parent id, major:minor, root, mount point, ...
        const QList<QByteArray> fields = line.split(' ');
        if (fields.size() < 5) {
            continue;
        }
        const QString point = unescapeField(fields.at(4));
        if (!seen.contains(point)) {
            seen.insert(point);
            points.append(point);
        }
    }
    return points;
}
