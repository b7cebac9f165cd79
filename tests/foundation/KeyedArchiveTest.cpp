#include "foundation/KeyedArchive.h"

#include "errors/ExceptionArchive.h"
#include "exception/KSException.h"
#include "foundation/KeyedDecoder.h"

#include <QCborArray>
#include <QCborMap>
#include <QCborValue>
#include <QDateTime>
#include <QPoint>
#include <QTimeZone>
#include <gtest/gtest.h>
#include <limits>
#include <random>

using namespace Qt::StringLiterals;

namespace {
// The archive's own tests use the exception as their example of a registered class.
[[maybe_unused]] const bool s_exceptionsArchivable =
    (ExceptionArchive::registerArchivableClasses(), true);
} // namespace

namespace {
QVariant roundTrip(const QVariant& value)
{
    return KeyedArchive::unarchiveObjectWithData(KeyedArchive::archivedData(value));
}

QVariantMap progressLikeDictionary()
{
    const QDateTime when(QDate(2026, 11, 21), QTime(23, 43, 11, 250), QTimeZone::utc());
    return {{u"name"_s, u"Capture “Photos” — 10 %"_s},
            {u"empty"_s, QString()},
            {u"blob"_s, QByteArray("\x00\x01\xff\x00", 4)},
            {u"when"_s, when},
            {u"yes"_s, true},
            {u"min"_s, std::numeric_limits<qint64>::min()},
            {u"max"_s, std::numeric_limits<qint64>::max()},
            {u"huge"_s, QVariant::fromValue(std::numeric_limits<quint64>::max())},
            {u"ratio"_s, 0.125},
            {u"null"_s, QVariant::fromValue(nullptr)},
            {u"nested"_s,
             QVariantMap{{u"list"_s, QVariantList{1, u"two"_s, QVariantList{}, QVariantMap{}}}}}};
}

QByteArray cbor(const QCborValue& value)
{
    return value.toCbor();
}
} // namespace

TEST(KeyedArchiveRoundTrip, EveryPropertyListKindComesBackEqualAndAMissingValueStaysMissing)
{
    QVariantMap original = progressLikeDictionary();
    original.insert(u"gone"_s, QVariant());
    const QVariantMap decoded = roundTrip(original).toMap();
    ASSERT_EQ(decoded.keys(), original.keys());
    for (const QString& key : original.keys()) {
        EXPECT_EQ(decoded.value(key), original.value(key)) << key.toStdString();
    }
    EXPECT_EQ(decoded.value(u"huge"_s).metaType(), QMetaType::fromType<quint64>());
    EXPECT_EQ(decoded.value(u"null"_s).metaType().id(), QMetaType::Nullptr);
    EXPECT_EQ(decoded.value(u"when"_s).toDateTime().time().msec(), 250);
    EXPECT_FALSE(decoded.value(u"gone"_s).isValid());
}

