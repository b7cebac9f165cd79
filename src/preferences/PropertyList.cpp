#include "preferences/PropertyList.h"

#include <QDateTime>
#include <QStringList>
#include <QTimeZone>
#include <QXmlStreamReader>
#include <QtNumeric>
#include <algorithm>
#include <cstdlib>
#include <limits>
#include <memory>
#include <plist/plist.h>
#include <vector>

namespace {
// Deeper trees are refused on both sides: libplist parses and frees them recursively and runs
// out of stack long before a file runs out of bytes.
constexpr int kMaxDepth = 512;
// A binary list may reference one object from many places, and libplist copies each use, so a
// small file can stand for billions of values.
constexpr quint64 kMaxExpandedValues = quint64(1) << 22;
constexpr qint64 kMSecsFrom1970To2001 = 978'307'200'000;
constexpr QByteArrayView kBinaryMagic = "bplist00";

struct PlistDeleter
{
    void operator()(void* node) const { plist_free(static_cast<plist_t>(node)); }
};
using PlistPtr = std::unique_ptr<void, PlistDeleter>;

bool isSignedInteger(int typeId)
{
    switch (typeId) {
    case QMetaType::Int:
    case QMetaType::LongLong:
    case QMetaType::Long:
    case QMetaType::Short:
        return true;
    default:
        return false;
    }
}

bool isUnsignedInteger(int typeId)
{
    switch (typeId) {
    case QMetaType::UInt:
    case QMetaType::ULongLong:
    case QMetaType::ULong:
    case QMetaType::UShort:
        return true;
    default:
        return false;
    }
}

qint64 clampedToInteger(double value)
{
    constexpr double kLimit = 9223372036854775808.0; // 2^63
    if (value >= kLimit) {
        return std::numeric_limits<qint64>::max();
    }
    if (value <= -kLimit) {
        return std::numeric_limits<qint64>::min();
    }
    return static_cast<qint64>(value);
}

std::optional<double> numberInString(const QString& text)
{
    bool ok = false;
    const double number = text.trimmed().toDouble(&ok);
    return ok ? std::optional<double>(number) : std::nullopt;
}

// ---- QVariant -> plist

PlistPtr toPlist(const QVariant& value, int depth, QString* error);

PlistPtr fail(QString* error, const QString& problem)
{
    *error = problem;
    return nullptr;
}

// libplist keeps a single integer type and writes it as signed unless the node was parsed as
// a wide (unsigned) value; parsing one is the only public way to make such a node.
PlistPtr wideUnsignedNode(quint64 value)
{
    const QByteArray xml =
        "<plist version=\"1.0\"><integer>" + QByteArray::number(value) + "</integer></plist>";
    plist_t node = nullptr;
    plist_from_xml(xml.constData(), static_cast<uint32_t>(xml.size()), &node);
    return PlistPtr(node);
}

PlistPtr stringNode(const QString& text, QString* error)
{
    // XML 1.0 cannot hold these: written anyway, they would make the whole file unreadable.
    for (qsizetype i = 0; i < text.size(); ++i) {
        const char16_t unit = text.at(i).unicode();
        if (unit == 0) {
            return fail(error, QStringLiteral("a string holds a NUL character"));
        }
        const bool control = unit < 0x20 && unit != u'\t' && unit != u'\n' && unit != u'\r';
        const bool pairedSurrogate = QChar::isHighSurrogate(unit) && i + 1 < text.size() &&
                                     QChar::isLowSurrogate(text.at(i + 1).unicode());
        if (pairedSurrogate) {
            ++i;
            continue;
        }
        if (control || QChar::isSurrogate(unit) || unit == 0xFFFE || unit == 0xFFFF) {
            return fail(error, QStringLiteral("a string holds the character U+%1, which a "
                                              "property list cannot hold")
                                   .arg(uint(unit), 4, 16, QLatin1Char('0')));
        }
    }
    const QByteArray utf8 = text.toUtf8();
    return PlistPtr(plist_new_string(utf8.constData()));
}

PlistPtr dateNode(const QDateTime& date, QString* error)
{
    if (!date.isValid()) {
        return fail(error, QStringLiteral("an invalid date"));
    }
    const qint64 msecs = date.toMSecsSinceEpoch() - kMSecsFrom1970To2001;
    qint64 seconds = msecs / 1000;
    qint64 remainder = msecs % 1000;
    if (remainder < 0) {
        --seconds;
        remainder += 1000;
    }
    if (seconds < std::numeric_limits<int32_t>::min() ||
        seconds > std::numeric_limits<int32_t>::max()) {
        return fail(error,
                    QStringLiteral("the date %1 is out of range").arg(date.toString(Qt::ISODate)));
    }
    return PlistPtr(
        plist_new_date(static_cast<int32_t>(seconds), static_cast<int32_t>(remainder * 1000)));
}

PlistPtr arrayNode(const QVariantList& list, int depth, QString* error)
{
    PlistPtr array(plist_new_array());
    for (const QVariant& item : list) {
        PlistPtr node = toPlist(item, depth + 1, error);
        if (!node) {
            return nullptr;
        }
        plist_array_append_item(array.get(), node.release());
    }
    return array;
}

template <typename Map> PlistPtr dictionaryNode(const Map& map, int depth, QString* error)
{
    PlistPtr dictionary(plist_new_dict());
    for (auto it = map.cbegin(); it != map.cend(); ++it) {
        const QByteArray key = it.key().toUtf8();
        if (key.contains('\0')) {
            return fail(error, QStringLiteral("a key holds a NUL character"));
        }
        PlistPtr node = toPlist(it.value(), depth + 1, error);
        if (!node) {
            return nullptr;
        }
        plist_dict_set_item(dictionary.get(), key.constData(), node.release());
    }
    return dictionary;
}

PlistPtr toPlist(const QVariant& value, int depth, QString* error)
{
    if (depth > kMaxDepth) {
        return fail(error, QStringLiteral("values nested more than %1 levels").arg(kMaxDepth));
    }
    const int typeId = value.metaType().id();
    switch (PropertyList::kindOf(value)) {
    case PropertyList::Kind::String:
        return stringNode(value.toString(), error);
    case PropertyList::Kind::Data: {
        const QByteArray bytes = value.toByteArray();
        return PlistPtr(plist_new_data(bytes.constData(), static_cast<uint64_t>(bytes.size())));
    }
    case PropertyList::Kind::Date:
        return dateNode(value.toDateTime(), error);
    case PropertyList::Kind::Boolean:
        return PlistPtr(plist_new_bool(value.toBool() ? 1 : 0));
    case PropertyList::Kind::Integer:
        if (isUnsignedInteger(typeId) &&
            value.toULongLong() > quint64(std::numeric_limits<qint64>::max())) {
            return wideUnsignedNode(value.toULongLong());
        }
        return PlistPtr(plist_new_uint(static_cast<uint64_t>(value.toLongLong())));
    case PropertyList::Kind::Real:
        return PlistPtr(plist_new_real(value.toDouble()));
    case PropertyList::Kind::Array:
        return arrayNode(value.toList(), depth, error);
    case PropertyList::Kind::Dictionary:
        if (typeId == QMetaType::QVariantHash) {
            return dictionaryNode(value.toHash(), depth, error);
        }
        return dictionaryNode(value.toMap(), depth, error);
    case PropertyList::Kind::None:
        break;
    }
    return fail(error, value.isValid()
                           ? QStringLiteral("a %1 has no property-list form")
                                 .arg(QString::fromLatin1(value.metaType().name()))
                           : QStringLiteral("an absent value has no property-list form"));
}

// ---- plist -> QVariant

QVariant fromPlist(plist_t node, int depth, QString* error);

QVariant integerFromNode(plist_t node)
{
    uint64_t raw = 0;
    plist_get_uint_val(node, &raw);
    if (raw <= uint64_t(std::numeric_limits<qint64>::max())) {
        return QVariant::fromValue(static_cast<qint64>(raw));
    }
    // Past 2^63 the bits are a negative number unless the node is wide; only comparing with a
    // node of the ordinary width tells which.
    const PlistPtr ordinary(plist_new_uint(raw));
    if (plist_compare_node_value(node, ordinary.get()) != 0) {
        return QVariant::fromValue(static_cast<qint64>(raw));
    }
    return QVariant::fromValue(quint64(raw));
}

QVariant dateFromNode(plist_t node)
{
    int32_t seconds = 0;
    int32_t microseconds = 0;
    plist_get_date_val(node, &seconds, &microseconds);
    const qint64 msecs = kMSecsFrom1970To2001 + qint64(seconds) * 1000 + microseconds / 1000;
    return QDateTime::fromMSecsSinceEpoch(msecs, QTimeZone::utc());
}

QVariant listFromNode(plist_t node, int depth, QString* error)
{
    QVariantList list;
    const uint32_t count = plist_array_get_size(node);
    list.reserve(qsizetype(count));
    for (uint32_t i = 0; i < count; ++i) {
        QVariant item = fromPlist(plist_array_get_item(node, i), depth + 1, error);
        if (!item.isValid()) {
            return {};
        }
        list.append(std::move(item));
    }
    return list;
}

QVariant mapFromNode(plist_t node, int depth, QString* error)
{
    QVariantMap map;
    plist_dict_iter iterator = nullptr;
    plist_dict_new_iter(node, &iterator);
    for (;;) {
        char* rawKey = nullptr;
        plist_t item = nullptr;
        plist_dict_next_item(node, iterator, &rawKey, &item);
        if (!item) {
            std::free(rawKey);
            break;
        }
        const QString key = QString::fromUtf8(rawKey);
        std::free(rawKey);
        QVariant value = fromPlist(item, depth + 1, error);
        if (!value.isValid()) {
            std::free(iterator);
            return {};
        }
        map.insert(key, std::move(value));
    }
    std::free(iterator);
    return map;
}

QVariant fromPlist(plist_t node, int depth, QString* error)
{
    if (depth > kMaxDepth) {
        *error = QStringLiteral("values nested more than %1 levels").arg(kMaxDepth);
        return {};
    }
    switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
        uint8_t flag = 0;
        plist_get_bool_val(node, &flag);
        return flag != 0;
    }
    case PLIST_UINT:
        return integerFromNode(node);
    case PLIST_REAL: {
        double real = 0;
        plist_get_real_val(node, &real);
        return real;
    }
    case PLIST_STRING: {
        uint64_t length = 0;
        const char* text = plist_get_string_ptr(node, &length);
        return QString::fromUtf8(text, qsizetype(length));
    }
    case PLIST_DATA: {
        uint64_t length = 0;
        const char* bytes = plist_get_data_ptr(node, &length);
        return QByteArray(bytes, qsizetype(length));
    }
    case PLIST_DATE:
        return dateFromNode(node);
    case PLIST_ARRAY:
        return listFromNode(node, depth, error);
    case PLIST_DICT:
        return mapFromNode(node, depth, error);
    case PLIST_UID:
        *error = QStringLiteral("it holds a keyed-archive reference");
        return {};
    case PLIST_KEY:
    case PLIST_NONE:
        break;
    }
    *error = QStringLiteral("it holds a value of no known kind");
    return {};
}

