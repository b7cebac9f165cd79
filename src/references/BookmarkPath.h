#pragma once

#include <QByteArray>
#include <QMetaType>
#include <QMutex>
#include <QString>
#include <QStringList>
#include <QUrl>
#include <QVariant>
#include <QVariantMap>
#include <memory>

class Error;

// A bookmark to a file or folder. Linux has no bookmarks of its own, so this is a keyed archive
// of what was recorded when the bookmark was made: the resource values (path, names, volume
// names, volume UUID), the inode and device of the file and the mount point of its volume.
// Resolving finds the file again by its inode after it was renamed or moved within its volume,
// also when the volume is mounted elsewhere; it never asks the user and never mounts anything.
//
// Shared between threads: every operation takes the bookmark's own lock.
class BookmarkPath
{
public:
    // The archived form, under the class name "Bookmark".
    struct Record
    {
        QVariantMap resources;
        quint64 inode = 0;
        // Nanoseconds since 1970; 0 where the file system keeps no birth time.
        qint64 birthTime = 0;
        quint64 device = 0;
        QString mountPoint;
    };

    BookmarkPath(const BookmarkPath&) = delete;
    BookmarkPath& operator=(const BookmarkPath&) = delete;

    // None when the bytes are no bookmark.
    static std::shared_ptr<BookmarkPath> fromBookmarkData(const QByteArray& data);
    // A bookmark recording every known resource key; none when no bookmark can be made (the
    // file is missing, or the URL is no local file).
    static std::shared_ptr<BookmarkPath> fromUrl(const QUrl& url);
    // Records the given resource keys besides the path and volume UUID that resolving needs;
    // `error`, when given, says why no bookmark could be made.
    static std::shared_ptr<BookmarkPath> fromUrl(const QUrl& url, const QStringList& resourceKeys,
                                                 Error* error = nullptr);

    // No user interface, no mounting. The URL where the file is now, empty when it cannot be
    // found; on success the bookmark is refreshed.
    QUrl resolveQuietly();
    // Records the file at url() anew with those keys; false when it is not there.
    bool refresh(const QStringList& resourceKeys);

    // Whether the last resolution found the file; a bookmark just made from a URL counts as
    // resolved.
    bool isResolved() const;
    // Whether the bookmark was recorded anew since it was opened from data.
    bool isRefreshed() const;

    // Where the file was last recorded.
    QUrl url() const;
    QByteArray bookmarkData() const;
    QString path() const;
    QString name() const;
    QString displayName() const;
    // The value recorded for the resource key; invalid when none was.
    QVariant recordedValue(const QString& resourceKey) const;

    // Two bookmarks are equal when they name the same file: the same inode (born at the same
    // time, where that is known) on the same volume (by UUID, or by device and mount point when
    // the volume has none).
    bool operator==(const BookmarkPath& other) const;

    // Makes "Bookmark" known to the keyed archive. Idempotent.
    static void registerArchivableClass();

private:
    BookmarkPath(Record record, bool resolved);
    Record record() const;
    // Keys recorded in the record, for a refresh that keeps them.
    QStringList recordedKeys() const;

    mutable QMutex m_lock;
    Record m_record;
    bool m_resolved = false;
    bool m_refreshed = false;
};

Q_DECLARE_METATYPE(BookmarkPath::Record)
