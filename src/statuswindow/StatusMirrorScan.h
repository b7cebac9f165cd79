#pragma once

#include <QDateTime>
#include <QList>
#include <QString>
#include <memory>

class RepositoryStatus;

// The first half of a status window reload, the part that touches files: every mirrored
// status, the old ones retired, one per archive path. Blocking: a worker thread, never the
// main thread. The records it makes are handed to the main thread with the list.
class StatusMirrorScan
{
public:
    // 49 days.
    static constexpr qint64 kDefaultRetirementSeconds = 4233600;

    struct Entry
    {
        // None when the mirror cannot be read; `problem` says why.
        std::shared_ptr<RepositoryStatus> status;
        QString mirrorPath;
        QString problem;
        QDateTime modified;

        // The archive's UUID; for an unreadable mirror, the UUID its file name gives.
        QString uuid() const;
    };

    // Statuses not written since this date are retired: `retirementDays` when above 0.
    static QDateTime cutoffDate(const QDateTime& now, double retirementDays);

    // Freshest first, the statuses older than the cutoff are retired and, of several for one
    // archive path, only the freshest is kept (the others' mirrors stay); the rest sorted by
    // name, unreadable ones last. A mirror that cannot be deleted stays in the list.
    static QList<Entry> collect(const QString& folder, const QDateTime& cutoff);
    // Deletes the entry's mirror; false (logged) when it is still there.
    static bool retire(const Entry& entry);
};
