#include "messaging/FullyQualifiedIdentifier.h"

#include "exception/KSException.h"
#include "foundation/KeyedArchive.h"
#include "foundation/KeyedDecoder.h"
#include "messaging/ClientIdentifier.h"
#include "messaging/NodeIdentifier.h"
#include "messaging/VolumeIdentifier.h"

#include <QStringList>
#include <algorithm>
#include <stdexcept>

namespace {
const QString kClassName = QStringLiteral("FullyQualifiedIdentifier");
const QString kLayerNodeClassName = QStringLiteral("LayerNode");

QString appendingPathComponent(const QString& path, const QString& component)
{
    if (component.isEmpty()) {
        return path;
    }
    if (path.isEmpty()) {
        return component;
    }
    return path.endsWith(QLatin1Char('/')) ? path + component : path + QLatin1Char('/') + component;
}
} // namespace

FullyQualifiedIdentifier::FullyQualifiedIdentifier(Token, QVariant identifier, FQIdentifier parent)
    : m_identifier(std::move(identifier))
    , m_parent(std::move(parent))
    , m_length(m_parent ? m_parent->m_length + 1 : 1)
{}

FQIdentifier FullyQualifiedIdentifier::withIdentifier(const QVariant& identifier,
                                                      const FQIdentifier& parent)
{
    return std::make_shared<FullyQualifiedIdentifier>(Token(), identifier, parent);
}

FQIdentifier FullyQualifiedIdentifier::withIdentifierArray(const QVariantList& identifiers)
{
    return withIdentifierArray(identifiers, identifiers.size());
}

FQIdentifier FullyQualifiedIdentifier::withIdentifierArray(const QVariantList& identifiers,
                                                           qsizetype length)
{
    if (length < 0 || length > identifiers.size()) {
        throw std::out_of_range("identifier chain longer than its array");
    }
    FQIdentifier chain;
    for (qsizetype i = 0; i < length; ++i) {
        chain = withIdentifier(identifiers.at(i), chain);
    }
    return chain;
}

FQIdentifier
FullyQualifiedIdentifier::fullyQualifiedIdentifierWithPath(const QString& path,
                                                           const ClientIdentifier& client)
{
    return PathResolver().identifierWithPath(path, client);
}

FullyQualifiedIdentifier::PathResolver::PathResolver(MountTable table)
    : m_table(std::move(table))
{}

FQIdentifier
FullyQualifiedIdentifier::PathResolver::identifierWithPath(const QString& path,
                                                           const ClientIdentifier& client)
{
    if (path.isEmpty()) {
        return nullptr;
    }
    const QString resolved = MountTable::resolvedPath(path);
    const auto mount = m_table.mountContaining(resolved);
    if (!mount) {
        return nullptr;
    }
    auto volume = m_volumes.find(mount->mountPoint);
    if (volume == m_volumes.end()) {
        volume = m_volumes.insert(
            mount->mountPoint,
            QVariant::fromValue(VolumeIdentifier::volumeIdentifierForMount(*mount)));
    }
    FQIdentifier chain = withIdentifier(QVariant::fromValue(client));
    chain = withIdentifier(*volume, chain);
    for (const QString& component : MountTable::componentsBelow(resolved, mount->mountPoint)) {
        chain = withIdentifier(component, chain);
    }
    return chain;
}

QVariantList FullyQualifiedIdentifier::identifiers() const
{
    QVariantList levels(static_cast<qsizetype>(m_length));
    qsizetype index = levels.size();
    for (const FullyQualifiedIdentifier* level = this; level != nullptr;
         level = level->m_parent.get()) {
        levels[--index] = level->m_identifier;
    }
    return levels;
}

QString FullyQualifiedIdentifier::nameOfLeafIdentifier() const
{
    return NodeIdentifier::name(m_identifier);
}

FQIdentifier FullyQualifiedIdentifier::fullyQualifiedIdentifierOfLength(quint64 length) const
{
    if (length == 0 || length > m_length) {
        return nullptr;
    }
    FQIdentifier level = shared_from_this();
    while (level->m_length > length) {
        level = level->m_parent;
    }
    return level;
}

FQIdentifier FullyQualifiedIdentifier::fullyQualifiedIdentifierByAppendingIdentifier(
    const QVariant& identifier) const
{
    return withIdentifier(identifier, shared_from_this());
}

bool FullyQualifiedIdentifier::contains(const FQIdentifier& other) const
{
    if (!other || other->m_length <= m_length) {
        return false;
    }
    const FullyQualifiedIdentifier* ancestor = other->m_parent.get();
    while (ancestor->m_length > m_length) {
        ancestor = ancestor->m_parent.get();
    }
    return isEqual(*ancestor);
}