TEST(KeyedArchiveRoundTrip, ReadsBothStandardDateForms)
{
    const QDateTime expected = QDateTime::fromSecsSinceEpoch(1'800'000'000, QTimeZone::utc());
    const QByteArray numeric = cbor(QCborValue(QCborKnownTags::UnixTime_t, 1'800'000'000));
    const QByteArray text =
        cbor(QCborValue(QCborKnownTags::DateTimeString, u"2027-01-15T08:00:00Z"_s));
    EXPECT_EQ(KeyedArchive::unarchiveObjectWithData(numeric).toDateTime(), expected);
    EXPECT_EQ(KeyedArchive::unarchiveObjectWithData(text).toDateTime(), expected);
}

TEST(KeyedArchiveRoundTrip, AnObjectIsTag27AroundItsClassNameAndFields)
{
    const QByteArray data = KeyedArchive::archivedData(
        QVariant::fromValue(KSException::exceptionWithName(u"IO"_s, u"disk gone"_s)));
    const QCborValue root = QCborValue::fromCbor(data);
    ASSERT_TRUE(root.isTag());
    EXPECT_EQ(root.tag(), QCborTag(27));
    const QCborArray pair = root.taggedValue().toArray();
    ASSERT_EQ(pair.size(), 2);
    EXPECT_EQ(pair.at(0).toString(), u"KSException"_s);
    EXPECT_EQ(pair.at(1).toMap().value(u"reason"_s).toString(), u"disk gone"_s);
}

// Classes and property list kinds decode only when allowed, and classes only when known here.
TEST(KeyedArchiveSecureDecoding, RefusesAClassOrKindThatWasNotAllowedOrAClassUnknownHere)
{
    const QByteArray data = KeyedArchive::archivedData(
        QVariantList{QVariant::fromValue(KSException::exceptionWithName(u"IO"_s, u"x"_s))});
    try {
        KeyedArchive::unarchivedObject(data, KeyedArchive::propertyListClasses());
        FAIL() << "a disallowed class was decoded";
    } catch (const KSException& refusal) {
        EXPECT_EQ(refusal.details().value(u"Class"_s).toString(), u"KSException"_s);
    }
    auto allowed = KeyedArchive::propertyListClasses();
    allowed << u"KSException"_s;
    EXPECT_EQ(KeyedArchive::unarchivedObject(data, allowed).toList().size(), 1);

    const QByteArray mixed = KeyedArchive::archivedData(QVariantList{u"a"_s, 1});
    EXPECT_THROW(
        KeyedArchive::unarchivedObject(mixed, {KeyedArchive::kArray, KeyedArchive::kString}),
        KSException);
    EXPECT_NO_THROW(KeyedArchive::unarchivedObject(
        mixed, {KeyedArchive::kArray, KeyedArchive::kString, KeyedArchive::kNumber}));

    try {
        KeyedArchive::unarchiveObjectWithData(
            cbor(QCborValue(QCborTag(27), QCborArray{u"NoSuchClass"_s, QCborMap{}})));
        FAIL() << "an unknown class was decoded";
    } catch (const KSException& failure) {
        EXPECT_TRUE(failure.reason().contains(u"not known"_s));
    }
}

// Deep nesting raises too, instead of exhausting the stack.
TEST(KeyedArchiveBadInput, EmptyTruncatedTrailingAndDeeplyNestedBytesRaise)
{
    EXPECT_THROW(KeyedArchive::unarchiveObjectWithData({}), KSException);
    const QByteArray whole = KeyedArchive::archivedData(progressLikeDictionary());
    for (qsizetype length = 1; length < whole.size(); ++length) {
        EXPECT_THROW(KeyedArchive::unarchiveObjectWithData(whole.left(length)), KSException)
            << "prefix of " << length << " bytes";
    }
    EXPECT_THROW(KeyedArchive::unarchiveObjectWithData(whole + '\x01'), KSException);
    QByteArray nested(5000, '\x81'); // 5000 nested one-element arrays...
    nested.append('\x01');           // ...around the integer 1
    EXPECT_THROW(KeyedArchive::unarchiveObjectWithData(nested), KSException);
}

TEST(KeyedArchiveBadInput, MalformedStructuresAndMistypedFieldsRaise)
{
    const QList<QCborValue> malformed{
        QCborMap{{1, u"integer key"_s}},
        QCborValue(QCborTag(27), u"not a pair"_s),
        QCborValue(QCborTag(27), QCborArray{u"KSException"_s}),
        QCborValue(QCborTag(27), QCborArray{7, QCborMap{}}),
        // A typed field decode holds to its class.
        QCborValue(QCborTag(27),
                   QCborArray{u"KSException"_s, QCborMap{{u"name"_s, 42}, {u"reason"_s, u"r"_s}}}),
        QCborValue(QCborTag(99), 1),
        QCborValue(QCborSimpleType(16)),
        QCborValue(QCborTag(2), QByteArray(9, '\x01')),
    };
    for (const QCborValue& value : malformed) {
        EXPECT_THROW(KeyedArchive::unarchiveObjectWithData(cbor(value)), KSException)
            << value.toDiagnosticNotation().toStdString();
    }
}

TEST(KeyedArchiveBadInput, RandomBytesNeverCrash)
{
    std::mt19937 random(20261121);
    std::uniform_int_distribution<int> byte(0, 255);
    int raised = 0;
    for (int round = 0; round < 2000; ++round) {
        QByteArray data(1 + round % 40, '\0');
        for (char& c : data) {
            c = char(byte(random));
        }
        try {
            KeyedArchive::unarchiveObjectWithData(data);
        } catch (const KSException&) {
            ++raised;
        }
    }
    EXPECT_GT(raised, 1000); // most random bytes are not an archive, and say so
}

TEST(KeyedArchiveEncoding, AValueOfNoArchivableClassIsAProgrammingError)
{
    EXPECT_THROW(KeyedArchive::archivedData(QVariant::fromValue(QPoint(1, 2))), std::logic_error);
    EXPECT_THROW(KeyedArchive::archivedData(QVariantMap{{u"deep"_s, QVariantList{QPoint(1, 2)}}}),
                 std::logic_error);
    EXPECT_FALSE(KeyedArchive::isArchivable(QVariant::fromValue(QPoint(1, 2))));
}