// ---- shape checks made before libplist sees the bytes

// Counts open <array> and <dict> elements. Text that merely looks like a tag (in a comment)
// only makes the count more cautious.
bool xmlNestsTooDeeply(const QByteArray& data)
{
    const auto startsWith = [&](qsizetype at, QByteArrayView word) {
        return at <= data.size() && QByteArrayView(data).sliced(at).startsWith(word);
    };
    int depth = 0;
    for (qsizetype at = data.indexOf('<'); at >= 0; at = data.indexOf('<', at + 1)) {
        const bool closing = startsWith(at + 1, "/");
        const qsizetype name = at + (closing ? 2 : 1);
        if (!startsWith(name, "array") && !startsWith(name, "dict")) {
            continue;
        }
        if (closing) {
            depth = std::max(0, depth - 1);
            continue;
        }
        const qsizetype end = data.indexOf('>', name);
        if (end > 0 && data.at(end - 1) == '/') {
            continue;
        }
        if (++depth > kMaxDepth) {
            return true;
        }
    }
    return false;
}

// Walks the object graph of a binary list (trailer, offset table, references of arrays, sets
// and dictionaries) without building it, so that cycles, deep nesting and shared references
// that expand beyond reason are refused before libplist recurses into them.
class BinaryShape
{
public:
    explicit BinaryShape(const QByteArray& data)
        : m_data(reinterpret_cast<const uchar*>(data.constData()))
        , m_size(quint64(data.size()))
    {}

