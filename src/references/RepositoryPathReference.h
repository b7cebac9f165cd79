#pragma once

#include "references/Repository.h"
#include "references/RepositoryReference.h"

class KeyedDecoder;

// A reference by path: it names where the archive is expected, nothing more. Archived as
// "path", the path string.
class RepositoryPathReference : public RepositoryReference
{
public:
    // None for a URL that names no local file.
    static std::shared_ptr<RepositoryPathReference> referenceToURL(const QUrl& url);
    static std::shared_ptr<RepositoryPathReference> referenceToPath(const QString& path);
    // The archive's package folder.
    static std::shared_ptr<RepositoryPathReference>
    referenceToRepository(const Repository& repository);
    static std::shared_ptr<RepositoryPathReference> initWithRepositoryURL(const QUrl& url);

    QString className() const override;
    QUrl url() const override { return m_repositoryURL; }
    QString path() const override;
    // The URL's last component.
    QString name() const override;
    // The live value, or the name without its extension while the archive cannot be reached.
    QString displayName() const override;
    // Both path references, naming the same path.
    bool isEqual(const RepositoryReference& other) const override;
    QVariantMap encodedFields() const override;

    static QVariant decode(const KeyedDecoder& coder);

protected:
    explicit RepositoryPathReference(QUrl repositoryURL);
    QVariant typedVariant(std::shared_ptr<RepositoryReference> self) const override;
    // The path archived under "path", for this class and those that decode like it.
    static std::optional<QUrl> decodeURL(const KeyedDecoder& coder);

private:
    QUrl m_repositoryURL;
};

Q_DECLARE_METATYPE(std::shared_ptr<RepositoryPathReference>)