FQIdentifier FullyQualifiedIdentifier::closestAncestorWith(const FQIdentifier& other) const
{
    if (!other) {
        return nullptr;
    }
    const quint64 common = std::min(m_length, other->m_length);
    FQIdentifier mine = fullyQualifiedIdentifierOfLength(common);
    FQIdentifier theirs = other->fullyQualifiedIdentifierOfLength(common);
    while (mine && !mine->isEqual(*theirs)) {
        mine = mine->m_parent;
        theirs = theirs->m_parent;
    }
    return mine;
}

bool FullyQualifiedIdentifier::isEqual(const FullyQualifiedIdentifier& other) const
{
    if (this == &other) {
        return true;
    }
    if (m_length != other.m_length) {
        return false;
    }
    // Equal lengths reach the root together; a shared parent object settles the rest at once.
    for (const FullyQualifiedIdentifier *mine = this, *theirs = &other;;
         mine = mine->m_parent.get(), theirs = theirs->m_parent.get()) {
        if (!NodeIdentifier::isEqual(mine->m_identifier, theirs->m_identifier)) {
            return false;
        }
        if (mine->m_parent == theirs->m_parent) {
            return true;
        }
    }
}

size_t FullyQualifiedIdentifier::hash() const
{
    const size_t leaf = NodeIdentifier::hash(m_identifier);
    return m_parent ? leaf ^ NodeIdentifier::hash(m_parent->m_identifier) : leaf;
}

QString FullyQualifiedIdentifier::compositePath() const
{
    const QVariantList levels = identifiers();
    QString path;
    for (qsizetype i = 0; i < levels.size(); ++i) {
        path += NodeIdentifier::name(levels.at(i));
        if (i == 0) {
            path += QLatin1Char(':');
        } else if (i + 1 < levels.size()) {
            path += QLatin1Char('/');
        }
    }
    return path;
}

QString FullyQualifiedIdentifier::description() const
{
    QStringList levels;
    for (const QVariant& level : identifiers()) {
        levels << NodeIdentifier::description(level);
    }
    return levels.join(QLatin1Char(':'));
}

QString FullyQualifiedIdentifier::fileSystemRepresentation() const
{
    if (m_identifier.metaType() == QMetaType::fromType<VolumeIdentifier>()) {
        return m_identifier.value<VolumeIdentifier>().onlineMountPath();
    }
    if (m_identifier.metaType() == QMetaType::fromType<ClientIdentifier>()) {
        return {};
    }
    return NodeIdentifier::name(m_identifier);
}

QString FullyQualifiedIdentifier::fileSystemPath() const
{
    const QString parentPath = m_parent ? m_parent->fileSystemPath() : QString();
    return appendingPathComponent(parentPath, fileSystemRepresentation());
}

std::optional<QFileInfo> FullyQualifiedIdentifier::fileInfo() const
{
    const QString path = fileSystemPath();
    if (!path.startsWith(QLatin1Char('/'))) {
        return std::nullopt;
    }
    const QString canonical = QFileInfo(path).canonicalFilePath();
    return QFileInfo(canonical.isEmpty() ? path : canonical);
}

void FullyQualifiedIdentifier::registerArchivableClass()
{
    KeyedArchive::registerClass<FQIdentifier>(
        kClassName,
        [](const QVariant& object) {
            const auto identifier = object.value<FQIdentifier>();
            if (!identifier) {
                return QVariantMap();
            }
            QVariantMap fields{{QStringLiteral("ident"), identifier->nodeIdentifier()}};
            if (identifier->parent()) {
                fields.insert(QStringLiteral("parent"), QVariant::fromValue(identifier->parent()));
            }
            return fields;
        },
        [](const KeyedDecoder& coder) {
            QSet<QString> allowed{QStringLiteral("ClientIdentifier"),
                                  QStringLiteral("VolumeIdentifier"), KeyedArchive::kString,
                                  KeyedArchive::kNumber};
            // Layer nodes belong to the archive-reading part of the program; a process without
            // it cannot take identifiers that name them.
            if (KeyedArchive::isRegisteredClass(kLayerNodeClassName)) {
                allowed.insert(kLayerNodeClassName);
            }
            const QVariant identifier = coder.decodeObject(QStringLiteral("ident"), allowed);
            if (!identifier.isValid()) {
                KSException::exceptionWithName(QStringLiteral("Archive"),
                                               QStringLiteral("identifier without a node"))
                    .setClass(kClassName)
                    .raise();
            }
            const FQIdentifier parent =
                coder.decodeObject(QStringLiteral("parent"), {kClassName}).value<FQIdentifier>();
            return QVariant::fromValue(withIdentifier(identifier, parent));
        });
    QMetaType::registerConverter<FQIdentifier, QString>([](const FQIdentifier& identifier) {
        return identifier ? identifier->description() : QStringLiteral("(null)");
    });
}

namespace {
[[maybe_unused]] const bool s_registered =
    (FullyQualifiedIdentifier::registerArchivableClass(), true);
} // namespace
