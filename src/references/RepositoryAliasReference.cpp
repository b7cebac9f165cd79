#include "references/RepositoryAliasReference.h"

#include "exception/Error.h"
#include "exception/KSException.h"
#include "foundation/KeyedDecoder.h"
#include "references/BookmarkPath.h"

#include <cerrno>

namespace {
const QString kBookmarkField = QStringLiteral("bookmark");
const QString kAliasField = QStringLiteral("alias");

QMutex s_converterLock;
RepositoryAliasReference::AliasRecordConverter s_converter;

QByteArray convertAliasRecord(const QByteArray& aliasRecord)
{
    QMutexLocker locker(&s_converterLock);
    return s_converter ? s_converter(aliasRecord) : QByteArray();
}
} // namespace

RepositoryAliasReference::RepositoryAliasReference(std::shared_ptr<BookmarkPath> bookmarkPath,
                                                   bool legacyAlias)
    : m_bookmarkPath(std::move(bookmarkPath))
    , m_legacyAlias(legacyAlias)
{}

std::shared_ptr<RepositoryAliasReference> RepositoryAliasReference::referenceToURL(const QUrl& url)
{
    return url.isEmpty() ? nullptr : initWithRepositoryURL(url);
}

std::shared_ptr<RepositoryAliasReference>
RepositoryAliasReference::referenceToPath(const QString& path)
{
    return referenceToURL(QUrl::fromLocalFile(path));
}

std::shared_ptr<RepositoryAliasReference>
RepositoryAliasReference::referenceToRepository(const Repository& repository)
{
    return referenceToPath(repository.repositoryPath());
}

std::shared_ptr<RepositoryAliasReference>
RepositoryAliasReference::initWithBookmark(const QByteArray& bookmark)
{
    auto bookmarkPath = BookmarkPath::fromBookmarkData(bookmark);
    if (!bookmarkPath) {
        return nullptr;
    }
    return std::shared_ptr<RepositoryAliasReference>(
        new RepositoryAliasReference(std::move(bookmarkPath), false));
}

std::shared_ptr<RepositoryAliasReference>
RepositoryAliasReference::initWithRepositoryURL(const QUrl& url)
{
    Error error(Error::kPOSIXDomain, EINVAL);
    auto bookmarkPath = BookmarkPath::fromUrl(url, essentialBookmarkPropertyKeys(), &error);
    if (!bookmarkPath) {
        logBookmarkProblem(QStringLiteral("+[RepositoryAliasReference initWithRepositoryURL:]"),
                           url, error);
        return nullptr;
    }
    return std::shared_ptr<RepositoryAliasReference>(
        new RepositoryAliasReference(std::move(bookmarkPath), false));
}

void RepositoryAliasReference::setAliasRecordConverter(AliasRecordConverter converter)
{
    QMutexLocker locker(&s_converterLock);
    s_converter = std::move(converter);
}

QString RepositoryAliasReference::className() const
{
    return QStringLiteral("RepositoryAliasReference");
}

QUrl RepositoryAliasReference::url() const
{
    return bookmarkPath()->url();
}

void RepositoryAliasReference::setUrl(const QUrl& url)
{
    if (url.isEmpty()) {
        bookmarkPath()->resolveQuietly();
        return;
    }
    auto replacement = BookmarkPath::fromUrl(url, essentialBookmarkPropertyKeys());
    if (!replacement) {
        KSException::exceptionWithName(QStringLiteral("Bug"),
                                       QStringLiteral("repository bookmark set to unreachable URL"))
            .setDetail(url.toString(), QStringLiteral("URL"))
            .raise();
    }
    QMutexLocker locker(&m_lock);
    m_bookmarkPath = std::move(replacement);
}

QByteArray RepositoryAliasReference::bookmark() const
{
    return bookmarkPath()->bookmarkData();
}

QString RepositoryAliasReference::path() const
{
    return bookmarkPath()->path();
}

QString RepositoryAliasReference::name() const
{
    return bookmarkPath()->name();
}

QString RepositoryAliasReference::displayName() const
{
    return bookmarkPath()->displayName();
}

bool RepositoryAliasReference::isRefreshed() const
{
    return bookmarkPath()->isRefreshed();
}

QVariant RepositoryAliasReference::propertyForKey(const QString& key, QMetaType expected) const
{
    const auto bookmark = bookmarkPath();
    if (bookmark->isResolved()) {
        if (QVariant live = RepositoryReference::propertyForKey(key, expected); live.isValid()) {
            return live;
        }
    }
    QVariant recorded = bookmark->recordedValue(key);
    return recorded.metaType() == expected ? recorded : QVariant();
}

bool RepositoryAliasReference::isEqual(const RepositoryReference& other) const
{
    if (const auto* alias = dynamic_cast<const RepositoryAliasReference*>(&other)) {
        return *bookmarkPath() == *alias->bookmarkPath();
    }
    return RepositoryReference::isEqual(other);
}

QVariantMap RepositoryAliasReference::encodedFields() const
{
    // Only "bookmark": a reference decoded from an old alias is written in the new form.
    return {{kBookmarkField, bookmark()}};
}

QUrl RepositoryAliasReference::resolveWithUI(bool userInterface, bool mountingVolumes)
{
    Q_UNUSED(userInterface);
    Q_UNUSED(mountingVolumes);
    return bookmarkPath()->resolveQuietly();
}

std::shared_ptr<BookmarkPath> RepositoryAliasReference::bookmarkPath() const
{
    QMutexLocker locker(&m_lock);
    return m_bookmarkPath;
}

QVariant RepositoryAliasReference::decode(const KeyedDecoder& coder)
{
    QByteArray bookmark;
    bool legacyAlias = false;
    if (coder.containsValue(kBookmarkField)) {
        bookmark = coder.decodeDataObject(kBookmarkField).value_or(QByteArray());
    } else {
        // Set whether or not an alias is there: the reference came from the old form.
        legacyAlias = true;
        bookmark = convertAliasRecord(coder.decodeDataObject(kAliasField).value_or(QByteArray()));
    }
    auto bookmarkPath = BookmarkPath::fromBookmarkData(bookmark);
    if (!bookmarkPath) {
        return {};
    }
    return QVariant::fromValue(std::shared_ptr<RepositoryAliasReference>(
        new RepositoryAliasReference(std::move(bookmarkPath), legacyAlias)));
}

QVariant RepositoryAliasReference::typedVariant(std::shared_ptr<RepositoryReference> self) const
{
    return QVariant::fromValue(std::static_pointer_cast<RepositoryAliasReference>(std::move(self)));
}
