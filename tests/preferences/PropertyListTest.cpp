#include "preferences/PropertyList.h"

#include <QDateTime>
#include <QTimeZone>
#include <gtest/gtest.h>
#include <limits>
#include <plist/plist.h>
#include <utility>

using namespace Qt::StringLiterals;

namespace {
const QDateTime kPiDay(QDate(2026, 3, 14), QTime(9, 26, 53), QTimeZone::utc());

QVariantMap everyKind()
{
    return {{u"text"_s, u"Capture “Photos” <&> 10 % ü😀"_s},
            {u"data"_s, QByteArray("\x00\x01\xff\x00", 4)},
            {u"date"_s, kPiDay},
            {u"yes"_s, true},
            {u"negative"_s, QVariant::fromValue(qint64(-5))},
            {u"huge"_s, QVariant::fromValue(std::numeric_limits<quint64>::max())},
            {u"whole real"_s, 5.0},
            {u"empty map"_s, QVariantMap{}},
            {u"nested"_s, QVariantMap{{u"list"_s, QVariantList{QVariant::fromValue(qint64(1)),
                                                               u"two"_s, QVariantList{kPiDay},
                                                               QVariantMap{{QString(), true}}}}}}};
}

struct PlistFree
{
    void operator()(void* node) const { plist_free(static_cast<plist_t>(node)); }
};
using Plist = std::unique_ptr<void, PlistFree>;

QByteArray toBinary(plist_t root)
{
    char* bytes = nullptr;
    uint32_t length = 0;
    plist_to_bin(root, &bytes, &length);
    QByteArray data(bytes, qsizetype(length));
    plist_to_bin_free(bytes);
    return data;
}

QByteArray bigEndian(quint64 value, int width)
{
    QByteArray bytes;
    for (int shift = (width - 1) * 8; shift >= 0; shift -= 8) {
        bytes.append(char((value >> shift) & 0xFF));
    }
    return bytes;
}

// A binary list laid out by hand: the objects, one offset table of 4-byte entries, the trailer.
QByteArray handMadeBinary(const QList<QByteArray>& objects, quint8 referenceSize)
{
    QByteArray data("bplist00");
    QList<quint32> offsets;
    for (const QByteArray& object : objects) {
        offsets.append(quint32(data.size()));
        data.append(object);
    }
    const quint64 table = quint64(data.size());
    for (quint32 offset : offsets) {
        data.append(bigEndian(offset, 4));
    }
    data.append(QByteArray(6, '\0') + char(4) + char(referenceSize));
    data.append(bigEndian(quint64(objects.size()), 8));
    data.append(bigEndian(0, 8));
    data.append(bigEndian(table, 8));
    return data;
}
} // namespace

TEST(PropertyListXml, EveryKindComesBackEqualAndOfItsKind)
{
    const QVariantMap original = everyKind();
    const PropertyList::Serialized xml = PropertyList::xmlData(original);
    ASSERT_TRUE(xml.isValid()) << xml.error.toStdString();
    EXPECT_TRUE(xml.data.startsWith("<?xml"));
    const PropertyList::Parsed parsed = PropertyList::fromData(xml.data);
    ASSERT_TRUE(parsed.isValid()) << parsed.error.toStdString();
    const QVariantMap decoded = parsed.value.toMap();
    EXPECT_TRUE(PropertyList::isEqual(decoded, original)) << xml.data.toStdString();
    EXPECT_EQ(decoded.value(u"huge"_s).metaType(), QMetaType::fromType<quint64>());
    EXPECT_EQ(decoded.value(u"negative"_s).metaType(), QMetaType::fromType<qint64>());
    EXPECT_EQ(decoded.value(u"whole real"_s).metaType(), QMetaType::fromType<double>());
    EXPECT_EQ(decoded.value(u"date"_s).toDateTime().offsetFromUtc(), 0);
}

