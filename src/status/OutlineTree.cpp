#include "status/OutlineTree.h"

#include "foundation/KeyedArchive.h"
#include "messaging/FullyQualifiedIdentifier.h"
#include "messaging/NodeIdentifier.h"

#include <algorithm>

namespace {
constexpr quint64 kObjectTag = 27;
constexpr std::string_view kClassName = "FullyQualifiedIdentifier";
// Far deeper than any path; deeper data are not an outline this reader takes.
constexpr int kMaxDepth = 256;

enum Major : int
{
    kUnsigned = 0,
    kNegative = 1,
    kBytes = 2,
    kText = 3,
    kArray = 4,
    kMap = 5,
    kTag = 6,
    kSimple = 7,
};
} // namespace

// The bytes of the outline, read front to back: only the definite-length forms the program
// writes are taken, anything else ends the fast reading.
struct OutlineTree::Cursor
{
    const uchar* at;
    const uchar* end;

    // The head of the next item: its major type and its argument.
    bool head(int& major, quint64& argument)
    {
        if (at >= end) {
            return false;
        }
        const uchar first = *at++;
        major = first >> 5;
        const int info = first & 0x1f;
        if (info < 24) {
            argument = quint64(info);
            return true;
        }
        if (info > 27) {
            return false; // indefinite lengths and reserved values
        }
        const int size = 1 << (info - 24);
        if (end - at < size) {
            return false;
        }
        argument = 0;
        for (int i = 0; i < size; ++i) {
            argument = (argument << 8) | *at++;
        }
        return true;
    }

    bool expect(int major, quint64& argument)
    {
        int found = -1;
        return head(found, argument) && found == major;
    }

    bool text(std::string_view& out)
    {
        quint64 length = 0;
        if (!expect(kText, length) || quint64(end - at) < length) {
            return false;
        }
        out = std::string_view(reinterpret_cast<const char*>(at), size_t(length));
        at += length;
        return true;
    }

    bool nextIsText() const { return at < end && (*at >> 5) == kText; }

    // Past one whole item, whatever it holds.
    bool skip(int depth)
    {
        int major = -1;
        quint64 argument = 0;
        if (depth > kMaxDepth || !head(major, argument)) {
            return false;
        }
        switch (major) {
        case kBytes:
        case kText:
            if (quint64(end - at) < argument) {
                return false;
            }
            at += argument;
            return true;
        case kArray:
        case kMap: {
            const quint64 items = major == kMap ? argument * 2 : argument;
            for (quint64 i = 0; i < items; ++i) {
                if (!skip(depth + 1)) {
                    return false;
                }
            }
            return true;
        }
        case kTag:
            return skip(depth + 1);
        default:
            return true; // numbers and simple values are all head
        }
    }
};

OutlineTree::OutlineTree(std::shared_ptr<OutlineComponents> components)
    : m_components(std::move(components))
{}

std::optional<OutlineTree> OutlineTree::read(const QByteArray& data,
                                             std::shared_ptr<OutlineComponents> components)
{
    OutlineTree tree(components);
    // The layout the program writes is read as a stream; anything else takes the general
    // decoder, which also says whether the data are an outline at all.
    bool read = tree.readStream(data);
    components->endOfOutline();
    if (!read) {
        tree = OutlineTree(components);
        if (!tree.readSlowly(data)) {
            return std::nullopt;
        }
    }
    tree.freeze();
    return tree;
}

quint32 OutlineTree::child(quint32 parent, quint32 component)
{
    const auto [found, made] = m_building.try_emplace(key(parent, component), 0);
    if (made) {
        found->second = quint32(m_isEntry.size());
        m_isEntry.push_back(false);
    }
    return found->second;
}

void OutlineTree::markEntry(quint32 node)
{
    if (!m_isEntry[node]) {
        m_isEntry[node] = true;
        ++m_entryCount;
    }
}

void OutlineTree::freeze()
{
    m_edges.reserve(m_building.size());
    for (const auto& [edge, node] : m_building) {
        m_edges.push_back({edge, node});
    }
    std::sort(m_edges.begin(), m_edges.end(),
              [](const Edge& a, const Edge& b) { return a.key < b.key; });
    m_building = {};
    m_readSubtrees = {};
}

bool OutlineTree::readStream(const QByteArray& data)
{
    const auto* begin = reinterpret_cast<const uchar*>(data.constData());
    Cursor cursor{begin, begin + data.size()};
    quint64 count = 0;
    if (!cursor.expect(kArray, count)) {
        return false;
    }
    // An entry and its folders make a few nodes each: one growth of the table, not many.
    m_building.reserve(size_t(std::min<quint64>(count, quint64(data.size()))) * 2);
    for (quint64 i = 0; i < count; ++i) {
        const auto node = readIdentifier(cursor, 0);
        if (!node) {
            return false;
        }
        markEntry(*node);
    }
    return cursor.at == cursor.end;
}

