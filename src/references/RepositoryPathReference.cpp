#include "references/RepositoryPathReference.h"

#include "foundation/KeyedDecoder.h"

#include <QDir>
#include <QFileInfo>

namespace {
const QString kPathField = QStringLiteral("path");

// "/a/b.stromi/", "/a/./b.stromi" and "b.stromi" run from /a name one archive, and compare
// equal only when written alike.
QUrl normalised(const QString& path)
{
    return QUrl::fromLocalFile(QDir::cleanPath(QFileInfo(path).absoluteFilePath()));
}
} // namespace

RepositoryPathReference::RepositoryPathReference(QUrl repositoryURL)
    : m_repositoryURL(std::move(repositoryURL))
{}

std::shared_ptr<RepositoryPathReference> RepositoryPathReference::referenceToURL(const QUrl& url)
{
    return initWithRepositoryURL(url);
}

std::shared_ptr<RepositoryPathReference>
RepositoryPathReference::referenceToPath(const QString& path)
{
    return initWithRepositoryURL(QUrl::fromLocalFile(path));
}

std::shared_ptr<RepositoryPathReference>
RepositoryPathReference::referenceToRepository(const Repository& repository)
{
    return referenceToPath(repository.repositoryPath());
}

std::shared_ptr<RepositoryPathReference>
RepositoryPathReference::initWithRepositoryURL(const QUrl& url)
{
    if (!url.isLocalFile() || url.toLocalFile().isEmpty()) {
        return nullptr;
    }
    return std::shared_ptr<RepositoryPathReference>(
        new RepositoryPathReference(normalised(url.toLocalFile())));
}

QString RepositoryPathReference::className() const
{
    return QStringLiteral("RepositoryPathReference");
}

QString RepositoryPathReference::path() const
{
    return m_repositoryURL.toLocalFile();
}

QString RepositoryPathReference::name() const
{
    return QFileInfo(path()).fileName();
}

QString RepositoryPathReference::displayName() const
{
    if (QString live = RepositoryReference::displayName(); !live.isEmpty()) {
        return live;
    }
    const QString fileName = name();
    const qsizetype dot = fileName.lastIndexOf(u'.');
    return dot > 0 ? fileName.left(dot) : fileName;
}

bool RepositoryPathReference::isEqual(const RepositoryReference& other) const
{
    const auto* pathReference = dynamic_cast<const RepositoryPathReference*>(&other);
    return pathReference && pathReference->path() == path();
}

QVariantMap RepositoryPathReference::encodedFields() const
{
    return {{kPathField, path()}};
}

std::optional<QUrl> RepositoryPathReference::decodeURL(const KeyedDecoder& coder)
{
    const QString path = coder.decodeStringObject(kPathField).value_or(QString());
    if (path.isEmpty()) {
        return std::nullopt;
    }
    return normalised(path);
}

QVariant RepositoryPathReference::decode(const KeyedDecoder& coder)
{
    const auto url = decodeURL(coder);
    if (!url) {
        return {};
    }
    return QVariant::fromValue(
        std::shared_ptr<RepositoryPathReference>(new RepositoryPathReference(*url)));
}

QVariant RepositoryPathReference::typedVariant(std::shared_ptr<RepositoryReference> self) const
{
    return QVariant::fromValue(std::static_pointer_cast<RepositoryPathReference>(std::move(self)));
}