TEST(PropertyListBinary, ABinaryListWrittenByLibplistIsRead)
{
    Plist root(plist_new_dict());
    plist_dict_set_item(root.get(), "negative", plist_new_uint(uint64_t(-42)));
    // 2026-03-14 09:26:53.250 UTC in seconds since 2001.
    plist_dict_set_item(root.get(), "date", plist_new_date(795'173'213, 250'000));
    plist_t list = plist_new_array();
    plist_array_append_item(list, plist_new_string("héllo"));
    plist_t inner = plist_new_dict();
    plist_dict_set_item(inner, "deep", plist_new_data("\x00\x7f", 2));
    plist_array_append_item(list, inner);
    plist_dict_set_item(root.get(), "list", list);

    const QByteArray binary = toBinary(root.get());
    ASSERT_TRUE(PropertyList::isBinary(binary));
    const PropertyList::Parsed parsed = PropertyList::fromData(binary);
    ASSERT_TRUE(parsed.isValid()) << parsed.error.toStdString();
    const QVariantMap expected{
        {u"negative"_s, QVariant::fromValue(qint64(-42))},
        {u"date"_s, kPiDay.addMSecs(250)},
        {u"list"_s, QVariantList{u"héllo"_s, QVariantMap{{u"deep"_s, QByteArray("\x00\x7f", 2)}}}}};
    EXPECT_TRUE(PropertyList::isEqual(parsed.value, expected));
}

TEST(PropertyListMalformed, DamagedInputGivesAnErrorNeverAValue)
{
    Plist root(plist_new_dict());
    plist_dict_set_item(root.get(), "a", plist_new_string("value"));
    const QByteArray binary = toBinary(root.get());
    const int levels = 200'000;
    QList<QByteArray> nested;
    for (int i = 0; i + 1 < levels; ++i) {
        nested.append(QByteArray(1, char(0xA1)) + bigEndian(quint64(i + 1), 4));
    }
    nested.append(QByteArray(1, char(0xA0)));
    // Each array holds the next one twice: 2^40 values from 41 objects.
    QList<QByteArray> expanding;
    for (int i = 0; i < 40; ++i) {
        expanding.append(QByteArray(1, char(0xA2)) + bigEndian(quint64(i + 1), 1) +
                         bigEndian(quint64(i + 1), 1));
    }
    expanding.append(QByteArray(1, char(0x08)));

    QList<std::pair<QByteArray, QString>> inputs{
        {QByteArray(), QString()},
        {QByteArray("garbage"), QString()},
        {QByteArray("bplist00"), QString()},
        {QByteArray("bplist00") + QByteArray(40, '\xff'), QString()},
        {QByteArray("<?xml version=\"1.0\"?>\n<plist>\n<dict><key>a</oops>"), u"line 3, column"_s},
        {"<plist version=\"1.0\">" + QByteArray("<array>").repeated(levels) +
             QByteArray("</array>").repeated(levels) + "</plist>",
         QString()},
        {handMadeBinary(nested, 4), u"nested"_s},
        {handMadeBinary({QByteArray(1, char(0xA1)) + bigEndian(0, 1)}, 1), u"itself"_s},
        {handMadeBinary(expanding, 1), u"expands"_s}};
    for (qsizetype length = 1; length < binary.size(); ++length) {
        inputs.append({binary.left(length), QString()});
    }
    for (const auto& [input, error] : inputs) {
        const PropertyList::Parsed parsed = PropertyList::fromData(input);
        EXPECT_FALSE(parsed.isValid()) << input.left(60).toHex().toStdString();
        EXPECT_FALSE(parsed.value.isValid());
        EXPECT_TRUE(parsed.error.contains(error)) << parsed.error.toStdString();
    }
    EXPECT_TRUE(PropertyList::salvagedDictionary(inputs.at(5).first).isEmpty());

    // A modest amount of sharing is an ordinary list.
    const PropertyList::Parsed shared = PropertyList::fromData(handMadeBinary(
        {QByteArray(1, char(0xA2)) + bigEndian(1, 1) + bigEndian(1, 1), QByteArray(1, char(0x09))},
        1));
    ASSERT_TRUE(shared.isValid()) << shared.error.toStdString();
    EXPECT_TRUE(PropertyList::isEqual(shared.value, QVariantList{true, true}));
}

TEST(PropertyListSalvage, EveryTruncationKeepsOnlyWholePairsWithTheirValues)
{
    const QVariantMap original = everyKind();
    const QByteArray xml = PropertyList::xmlData(original).data;
    qsizetype largest = 0;
    for (qsizetype length = 0; length < xml.size(); ++length) {
        const QVariantMap salvaged = PropertyList::salvagedDictionary(xml.left(length));
        for (auto it = salvaged.cbegin(); it != salvaged.cend(); ++it) {
            ASSERT_TRUE(original.contains(it.key())) << length;
            ASSERT_TRUE(PropertyList::isEqual(it.value(), original.value(it.key())))
                << length << " " << it.key().toStdString();
        }
        ASSERT_GE(salvaged.size(), largest) << "a longer prefix lost pairs at " << length;
        largest = salvaged.size();
    }
    EXPECT_EQ(largest, original.size());
}