std::optional<quint32> OutlineTree::readIdentifier(Cursor& cursor, int depth)
{
    quint64 argument = 0;
    std::string_view text;
    if (depth > kMaxDepth || !cursor.expect(kTag, argument) || argument != kObjectTag ||
        !cursor.expect(kArray, argument) || argument != 2 || !cursor.text(text) ||
        text != kClassName || !cursor.expect(kMap, argument)) {
        return std::nullopt;
    }
    const quint64 fields = argument;
    quint32 parent = 0;
    quint32 component = OutlineComponents::kNone;
    for (quint64 i = 0; i < fields; ++i) {
        if (!cursor.text(text)) {
            return std::nullopt;
        }
        const uchar* start = cursor.at;
        if (text == "ident") {
            std::string_view name;
            if (cursor.nextIsText()) {
                if (!cursor.text(name)) {
                    return std::nullopt;
                }
                component = m_components->internString(name);
            } else {
                if (!cursor.skip(depth + 1)) {
                    return std::nullopt;
                }
                component = m_components->internArchived(std::string_view(
                    reinterpret_cast<const char*>(start), size_t(cursor.at - start)));
            }
        } else if (text == "parent") {
            // Entries in one folder repeat their parent's bytes: each distinct parent is read
            // once, then known by its bytes.
            if (!cursor.skip(depth + 1)) {
                return std::nullopt;
            }
            const std::string_view bytes(reinterpret_cast<const char*>(start),
                                         size_t(cursor.at - start));
            if (const auto known = m_readSubtrees.find(bytes); known != m_readSubtrees.end()) {
                parent = known->second;
            } else {
                Cursor inner{start, cursor.at};
                const auto node = readIdentifier(inner, depth + 1);
                if (!node || inner.at != inner.end) {
                    return std::nullopt;
                }
                parent = *node;
                m_readSubtrees.emplace(bytes, parent);
            }
        } else {
            return std::nullopt;
        }
        if (component == OutlineComponents::kNone && text == "ident") {
            return std::nullopt;
        }
    }
    if (component == OutlineComponents::kNone) {
        return std::nullopt;
    }
    return child(parent, component);
}

bool OutlineTree::readSlowly(const QByteArray& data)
{
    QVariant value;
    try {
        value = KeyedArchive::unarchiveObjectWithData(data);
    } catch (const std::exception&) {
        return false;
    }
    if (value.metaType() != QMetaType::fromType<QVariantList>()) {
        return false;
    }
    for (const QVariant& entry : value.toList()) {
        const auto identifier = entry.value<FQIdentifier>();
        if (!identifier) {
            continue;
        }
        quint32 node = 0;
        for (const QVariant& level : identifier->identifiers()) {
            node = child(node, m_components->intern(level));
        }
        markEntry(node);
    }
    return true;
}

std::optional<quint32> OutlineTree::find(quint32 parent, quint32 component) const
{
    const quint64 wanted = key(parent, component);
    const auto found = std::lower_bound(m_edges.cbegin(), m_edges.cend(), wanted,
                                        [](const Edge& edge, quint64 k) { return edge.key < k; });
    if (found == m_edges.cend() || found->key != wanted) {
        return std::nullopt;
    }
    return found->child;
}

bool OutlineTree::holds(const QVariantList& itemLevels) const
{
    if (itemLevels.isEmpty()) {
        return false;
    }
    // The first level is the client, which the asker may leave open: it is compared with each
    // of the few clients the outline names, the rest are looked up.
    const auto first = std::lower_bound(m_edges.cbegin(), m_edges.cend(), key(0, 0),
                                        [](const Edge& edge, quint64 k) { return edge.key < k; });
    for (auto edge = first; edge != m_edges.cend() && (edge->key >> 32) == 0; ++edge) {
        const auto component = quint32(edge->key & 0xFFFFFFFFU);
        if (NodeIdentifier::isEqual(m_components->node(component), itemLevels.first()) &&
            (m_isEntry[edge->child] || holdsBelow(edge->child, itemLevels, 1))) {
            return true;
        }
    }
    return false;
}

bool OutlineTree::holdsBelow(quint32 node, const QVariantList& levels, qsizetype level) const
{
    for (; level < levels.size(); ++level) {
        const quint32 component = m_components->find(levels.at(level));
        if (component == OutlineComponents::kNone) {
            return false;
        }
        const auto next = find(node, component);
        if (!next) {
            return false;
        }
        if (m_isEntry[*next]) {
            return true;
        }
        node = *next;
    }
    return false;
}
