#pragma once

#include "messaging/FullyQualifiedIdentifier.h"
#include "status/OutlineTree.h"
#include "tracking/CaptureHistory.h"

#include <QDateTime>
#include <QHash>
#include <QList>
#include <QMutex>
#include <QString>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>
#include <functional>
#include <memory>

// The archives captured recently, from the bookmark files that captures leave in the user's
// "Recent Captures" folder, each with the outline of the items it holds ("outline.index" in the
// archive). It answers which archives were captured lately, newest first, and which of them
// hold given items, and it deletes history files that have gone stale. Rebuilds run through
// the runner it is given (the worker pool in the monitor), one at a time; queries come from any
// thread and are answered from the last finished rebuild meanwhile.
class RecentCaptures final : public CaptureHistory,
                             public std::enable_shared_from_this<RecentCaptures>
{
public:
    using Clock = std::function<QDateTime()>;
    using Runner = std::function<void(std::function<void()> job)>;

    static inline const QString kFolderName = QStringLiteral("Recent Captures");
    static inline const QString kOutlineFileName = QStringLiteral("outline.index");
    static inline const QString kVolumeDidMount = QStringLiteral("DiskEventVolumeDidMount");
    // 32 days: a history file untouched for longer is dropped.
    static constexpr qint64 kMaximumAge = 2764800;

    // An empty folder means $XDG_CONFIG_HOME/Kestrom/Recent Captures, looked up now; an empty
    // clock the system's.
    RecentCaptures(QString folder, Clock clock, Runner runner);
    ~RecentCaptures() override;

    static QString defaultFolder();

    // A rebuild without re-evaluation, through the runner; failures are logged, never raised.
    void updateRecentRepositoryCache();
    // Rebuilds now, on the calling thread.
    void updateRecentCaptureHistoryReevaluating(bool reevaluate);
    void updateHistoryNotification() override;
    // A workspace notice: only a mounted volume rebuilds, and then every archive is looked at
    // again, as one that was offline may be back.
    void updateHistoryNotification(const QString& notificationName);

    // {"path", "cpath", "name"} of every reachable archive, newest capture first.
    QVariantList recentlyCapturedRepositories() const;
    // The same records for the archives whose outline holds any of the items (or a folder
    // above one), in the same order.
    QVariantList findRepositoriesForItems(const QStringList& itemPaths) const;

    // What a capture leaves behind, for tools that stand in for one: the archive's outline and
    // a history file named after the archive's status UUID (its folder name when it has none).
    // An empty text on success, else why it failed.
    static QString writeOutline(const QString& repositoryPath, const QList<FQIdentifier>& items);
    static QString recordCapture(const QString& repositoryPath, const QString& folder = {});

private:
    struct Record
    {
        QVariantMap info;
        std::shared_ptr<const OutlineTree> outline;
    };

    // Why the history file must go, or nothing to keep it; fills the record when kept.
    QString evaluate(const QString& name, const QString& path, const QDateTime& modified,
                     const std::shared_ptr<OutlineComponents>& components, Record& record) const;
    static QVariantMap resultRecord(const QVariantMap& info);

    // Rebuilds once more through the runner; requests while one waits join it.
    void scheduleRebuild(bool reevaluate);

    const QString m_folder;
    Clock m_clock;
    Runner m_runner;
    QMutex m_scheduleLock;
    bool m_rebuildPending = false;
    bool m_pendingReevaluates = false;
    // Held through a rebuild, so that two never interleave; queries never take it.
    QMutex m_rebuildLock;
    // Held only to read or swap the cache, never across file I/O.
    mutable QMutex m_recentLock;
    QHash<QString, Record> m_recentAliasInfo;
    QList<Record> m_recentByDate;
};
