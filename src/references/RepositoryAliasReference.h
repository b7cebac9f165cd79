#pragma once

#include "references/Repository.h"
#include "references/RepositoryReference.h"

#include <QMutex>
#include <functional>

class BookmarkPath;
class KeyedDecoder;

// A reference by bookmark: it finds its archive again after the archive was renamed or
// moved, and describes it from the bookmark's recorded values while it cannot be reached.
// Archived as "bookmark" (the bookmark bytes); one archived long ago as "alias" (an old alias
// record) is converted on decoding and written back as "bookmark".
class RepositoryAliasReference final : public RepositoryReference
{
public:
    // Old alias record -> bookmark bytes; empty when it cannot be converted.
    using AliasRecordConverter = std::function<QByteArray(const QByteArray& aliasRecord)>;

    // None for an empty URL or one no bookmark can be made of.
    static std::shared_ptr<RepositoryAliasReference> referenceToURL(const QUrl& url);
    static std::shared_ptr<RepositoryAliasReference> referenceToPath(const QString& path);
    // The archive's package folder.
    static std::shared_ptr<RepositoryAliasReference>
    referenceToRepository(const Repository& repository);
    // None when the bytes are no bookmark.
    static std::shared_ptr<RepositoryAliasReference> initWithBookmark(const QByteArray& bookmark);
    // A bookmark of the URL with the essential properties; none when none can be made.
    static std::shared_ptr<RepositoryAliasReference> initWithRepositoryURL(const QUrl& url);

    // Old alias records have no reader on Linux, so by default nothing is converted and such a
    // reference decodes as none. Setting none restores that.
    static void setAliasRecordConverter(AliasRecordConverter converter);

    QString className() const override;
    QUrl url() const override;
    // A URL replaces the bookmark by a new one of it; a URL no bookmark can be made of is a
    // programming error (KSException "Bug"). An empty URL resolves the bookmark quietly.
    void setUrl(const QUrl& url);
    QByteArray bookmark() const override;
    QString path() const override;
    QString name() const override;
    QString displayName() const override;
    bool isRefreshed() const override;
    // The live value once the bookmark has been resolved, else (or when there is none) the
    // value the bookmark recorded.
    QVariant propertyForKey(const QString& key, QMetaType expected) const override;
    // For two alias references, equal bookmarks; otherwise as for any reference.
    bool isEqual(const RepositoryReference& other) const override;
    QVariantMap encodedFields() const override;

    // Linux has neither a way to ask the user for a lost archive nor mounting on demand: both
    // resolve quietly. The archive's URL, refreshing the bookmark; empty when not found.
    QUrl resolveWithUI(bool userInterface, bool mountingVolumes);
    // Whether this reference was decoded from an old alias record.
    bool legacyAlias() const { return m_legacyAlias; }
    std::shared_ptr<BookmarkPath> bookmarkPath() const;

    static QVariant decode(const KeyedDecoder& coder);

private:
    RepositoryAliasReference(std::shared_ptr<BookmarkPath> bookmarkPath, bool legacyAlias);
    QVariant typedVariant(std::shared_ptr<RepositoryReference> self) const override;

    mutable QMutex m_lock;
    std::shared_ptr<BookmarkPath> m_bookmarkPath;
    bool m_legacyAlias = false;
};

Q_DECLARE_METATYPE(std::shared_ptr<RepositoryAliasReference>)