    QString problem()
    {
        if (!readTrailer()) {
            return QStringLiteral("its trailer is damaged");
        }
        return walk();
    }

private:
    struct Frame
    {
        quint64 object;
        quint64 firstReference;
        quint64 referenceCount;
        quint64 next;
        quint64 expanded;
    };

    bool readNumber(quint64 at, quint64 width, quint64* value) const
    {
        if (width == 0 || width > 8 || at > m_size || m_size - at < width) {
            return false;
        }
        quint64 number = 0;
        for (quint64 i = 0; i < width; ++i) {
            number = (number << 8) | m_data[at + i];
        }
        *value = number;
        return true;
    }

    bool readTrailer()
    {
        constexpr quint64 kTrailerSize = 32;
        if (m_size < quint64(kBinaryMagic.size()) + kTrailerSize) {
            return false;
        }
        const quint64 trailer = m_size - kTrailerSize;
        m_offsetSize = m_data[trailer + 6];
        m_referenceSize = m_data[trailer + 7];
        return readNumber(trailer + 8, 8, &m_objectCount) &&
               readNumber(trailer + 16, 8, &m_topObject) &&
               readNumber(trailer + 24, 8, &m_offsetTable) && m_offsetSize >= 1 &&
               m_offsetSize <= 8 && m_referenceSize >= 1 && m_referenceSize <= 8 &&
               m_topObject < m_objectCount && m_objectCount <= m_size && m_offsetTable <= trailer &&
               (trailer - m_offsetTable) / m_offsetSize >= m_objectCount;
    }

