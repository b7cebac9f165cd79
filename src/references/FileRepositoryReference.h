#pragma once

#include "references/RepositoryPathReference.h"

// The name path references were once archived under. It adds nothing: references stored
// under this name still decode, and behave as path references.
class FileRepositoryReference final : public RepositoryPathReference
{
public:
    QString className() const override;

    static QVariant decode(const KeyedDecoder& coder);

private:
    using RepositoryPathReference::RepositoryPathReference;
    QVariant typedVariant(std::shared_ptr<RepositoryReference> self) const override;
};

Q_DECLARE_METATYPE(std::shared_ptr<FileRepositoryReference>)
