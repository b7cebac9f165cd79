#pragma once

#include <QHash>
#include <QString>
#include <QVariant>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

// The distinct levels of the identifiers in the outlines of one rebuild (clients, volumes,
// names), each kept once and numbered, so that an outline stores numbers, not values. Built on
// one thread; read by any number once built.
class OutlineComponents
{
public:
    static constexpr quint32 kNone = 0xFFFFFFFFU;

    // A string level, by its UTF-8 bytes.
    quint32 internString(std::string_view utf8);
    // Any level, compared as identifiers compare (a number by value whatever its kind).
    quint32 intern(const QVariant& node);
    // The level archived in those bytes, decoded once however often it occurs; kNone when the
    // bytes hold no level.
    quint32 internArchived(std::string_view bytes);

    // The number of a level equal to the node; kNone when no outline holds it.
    quint32 find(const QVariant& node) const;
    const QVariant& node(quint32 id) const { return m_nodes[id]; }
    qsizetype size() const { return qsizetype(m_nodes.size()); }

    // Forgets the decoding cache, which points into the data of the outline being read.
    void endOfOutline() { m_archived.clear(); }

private:
    struct TextHash
    {
        using is_transparent = void;
        size_t operator()(std::string_view text) const
        {
            return std::hash<std::string_view>()(text);
        }
    };
    std::unordered_map<std::string, quint32, TextHash, std::equal_to<>> m_strings;
    // Levels that are not strings, by their identifier hash.
    std::unordered_multimap<size_t, quint32> m_others;
    std::unordered_map<std::string_view, quint32> m_archived;
    std::vector<QVariant> m_nodes;
};
