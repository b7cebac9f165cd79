#include "references/RepositoryPathReference.h"

#include "foundation/KeyedDecoder.h"

#include <QFileInfo>

namespace {
const QString kPathField = QStringLiteral("path");
}

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
RepositoryPathReference::initWithRepositoryURL(const QUrl& url)
{
    if (!url.isLocalFile() || url.toLocalFile().isEmpty()) {
        return nullptr;
    }
    return std::shared_ptr<RepositoryPathReference>(new RepositoryPathReference(url));
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
    return QUrl::fromLocalFile(path);
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
