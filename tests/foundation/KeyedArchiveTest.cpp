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
    return {{QStringLiteral("name"), QStringLiteral("Capture “Photos” — 10 %")},
            {QStringLiteral("empty"), QString()},
            {QStringLiteral("blob"), QByteArray("\x00\x01\xff\x00", 4)},
            {QStringLiteral("when"), when},
            {QStringLiteral("yes"), true},
            {QStringLiteral("min"), std::numeric_limits<qint64>::min()},
            {QStringLiteral("max"), std::numeric_limits<qint64>::max()},
            {QStringLiteral("huge"), QVariant::fromValue(std::numeric_limits<quint64>::max())},
            {QStringLiteral("ratio"), 0.125},
            {QStringLiteral("null"), QVariant::fromValue(nullptr)},
            {QStringLiteral("nested"),
             QVariantMap{{QStringLiteral("list"),
                          QVariantList{1, QStringLiteral("two"), QVariantList{}, QVariantMap{}}}}}};
}

QByteArray cbor(const QCborValue& value)
{
    return value.toCbor();
}
} // namespace

TEST(KeyedArchiveRoundTrip, EveryPropertyListKindComesBackEqual)
{
    const QVariantMap original = progressLikeDictionary();
    const QVariantMap decoded = roundTrip(original).toMap();
    ASSERT_EQ(decoded.keys(), original.keys());
    for (const QString& key : original.keys()) {
        EXPECT_EQ(decoded.value(key), original.value(key)) << key.toStdString();
    }
    EXPECT_EQ(decoded.value(QStringLiteral("huge")).metaType(), QMetaType::fromType<quint64>());
    EXPECT_EQ(decoded.value(QStringLiteral("null")).metaType().id(), QMetaType::Nullptr);
    EXPECT_EQ(decoded.value(QStringLiteral("when")).toDateTime().time().msec(), 250);
}

TEST(KeyedArchiveRoundTrip, AMissingValueStaysMissing)
{
    const QVariantMap decoded =
        roundTrip(QVariantMap{{QStringLiteral("gone"), QVariant()}}).toMap();
    ASSERT_TRUE(decoded.contains(QStringLiteral("gone")));
    EXPECT_FALSE(decoded.value(QStringLiteral("gone")).isValid());
}

