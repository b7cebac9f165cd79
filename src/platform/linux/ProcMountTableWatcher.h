#pragma once

#include "platform/MountTableWatcher.h"

#include <QObject>
#include <QStringList>

class QSocketNotifier;

// The kernel's mount table of this process: the file raises POLLPRI after every mount and
// unmount, and reading it again clears that. Main thread only.
class ProcMountTableWatcher final : public QObject, public MountTableWatcher
{
    Q_OBJECT
public:
    explicit ProcMountTableWatcher(const QString& path, QObject* parent = nullptr);
    ~ProcMountTableWatcher() override;

    void startWatching(Handler mounted, Handler unmounted) override;
    // Reads the table again and reports what changed since the last reading.
    void rescan();

    // The mount points of the disks in a table in the mountinfo format, in its order: the
    // mounts of sandboxes, containers and pseudo file systems are no volume a person sees.
    static QStringList mountPoints(const QByteArray& table);

private:
    QByteArray readTable() const;

    QString m_path;
    int m_fd = -1;
    QSocketNotifier* m_notifier = nullptr;
    QStringList m_known;
    Handler m_mounted;
    Handler m_unmounted;
};
