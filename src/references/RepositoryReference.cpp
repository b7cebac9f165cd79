#include "references/RepositoryReference.h"

#include "exception/Error.h"
#include "foundation/KeyedArchive.h"
#include "logging/Logger.h"
#include "references/BookmarkPath.h"
#include "references/FileRepositoryReference.h"
#include "references/RepositoryAliasReference.h"
#include "references/RepositoryPathReference.h"
#include "references/ResourceValues.h"

#include <QFileInfo>
#include <cerrno>
#include <stdexcept>

namespace {
const QString kReferenceClass = QStringLiteral("RepositoryReference");
const QString kAliasClass = QStringLiteral("RepositoryAliasReference");
const QString kPathClass = QStringLiteral("RepositoryPathReference");
const QString kFileClass = QStringLiteral("FileRepositoryReference");

QVariantMap encodeFields(const QVariant& object)
{
    const auto reference = RepositoryReference::fromVariant(object);
    return reference ? reference->encodedFields() : QVariantMap();
}

// A pointer of the base type cannot say which class to archive under.
QVariantMap encodeAbstract(const QVariant& object)
{
    if (RepositoryReference::fromVariant(object)) {
        throw std::logic_error("a repository reference is archived through toVariant(), which "
                               "keeps its class");
    }
    return {};
}

QString stringOrNone(const QVariant& value)
{
    return value.metaType().id() == QMetaType::QString ? value.toString() : QString();
}
} // namespace

RepositoryReference::~RepositoryReference() = default;

QStringList RepositoryReference::essentialBookmarkPropertyKeys()
{
    return ResourceValues::knownKeys();
}

QSet<QString> RepositoryReference::archivableClassNames()
{
    return {kReferenceClass, kAliasClass, kPathClass, kFileClass};
}

void RepositoryReference::registerArchivableClasses()
{
    static const bool registered = [] {
        BookmarkPath::registerArchivableClass();
        // The abstract class writes and reads nothing: what it decodes to is none.
        KeyedArchive::registerClass<std::shared_ptr<RepositoryReference>>(
            kReferenceClass, encodeAbstract, [](const KeyedDecoder&) { return QVariant(); });
        KeyedArchive::registerClass<std::shared_ptr<RepositoryAliasReference>>(
            kAliasClass, encodeFields, &RepositoryAliasReference::decode);
        KeyedArchive::registerClass<std::shared_ptr<RepositoryPathReference>>(
            kPathClass, encodeFields, &RepositoryPathReference::decode);
        KeyedArchive::registerClass<std::shared_ptr<FileRepositoryReference>>(
            kFileClass, encodeFields, &FileRepositoryReference::decode);
        KeyedArchive::setSuperclass(kAliasClass, kReferenceClass);
        KeyedArchive::setSuperclass(kPathClass, kReferenceClass);
        KeyedArchive::setSuperclass(kFileClass, kPathClass);
        return true;
    }();
    Q_UNUSED(registered);
}

QVariant RepositoryReference::toVariant() const
{
    auto self = std::const_pointer_cast<RepositoryReference>(weak_from_this().lock());
    if (!self) {
        throw std::logic_error("a repository reference is made by its class's factories");
    }
    return typedVariant(std::move(self));
}

std::shared_ptr<RepositoryReference> RepositoryReference::fromVariant(const QVariant& value)
{
    const QMetaType type = value.metaType();
    if (type == QMetaType::fromType<std::shared_ptr<RepositoryReference>>()) {
        return value.value<std::shared_ptr<RepositoryReference>>();
    }
    if (type == QMetaType::fromType<std::shared_ptr<RepositoryAliasReference>>()) {
        return value.value<std::shared_ptr<RepositoryAliasReference>>();
    }
    if (type == QMetaType::fromType<std::shared_ptr<RepositoryPathReference>>()) {
        return value.value<std::shared_ptr<RepositoryPathReference>>();
    }
    if (type == QMetaType::fromType<std::shared_ptr<FileRepositoryReference>>()) {
        return value.value<std::shared_ptr<FileRepositoryReference>>();
    }
    return nullptr;
}

QByteArray RepositoryReference::archivedData() const
{
    registerArchivableClasses();
    return KeyedArchive::archivedData(toVariant());
}