    // Sets firstReference and referenceCount of a container; false for a damaged object.
    bool references(quint64 object, Frame* frame) const
    {
        quint64 offset = 0;
        if (!readNumber(m_offsetTable + object * m_offsetSize, m_offsetSize, &offset) ||
            offset >= m_size) {
            return false;
        }
        const uchar marker = m_data[offset];
        const uchar type = marker >> 4;
        frame->referenceCount = 0;
        if (type != 0xA && type != 0xB && type != 0xC && type != 0xD) {
            return true;
        }
        quint64 count = marker & 0x0F;
        quint64 start = offset + 1;
        if (count == 0x0F) {
            if (start >= m_size || (m_data[start] >> 4) != 0x1) {
                return false;
            }
            const quint64 width = quint64(1) << (m_data[start] & 0x0F);
            if (!readNumber(start + 1, width, &count)) {
                return false;
            }
            start += 1 + width;
        }
        const quint64 total = type == 0xD ? count * 2 : count;
        if (count > m_size || start > m_size || (m_size - start) / m_referenceSize < total) {
            return false;
        }
        frame->firstReference = start;
        frame->referenceCount = total;
        return true;
    }

    QString walk()
    {
        enum : uchar
        {
            kUnseen,
            kOpen,
            kDone
        };
        std::vector<uchar> state(m_objectCount, kUnseen);
        std::vector<quint64> expanded(m_objectCount, 0);
        std::vector<Frame> stack;
        const auto enter = [&](quint64 object) {
            Frame frame{object, 0, 0, 0, 1};
            if (!references(object, &frame)) {
                return false;
            }
            state[object] = kOpen;
            stack.push_back(frame);
            return true;
        };
        if (!enter(m_topObject)) {
            return QStringLiteral("an object is damaged");
        }
        while (!stack.empty()) {
            Frame& top = stack.back();
            if (top.next == top.referenceCount) {
                state[top.object] = kDone;
                expanded[top.object] = top.expanded;
                const quint64 size = top.expanded;
                stack.pop_back();
                if (!stack.empty()) {
                    stack.back().expanded =
                        std::min(stack.back().expanded + size, kMaxExpandedValues + 1);
                }
                continue;
            }
            quint64 child = 0;
            if (!readNumber(top.firstReference + top.next * m_referenceSize, m_referenceSize,
                            &child) ||
                child >= m_objectCount) {
                return QStringLiteral("a reference points outside the list");
            }
            ++top.next;
            if (state[child] == kOpen) {
                return QStringLiteral("a container holds itself");
            }
            if (state[child] == kDone) {
                top.expanded = std::min(top.expanded + expanded[child], kMaxExpandedValues + 1);
            } else if (stack.size() >= size_t(kMaxDepth)) {
                return QStringLiteral("values nested more than %1 levels").arg(kMaxDepth);
            } else if (!enter(child)) {
                return QStringLiteral("an object is damaged");
            }
            if (!stack.empty() && stack.back().expanded > kMaxExpandedValues) {
                return QStringLiteral("it expands to more than %1 values").arg(kMaxExpandedValues);
            }
        }
        return {};
    }

