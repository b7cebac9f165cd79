#include "core/PropertyList.h"

#include <QDateTime>
#include <QPoint>
#include <QTimeZone>
#include <gtest/gtest.h>
#include <limits>
#include <plist/plist.h>
#include <random>

namespace {
const QDateTime kPiDay(QDate(2026, 3, 14), QTime(9, 26, 53), QTimeZone::utc());

QVariantMap everyKind()
{
    return {{QStringLiteral("text"), QStringLiteral("Capture “Photos” <&> 10 % ü😀")},
            {QStringLiteral("empty text"), QString()},
            {QStringLiteral("data"), QByteArray("\x00\x01\xff\x00", 4)},
            {QStringLiteral("date"), kPiDay},
            {QStringLiteral("yes"), true},
            {QStringLiteral("no"), false},
            {QStringLiteral("negative"), QVariant::fromValue(qint64(-5))},
            {QStringLiteral("min"), std::numeric_limits<qint64>::min()},
            {QStringLiteral("max"), std::numeric_limits<qint64>::max()},
            {QStringLiteral("huge"), QVariant::fromValue(std::numeric_limits<quint64>::max())},
            {QStringLiteral("tenth"), 0.1},
            {QStringLiteral("whole real"), 5.0},
            {QStringLiteral("tiny"), 4.9e-324},
            {QStringLiteral("empty list"), QVariantList{}},
            {QStringLiteral("empty map"), QVariantMap{}},
            {QStringLiteral("nested"),
             QVariantMap{{QStringLiteral("list"),
                          QVariantList{QVariant::fromValue(qint64(1)), QStringLiteral("two"),
                                       QVariantList{kPiDay}, QVariantMap{{QString(), true}}}}}}};
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

// A binary list laid out by hand: the objects, one offset table of 4-byte entries, the trailer.
QByteArray handMadeBinary(const QList<QByteArray>& objects, quint8 referenceSize)
{
    QByteArray data("bplist00");
    QList<quint32> offsets;
    for (const QByteArray& object : objects) {
        offsets.append(quint32(data.size()));
        data.append(object);
    }
    const auto bigEndian = [&data](quint64 value, int width) {
        for (int shift = (width - 1) * 8; shift >= 0; shift -= 8) {
            data.append(char((value >> shift) & 0xFF));
        }
    };
    const quint64 table = quint64(data.size());
    for (quint32 offset : offsets) {
        bigEndian(offset, 4);
    }
    data.append(QByteArray(6, '\0'));
    data.append(char(4));
    data.append(char(referenceSize));
    bigEndian(quint64(objects.size()), 8);
    bigEndian(0, 8);
    bigEndian(table, 8);
    return data;
}

QByteArray reference(quint64 index, int width)
{
    QByteArray bytes;
    for (int shift = (width - 1) * 8; shift >= 0; shift -= 8) {
        bytes.append(char((index >> shift) & 0xFF));
    }
    return bytes;
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
    ASSERT_EQ(decoded.keys(), original.keys());
    for (const QString& key : original.keys()) {
        EXPECT_TRUE(PropertyList::isEqual(decoded.value(key), original.value(key)))
            << key.toStdString() << ": " << decoded.value(key).toString().toStdString();
    }
    EXPECT_EQ(decoded.value(QStringLiteral("huge")).metaType(), QMetaType::fromType<quint64>());
    EXPECT_EQ(decoded.value(QStringLiteral("negative")).metaType(), QMetaType::fromType<qint64>());
    EXPECT_EQ(decoded.value(QStringLiteral("whole real")).metaType(),
              QMetaType::fromType<double>());
    EXPECT_EQ(decoded.value(QStringLiteral("yes")).metaType(), QMetaType::fromType<bool>());
    EXPECT_EQ(decoded.value(QStringLiteral("date")).toDateTime().offsetFromUtc(), 0);
}

TEST(PropertyListXml, ValuesWithoutAPropertyListFormAreRefused)
{
    for (const QVariant& value :
         {QVariant::fromValue(nullptr), QVariant(QPoint(1, 2)), QVariant(),
          QVariant(QVariantList{1, QVariant::fromValue(nullptr)}),
          QVariant(QStringLiteral("nul\u0000inside")),
          QVariant(QDateTime(QDate(2200, 1, 1), QTime(0, 0), QTimeZone::utc()))}) {
        const PropertyList::Serialized xml = PropertyList::xmlData(value);
        EXPECT_FALSE(xml.isValid()) << value.typeName();
        EXPECT_TRUE(xml.data.isEmpty());
    }
}

TEST(PropertyListBinary, ABinaryListWrittenByLibplistIsRead)
{
    Plist root(plist_new_dict());
    plist_dict_set_item(root.get(), "text", plist_new_string("héllo"));
    plist_dict_set_item(root.get(), "negative", plist_new_uint(uint64_t(-42)));
    plist_dict_set_item(root.get(), "real", plist_new_real(0.96));
    plist_dict_set_item(root.get(), "flag", plist_new_bool(1));
    // 2026-03-14 09:26:53.250 UTC in seconds since 2001.
    plist_dict_set_item(root.get(), "date", plist_new_date(795'173'213, 250'000));
    plist_dict_set_item(root.get(), "data", plist_new_data("\x00\x7f", 2));
    plist_t list = plist_new_array();
    plist_array_append_item(list, plist_new_uint(7));
    plist_t inner = plist_new_dict();
    plist_dict_set_item(inner, "deep", plist_new_bool(0));
    plist_array_append_item(list, inner);
    plist_dict_set_item(root.get(), "list", list);

    const QByteArray binary = toBinary(root.get());
    ASSERT_TRUE(PropertyList::isBinary(binary));
    const PropertyList::Parsed parsed = PropertyList::fromData(binary);
    ASSERT_TRUE(parsed.isValid()) << parsed.error.toStdString();
    const QVariantMap map = parsed.value.toMap();
    EXPECT_EQ(map.value(QStringLiteral("text")).toString(), QStringLiteral("héllo"));
    EXPECT_TRUE(PropertyList::isEqual(map.value(QStringLiteral("negative")),
                                      QVariant::fromValue(qint64(-42))));
    EXPECT_TRUE(PropertyList::isEqual(map.value(QStringLiteral("real")), 0.96));
    EXPECT_TRUE(PropertyList::isEqual(map.value(QStringLiteral("flag")), true));
    EXPECT_EQ(map.value(QStringLiteral("date")).toDateTime(), kPiDay.addMSecs(250));
    EXPECT_EQ(map.value(QStringLiteral("data")).toByteArray(), QByteArray("\x00\x7f", 2));
    const QVariantList decodedList = map.value(QStringLiteral("list")).toList();
    ASSERT_EQ(decodedList.size(), 2);
    EXPECT_TRUE(PropertyList::isEqual(decodedList.at(0), QVariant::fromValue(qint64(7))));
    EXPECT_TRUE(
        PropertyList::isEqual(decodedList.at(1), QVariantMap{{QStringLiteral("deep"), false}}));
}

TEST(PropertyListMalformed, DamagedInputGivesAnErrorNeverAValue)
{
    Plist root(plist_new_dict());
    plist_dict_set_item(root.get(), "a", plist_new_string("value"));
    const QByteArray binary = toBinary(root.get());
    QList<QByteArray> inputs{QByteArray(), QByteArray("garbage"), QByteArray("bplist00"),
                             QByteArray("bplist00") + QByteArray(40, '\xff'),
                             QByteArray("<plist><dict><key>a</key>")};
    for (qsizetype length = 1; length < binary.size(); ++length) {
        inputs.append(binary.left(length));
    }
    for (const QByteArray& input : inputs) {
        const PropertyList::Parsed parsed = PropertyList::fromData(input);
        EXPECT_FALSE(parsed.isValid()) << input.toHex().toStdString();
        EXPECT_FALSE(parsed.value.isValid());
    }
}

TEST(PropertyListMalformed, AnXmlErrorIsPlacedByLineAndColumn)
{
    const PropertyList::Parsed parsed =
        PropertyList::fromData("<?xml version=\"1.0\"?>\n<plist>\n<dict><key>a</oops>");
    ASSERT_FALSE(parsed.isValid());
    EXPECT_TRUE(parsed.error.startsWith(QStringLiteral("line 3, column")))
        << parsed.error.toStdString();
}

TEST(PropertyListMalformed, DeepNestingIsRefusedInBothForms)
{
    const int levels = 200'000;
    const QByteArray xml = "<plist version=\"1.0\">" + QByteArray("<array>").repeated(levels) +
                           QByteArray("</array>").repeated(levels) + "</plist>";
    EXPECT_FALSE(PropertyList::fromData(xml).isValid());
    EXPECT_TRUE(PropertyList::salvagedDictionary(xml).isEmpty());

    QList<QByteArray> objects;
    for (int i = 0; i + 1 < levels; ++i) {
        objects.append(QByteArray(1, char(0xA1)) + reference(quint64(i + 1), 4));
    }
    objects.append(QByteArray(1, char(0xA0)));
    const PropertyList::Parsed parsed = PropertyList::fromData(handMadeBinary(objects, 4));
    EXPECT_FALSE(parsed.isValid());
    EXPECT_TRUE(parsed.error.contains(QStringLiteral("nested"))) << parsed.error.toStdString();
}

TEST(PropertyListMalformed, ABinaryContainerHoldingItselfIsRefused)
{
    const QByteArray cyclic = handMadeBinary({QByteArray(1, char(0xA1)) + reference(0, 1)}, 1);
    const PropertyList::Parsed parsed = PropertyList::fromData(cyclic);
    EXPECT_FALSE(parsed.isValid());
    EXPECT_TRUE(parsed.error.contains(QStringLiteral("itself"))) << parsed.error.toStdString();
}

TEST(PropertyListMalformed, SharedReferencesThatExpandBeyondReasonAreRefused)
{
    // Each array holds the next one twice: 2^40 values from 41 objects.
    QList<QByteArray> objects;
    for (int i = 0; i < 40; ++i) {
        objects.append(QByteArray(1, char(0xA2)) + reference(quint64(i + 1), 1) +
                       reference(quint64(i + 1), 1));
    }
    objects.append(QByteArray(1, char(0x08)));
    const PropertyList::Parsed parsed = PropertyList::fromData(handMadeBinary(objects, 1));
    EXPECT_FALSE(parsed.isValid());
    EXPECT_TRUE(parsed.error.contains(QStringLiteral("expands"))) << parsed.error.toStdString();

    // A modest amount of sharing is an ordinary list.
    objects = {QByteArray(1, char(0xA2)) + reference(1, 1) + reference(1, 1),
               QByteArray(1, char(0x09))};
    const PropertyList::Parsed shared = PropertyList::fromData(handMadeBinary(objects, 1));
    ASSERT_TRUE(shared.isValid()) << shared.error.toStdString();
    EXPECT_TRUE(PropertyList::isEqual(shared.value, QVariantList{true, true}));
}

TEST(PropertyListMalformed, RandomlyDamagedFilesNeverCrash)
{
    const QByteArray xml = PropertyList::xmlData(everyKind()).data;
    Plist root(plist_new_dict());
    plist_dict_set_item(root.get(), "a", plist_new_string("value"));
    plist_t list = plist_new_array();
    for (int i = 0; i < 20; ++i) {
        plist_array_append_item(list, plist_new_uint(uint64_t(i) * 1000));
    }
    plist_dict_set_item(root.get(), "list", list);
    const QByteArray binary = toBinary(root.get());
    std::mt19937 random(20260314);
    int parsedCount = 0;
    for (int round = 0; round < 3000; ++round) {
        QByteArray damaged = round % 2 == 0 ? xml : binary;
        const int flips = 1 + int(random() % 4);
        for (int i = 0; i < flips; ++i) {
            damaged[qsizetype(random() % quint32(damaged.size()))] = char(random() & 0xFF);
        }
        const PropertyList::Parsed parsed = PropertyList::fromData(damaged);
        EXPECT_EQ(parsed.isValid(), parsed.value.isValid());
        parsedCount += parsed.isValid() ? 1 : 0;
        PropertyList::salvagedDictionary(damaged);
    }
    // Damage inside a string's text still parses; the point is that nothing crashed.
    EXPECT_GT(parsedCount, 0);
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

TEST(PropertyListSalvage, APairTheParserRejectsEndsTheReadablePart)
{
    const QByteArray xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n"
                           "<dict>\n<key>a</key><integer>1</integer>\n"
                           "<key>b</key><true/>\n<key>c</key><unknown>3</unknown>\n"
                           "<key>d</key><string>after</string>\n</dict>\n</plist>\n";
    ASSERT_FALSE(PropertyList::fromData(xml).isValid());
    const QVariantMap salvaged = PropertyList::salvagedDictionary(xml);
    EXPECT_TRUE(PropertyList::isEqual(
        salvaged, QVariantMap{{QStringLiteral("a"), 1}, {QStringLiteral("b"), true}}));
}
