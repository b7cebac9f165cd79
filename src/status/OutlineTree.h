#pragma once

#include "status/OutlineComponents.h"

#include <QByteArray>
#include <QVariantList>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

// One archive's outline as a tree of numbered levels: entries that share a path prefix share
// its nodes, and a node costs a few bytes instead of a chain of objects per entry. Asking
// whether it holds an item walks the item's levels once. Built on one thread; read by any
// number once built.
class OutlineTree
{
public:
    // Reads "outline.index" data: an archived array of fully qualified identifiers. None when
    // the data cannot be interpreted.
    static std::optional<OutlineTree> read(const QByteArray& data,
                                           std::shared_ptr<OutlineComponents> components);

    // An entry equal to the item (its levels, root first) or containing it.
    bool holds(const QVariantList& itemLevels) const;
    qsizetype entryCount() const { return m_entryCount; }

private:
    explicit OutlineTree(std::shared_ptr<OutlineComponents> components);

    // The node under the parent for that level, made when new.
    quint32 child(quint32 parent, quint32 component);
    void markEntry(quint32 node);
    // Sorts the edges for lookups and drops what only building needed.
    void freeze();
    bool readStream(const QByteArray& data);
    // One identifier object; its node, or none when the data are not as expected.
    struct Cursor;
    std::optional<quint32> readIdentifier(Cursor& cursor, int depth);
    bool readSlowly(const QByteArray& data);
    std::optional<quint32> find(quint32 parent, quint32 component) const;
    bool holdsBelow(quint32 node, const QVariantList& levels, qsizetype level) const;

    static constexpr quint64 key(quint32 parent, quint32 component)
    {
        return (quint64(parent) << 32) | component;
    }

    struct Edge
    {
        quint64 key;
        quint32 child;
    };

    std::shared_ptr<OutlineComponents> m_components;
    // Sorted by key: a parent's children lie together.
    std::vector<Edge> m_edges;
    std::vector<bool> m_isEntry{false}; // node 0 is the root
    qsizetype m_entryCount = 0;
    // Building only: edges by key, and identifiers already read, by their bytes.
    std::unordered_map<quint64, quint32> m_building;
    std::unordered_map<std::string_view, quint32> m_readSubtrees;
};