    const uchar* m_data;
    quint64 m_size;
    quint64 m_offsetSize = 0;
    quint64 m_referenceSize = 0;
    quint64 m_objectCount = 0;
    quint64 m_topObject = 0;
    quint64 m_offsetTable = 0;
};

QString xmlProblem(const QByteArray& data)
{
    QXmlStreamReader reader(data);
    while (!reader.atEnd()) {
        reader.readNext();
    }
    if (reader.hasError()) {
        return QStringLiteral("line %1, column %2: %3")
            .arg(reader.lineNumber())
            .arg(reader.columnNumber())
            .arg(reader.errorString());
    }
    return QStringLiteral("well-formed XML but not a property list");
}

// Parses bytes already known to be of a sane shape.
PropertyList::Parsed parseChecked(const QByteArray& data, bool binary)
{
    plist_t raw = nullptr;
    const auto length = static_cast<uint32_t>(data.size());
    if (binary) {
        plist_from_bin(data.constData(), length, &raw);
    } else {
        plist_from_xml(data.constData(), length, &raw);
    }
    const PlistPtr root(raw);
    if (!root) {
        return {{},
                binary ? QStringLiteral("not a well-formed binary property list")
                       : xmlProblem(data)};
    }
    QString error;
    QVariant value = fromPlist(root.get(), 0, &error);
    return {value, error};
}

std::optional<QVariantMap> parsedPrefix(const QString& text, qsizetype end)
{
    static const QString kClosing = QStringLiteral("\n</dict>\n</plist>\n");
    const PropertyList::Parsed parsed = parseChecked((text.left(end) + kClosing).toUtf8(), false);
    if (!parsed.isValid() || parsed.value.metaType().id() != QMetaType::QVariantMap) {
        return std::nullopt;
    }
    return parsed.value.toMap();
}
} // namespace

PropertyList::Kind PropertyList::kindOf(const QVariant& value)
{
    const int typeId = value.metaType().id();
    if (isSignedInteger(typeId) || isUnsignedInteger(typeId)) {
        return Kind::Integer;
    }
    switch (typeId) {
    case QMetaType::QString:
        return Kind::String;
    case QMetaType::QByteArray:
        return Kind::Data;
    case QMetaType::QDateTime:
        return Kind::Date;
    case QMetaType::Bool:
        return Kind::Boolean;
    case QMetaType::Double:
    case QMetaType::Float:
        return Kind::Real;
    case QMetaType::QVariantList:
    case QMetaType::QStringList:
        return Kind::Array;
    case QMetaType::QVariantMap:
    case QMetaType::QVariantHash:
        return Kind::Dictionary;
    default:
        return Kind::None;
    }
}

