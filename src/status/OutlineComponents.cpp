#include "status/OutlineComponents.h"

#include "foundation/KeyedArchive.h"
#include "messaging/NodeIdentifier.h"

quint32 OutlineComponents::internString(std::string_view utf8)
{
    if (const auto found = m_strings.find(utf8); found != m_strings.end()) {
        return found->second;
    }
    const auto id = quint32(m_nodes.size());
    m_nodes.emplace_back(QString::fromUtf8(utf8.data(), qsizetype(utf8.size())));
    m_strings.emplace(std::string(utf8), id);
    return id;
}

quint32 OutlineComponents::intern(const QVariant& node)
{
    if (node.metaType() == QMetaType::fromType<QString>()) {
        const QByteArray utf8 = node.toString().toUtf8();
        return internString(std::string_view(utf8.constData(), size_t(utf8.size())));
    }
    if (const quint32 known = find(node); known != kNone) {
        return known;
    }
    const auto id = quint32(m_nodes.size());
    m_nodes.push_back(node);
    m_others.emplace(NodeIdentifier::hash(node), id);
    return id;
}

quint32 OutlineComponents::internArchived(std::string_view bytes)
{
    if (const auto found = m_archived.find(bytes); found != m_archived.end()) {
        return found->second;
    }
    quint32 id = kNone;
    try {
        const QVariant node = KeyedArchive::unarchiveObjectWithData(
            QByteArray::fromRawData(bytes.data(), qsizetype(bytes.size())));
        if (node.isValid()) {
            id = intern(node);
        }
    } catch (const std::exception&) {
        // Not a level: the caller reads the outline the slow way, which says why.
    }
    m_archived.emplace(bytes, id);
    return id;
}

quint32 OutlineComponents::find(const QVariant& node) const
{
    if (node.metaType() == QMetaType::fromType<QString>()) {
        const QByteArray utf8 = node.toString().toUtf8();
        const auto found = m_strings.find(std::string_view(utf8.constData(), size_t(utf8.size())));
        return found != m_strings.end() ? found->second : kNone;
    }
    const auto [first, last] = m_others.equal_range(NodeIdentifier::hash(node));
    for (auto it = first; it != last; ++it) {
        if (NodeIdentifier::isEqual(m_nodes[it->second], node)) {
            return it->second;
        }
    }
    return kNone;
}