std::shared_ptr<RepositoryReference> RepositoryReference::fromArchivedData(const QByteArray& data)
{
    if (data.isEmpty()) {
        return nullptr;
    }
    registerArchivableClasses();
    try {
        return fromVariant(KeyedArchive::unarchivedObject(data, archivableClassNames()));
    } catch (const std::exception& exception) {
        Logger::log(4, nullptr,
                    QStringLiteral("%1 data is not a repository reference")
                        .arg(QStringLiteral("+[RepositoryReference fromArchivedData:]")),
                    &exception);
        return nullptr;
    }
}

QVariantMap RepositoryReference::encodedFields() const
{
    return {};
}

bool RepositoryReference::isReachable() const
{
    const QUrl location = url();
    return location.isLocalFile() && QFileInfo::exists(location.toLocalFile());
}

bool RepositoryReference::isValid() const
{
    if (!isReachable()) {
        return false;
    }
    const QFileInfo info(url().toLocalFile());
    return info.isDir() && info.suffix() == kRepositoryExtension;
}

bool RepositoryReference::isRefreshed() const
{
    return false;
}

QByteArray RepositoryReference::bookmark() const
{
    return bookmarkWithOption(0, essentialBookmarkPropertyKeys());
}

QByteArray RepositoryReference::bookmarkWithOption(int options,
                                                   const QStringList& resourceKeys) const
{
    const QUrl location = url();
    Error error(Error::kPOSIXDomain, EINVAL,
                {{Error::kLocalizedDescriptionKey,
                  QStringLiteral("Bookmark creation options are not supported.")}});
    const auto bookmarkPath =
        options == 0 ? BookmarkPath::fromUrl(location, resourceKeys, &error) : nullptr;
    if (!bookmarkPath) {
        logBookmarkProblem(
            QStringLiteral("-[RepositoryReference bookmarkWithOption:includingResourceValues:]"),
            location, error);
        return {};
    }
    return bookmarkPath->bookmarkData();
}

void RepositoryReference::logBookmarkProblem(const QString& operation, const QUrl& url,
                                             const Error& error)
{
    Logger::log(9, QStringLiteral("%1 problem converting URL (%2) into bookmark: %3")
                       .arg(operation, url.isEmpty() ? QStringLiteral("(null)") : url.toString(),
                            error.description()));
}

QString RepositoryReference::path() const
{
    return stringOrNone(propertyForKey(ResourceValues::kPathKey, QMetaType::fromType<QString>()));
}

QString RepositoryReference::name() const
{
    return stringOrNone(propertyForKey(ResourceValues::kNameKey, QMetaType::fromType<QString>()));
}

QString RepositoryReference::displayName() const
{
    return stringOrNone(
        propertyForKey(ResourceValues::kLocalizedNameKey, QMetaType::fromType<QString>()));
}

QString RepositoryReference::volumeName() const
{
    return stringOrNone(
        propertyForKey(ResourceValues::kVolumeNameKey, QMetaType::fromType<QString>()));
}

QString RepositoryReference::volumeDisplayName() const
{
    return stringOrNone(
        propertyForKey(ResourceValues::kVolumeLocalizedNameKey, QMetaType::fromType<QString>()));
}

QString RepositoryReference::volumeUUID() const
{
    return stringOrNone(
        propertyForKey(ResourceValues::kVolumeUUIDStringKey, QMetaType::fromType<QString>()));
}

QVariant RepositoryReference::propertyForKey(const QString& key, QMetaType expected) const
{
    const QUrl location = url();
    if (location.isEmpty()) {
        return {};
    }
    QVariant value = ResourceValues::valueForKey(location, key);
    return value.metaType() == expected ? value : QVariant();
}

bool RepositoryReference::isEqual(const RepositoryReference& other) const
{
    return url() == other.url();
}

size_t RepositoryReference::hash() const
{
    return qHash(url());
}

QString RepositoryReference::description() const
{
    return QStringLiteral("%1.0x%2(%3)")
        .arg(className(), QString::number(quintptr(this), 16), path());
}

namespace {
// Registered as soon as this file is linked in: a peer's archive can always carry one.
[[maybe_unused]] const bool s_registered = (RepositoryReference::registerArchivableClasses(), true);
} // namespace