bool PropertyList::isPropertyList(const QVariant& value)
{
    switch (kindOf(value)) {
    case Kind::None:
        return false;
    case Kind::Array: {
        const QVariantList list = value.toList();
        return std::all_of(list.cbegin(), list.cend(), isPropertyList);
    }
    case Kind::Dictionary: {
        const QVariantMap map = value.toMap();
        return std::all_of(map.cbegin(), map.cend(), isPropertyList);
    }
    default:
        return true;
    }
}

bool PropertyList::isEqual(const QVariant& left, const QVariant& right)
{
    if (!left.isValid() || !right.isValid()) {
        return left.isValid() == right.isValid();
    }
    const Kind kind = kindOf(left);
    if (kind != kindOf(right)) {
        return false;
    }
    switch (kind) {
    case Kind::Integer: {
        const bool leftUnsigned = isUnsignedInteger(left.metaType().id());
        const bool rightUnsigned = isUnsignedInteger(right.metaType().id());
        if (leftUnsigned == rightUnsigned) {
            return leftUnsigned ? left.toULongLong() == right.toULongLong()
                                : left.toLongLong() == right.toLongLong();
        }
        const qint64 signedValue = leftUnsigned ? right.toLongLong() : left.toLongLong();
        const quint64 unsignedValue = leftUnsigned ? left.toULongLong() : right.toULongLong();
        return signedValue >= 0 && quint64(signedValue) == unsignedValue;
    }
    case Kind::Real: {
        const double a = left.toDouble();
        const double b = right.toDouble();
        return a == b || (qIsNaN(a) && qIsNaN(b));
    }
    case Kind::Array: {
        const QVariantList a = left.toList();
        const QVariantList b = right.toList();
        return a.size() == b.size() && std::equal(a.cbegin(), a.cend(), b.cbegin(), isEqual);
    }
    case Kind::Dictionary: {
        const QVariantMap a = left.toMap();
        const QVariantMap b = right.toMap();
        if (a.size() != b.size()) {
            return false;
        }
        for (auto it = a.cbegin(); it != a.cend(); ++it) {
            const auto other = b.constFind(it.key());
            if (other == b.cend() || !isEqual(it.value(), other.value())) {
                return false;
            }
        }
        return true;
    }
    case Kind::String:
        return left.toString() == right.toString();
    case Kind::Data:
        return left.toByteArray() == right.toByteArray();
    case Kind::Date:
        return left.toDateTime() == right.toDateTime();
    case Kind::Boolean:
        return left.toBool() == right.toBool();
    case Kind::None:
        break;
    }
    return false;
}

std::optional<bool> PropertyList::boolValue(const QVariant& value)
{
    switch (kindOf(value)) {
    case Kind::Boolean:
        return value.toBool();
    case Kind::Integer:
    case Kind::Real:
        return value.toDouble() != 0.0;
    case Kind::String: {
        const QString text = value.toString().trimmed().toLower();
        if (text == u"yes" || text == u"true") {
            return true;
        }
        if (text == u"no" || text == u"false") {
            return false;
        }
        const std::optional<double> number = numberInString(text);
        return number ? std::optional<bool>(*number != 0.0) : std::nullopt;
    }
    default:
        return std::nullopt;
    }
}