TEST(KeyedArchiveRoundTrip, ReadsBothStandardDateForms)
{
    const QDateTime expected = QDateTime::fromSecsSinceEpoch(1'800'000'000, QTimeZone::utc());
    const QByteArray numeric = cbor(QCborValue(QCborKnownTags::UnixTime_t, 1'800'000'000));
    const QByteArray text =
        cbor(QCborValue(QCborKnownTags::DateTimeString, QStringLiteral("2027-01-15T08:00:00Z")));
    EXPECT_EQ(KeyedArchive::unarchiveObjectWithData(numeric).toDateTime(), expected);
    EXPECT_EQ(KeyedArchive::unarchiveObjectWithData(text).toDateTime(), expected);
}

TEST(KeyedArchiveRoundTrip, AnObjectIsTag27AroundItsClassNameAndFields)
{
    const QByteArray data = KeyedArchive::archivedData(QVariant::fromValue(
        KSException::exceptionWithName(QStringLiteral("IO"), QStringLiteral("disk gone"))));
    const QCborValue root = QCborValue::fromCbor(data);
    ASSERT_TRUE(root.isTag());
    EXPECT_EQ(root.tag(), QCborTag(27));
    const QCborArray pair = root.taggedValue().toArray();
    ASSERT_EQ(pair.size(), 2);
    EXPECT_EQ(pair.at(0).toString(), QStringLiteral("KSException"));
    EXPECT_EQ(pair.at(1).toMap().value(QStringLiteral("reason")).toString(),
              QStringLiteral("disk gone"));
}

TEST(KeyedArchiveSecureDecoding, RefusesAClassThatWasNotAllowed)
{
    const QByteArray data = KeyedArchive::archivedData(QVariantList{QVariant::fromValue(
        KSException::exceptionWithName(QStringLiteral("IO"), QStringLiteral("x")))});
    try {
        KeyedArchive::unarchivedObject(data, KeyedArchive::propertyListClasses());
        FAIL() << "a disallowed class was decoded";
    } catch (const KSException& refusal) {
        EXPECT_EQ(refusal.details().value(QStringLiteral("Class")).toString(),
                  QStringLiteral("KSException"));
    }
    auto allowed = KeyedArchive::propertyListClasses();
    allowed << QStringLiteral("KSException");
    EXPECT_EQ(KeyedArchive::unarchivedObject(data, allowed).toList().size(), 1);
}

TEST(KeyedArchiveSecureDecoding, RefusesAPropertyListKindOutsideTheAllowedSet)
{
    const QByteArray data = KeyedArchive::archivedData(QVariantList{QStringLiteral("a"), 1});
    EXPECT_THROW(
        KeyedArchive::unarchivedObject(data, {KeyedArchive::kArray, KeyedArchive::kString}),
        KSException);
    EXPECT_NO_THROW(KeyedArchive::unarchivedObject(
        data, {KeyedArchive::kArray, KeyedArchive::kString, KeyedArchive::kNumber}));
}

TEST(KeyedArchiveSecureDecoding, AClassUnknownToTheProcessIsNotFound)
{
    const QByteArray data =
        cbor(QCborValue(QCborTag(27), QCborArray{QStringLiteral("NoSuchClass"), QCborMap{}}));
    try {
        KeyedArchive::unarchiveObjectWithData(data);
        FAIL() << "an unknown class was decoded";
    } catch (const KSException& failure) {
        EXPECT_TRUE(failure.reason().contains(QStringLiteral("not known")));
    }
}

TEST(KeyedArchiveSecureDecoding, TypedFieldDecodesHoldToTheirClass)
{
    const QByteArray data = cbor(QCborValue(
        QCborTag(27), QCborArray{QStringLiteral("KSException"),
                                 QCborMap{{QStringLiteral("name"), 42},
                                          {QStringLiteral("reason"), QStringLiteral("r")}}}));
    EXPECT_THROW(KeyedArchive::unarchiveObjectWithData(data), KSException);
}

TEST(KeyedArchiveBadInput, EmptyTruncatedAndTrailingBytesRaise)
{
    EXPECT_THROW(KeyedArchive::unarchiveObjectWithData({}), KSException);
    const QByteArray whole = KeyedArchive::archivedData(progressLikeDictionary());
    for (qsizetype length = 1; length < whole.size(); ++length) {
        EXPECT_THROW(KeyedArchive::unarchiveObjectWithData(whole.left(length)), KSException)
            << "prefix of " << length << " bytes";
    }
    EXPECT_THROW(KeyedArchive::unarchiveObjectWithData(whole + '\x01'), KSException);
}

TEST(KeyedArchiveBadInput, MalformedStructuresRaise)
{
    const QList<QCborValue> malformed{
        QCborMap{{1, QStringLiteral("integer key")}},
        QCborValue(QCborTag(27), QStringLiteral("not a pair")),
        QCborValue(QCborTag(27), QCborArray{QStringLiteral("KSException")}),
        QCborValue(QCborTag(27), QCborArray{7, QCborMap{}}),
        QCborValue(QCborTag(99), 1),
        QCborValue(QCborSimpleType(16)),
        QCborValue(QCborTag(2), QByteArray(9, '\x01')),
    };
    for (const QCborValue& value : malformed) {
        EXPECT_THROW(KeyedArchive::unarchiveObjectWithData(cbor(value)), KSException)
            << value.toDiagnosticNotation().toStdString();
    }
}

TEST(KeyedArchiveBadInput, DeepNestingRaisesInsteadOfExhaustingTheStack)
{
    QByteArray data(5000, '\x81'); // 5000 nested one-element arrays...
    data.append('\x01');           // ...around the integer 1
    EXPECT_THROW(KeyedArchive::unarchiveObjectWithData(data), KSException);
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
    EXPECT_THROW(KeyedArchive::archivedData(
                     QVariantMap{{QStringLiteral("deep"), QVariantList{QPoint(1, 2)}}}),
                 std::logic_error);
    EXPECT_FALSE(KeyedArchive::isArchivable(QVariant::fromValue(QPoint(1, 2))));
}
