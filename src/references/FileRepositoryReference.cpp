#include "references/FileRepositoryReference.h"

QString FileRepositoryReference::className() const
{
    return QStringLiteral("FileRepositoryReference");
}

QVariant FileRepositoryReference::decode(const KeyedDecoder& coder)
{
    const auto url = decodeURL(coder);
    if (!url) {
        return {};
    }
    return QVariant::fromValue(
        std::shared_ptr<FileRepositoryReference>(new FileRepositoryReference(*url)));
}

QVariant FileRepositoryReference::typedVariant(std::shared_ptr<RepositoryReference> self) const
{
    return QVariant::fromValue(std::static_pointer_cast<FileRepositoryReference>(std::move(self)));
}