std::optional<qint64> PropertyList::integerValue(const QVariant& value)
{
    switch (kindOf(value)) {
    case Kind::Boolean:
        return value.toBool() ? 1 : 0;
    case Kind::Integer:
        if (isUnsignedInteger(value.metaType().id()) &&
            value.toULongLong() > quint64(std::numeric_limits<qint64>::max())) {
            return std::numeric_limits<qint64>::max();
        }
        return value.toLongLong();
    case Kind::Real: {
        const double real = value.toDouble();
        return qIsNaN(real) ? std::nullopt : std::optional<qint64>(clampedToInteger(real));
    }
    case Kind::String: {
        bool ok = false;
        const qint64 integer = value.toString().trimmed().toLongLong(&ok);
        if (ok) {
            return integer;
        }
        const std::optional<double> number = numberInString(value.toString());
        if (!number || qIsNaN(*number)) {
            return std::nullopt;
        }
        return clampedToInteger(*number);
    }
    default:
        return std::nullopt;
    }
}

std::optional<double> PropertyList::doubleValue(const QVariant& value)
{
    switch (kindOf(value)) {
    case Kind::Boolean:
        return value.toBool() ? 1.0 : 0.0;
    case Kind::Integer:
    case Kind::Real:
        return value.toDouble();
    case Kind::String:
        return numberInString(value.toString());
    default:
        return std::nullopt;
    }
}

PropertyList::Serialized PropertyList::xmlData(const QVariant& root)
{
    QString error;
    const PlistPtr node = toPlist(root, 0, &error);
    if (!node) {
        return {{}, error};
    }
    char* text = nullptr;
    uint32_t length = 0;
    plist_to_xml(node.get(), &text, &length);
    if (!text) {
        return {{}, QStringLiteral("the XML writer failed")};
    }
    QByteArray data(text, qsizetype(length));
    plist_to_xml_free(text);
    return {data, {}};
}

bool PropertyList::isBinary(const QByteArray& data)
{
    return data.startsWith(kBinaryMagic);
}

PropertyList::Parsed PropertyList::fromData(const QByteArray& data)
{
    if (data.isEmpty()) {
        return {{}, QStringLiteral("it is empty")};
    }
    if (quint64(data.size()) > std::numeric_limits<uint32_t>::max()) {
        return {{}, QStringLiteral("it is too large")};
    }
    const bool binary = isBinary(data);
    if (binary) {
        if (const QString problem = BinaryShape(data).problem(); !problem.isEmpty()) {
            return {{}, problem};
        }
    } else if (xmlNestsTooDeeply(data)) {
        return {{}, QStringLiteral("values nested more than %1 levels").arg(kMaxDepth)};
    }
    return parseChecked(data, binary);
}

// A damaged XML dictionary is read with a tolerant streaming reader that notes where each
// complete top-level value ends; the longest prefix of whole pairs that libplist accepts, closed
// with </dict></plist>, is what survives. Prefixes are tried by bisection: libplist rejects some
// values that are well-formed XML, and a prefix holding a rejected pair fails as do all longer
// ones. Binary lists are all or nothing: their offset table sits at the end.
QVariantMap PropertyList::salvagedDictionary(const QByteArray& data)
{
    if (isBinary(data) || xmlNestsTooDeeply(data)) {
        return {};
    }
    const QString text = QString::fromUtf8(data);
    QXmlStreamReader reader(text);
    QList<qsizetype> pairEnds;
    int depth = 0;
    while (!reader.atEnd()) {
        const QXmlStreamReader::TokenType token = reader.readNext();
        if (token == QXmlStreamReader::StartElement) {
            ++depth;
            if ((depth == 1 && reader.name() != u"plist") ||
                (depth == 2 && reader.name() != u"dict")) {
                return {};
            }
        } else if (token == QXmlStreamReader::EndElement) {
            if (depth == 3 && reader.name() != u"key") {
                pairEnds.append(reader.characterOffset());
            }
            --depth;
        }
    }
    QVariantMap salvaged;
    qsizetype good = 0;
    qsizetype bad = pairEnds.size() + 1;
    while (bad - good > 1) {
        const qsizetype middle = (good + bad) / 2;
        if (std::optional<QVariantMap> prefix = parsedPrefix(text, pairEnds.at(middle - 1))) {
            salvaged = std::move(*prefix);
            good = middle;
        } else {
            bad = middle;
        }
    }
    return salvaged;
}
