#include "messaging/SerializableDictionaryAdditions.h"

#include "exception/KSException.h"
#include "foundation/KeyedArchive.h"
#include "support/RecordingLogSink.h"

#include <QDateTime>
#include <QPoint>
#include <QUrl>
#include <gtest/gtest.h>

using Additions = SerializableDictionaryAdditions;

TEST(SerializableDictionaryEncoding, PlainValuesStayAndObjectsAndDataAreArchivedAtEveryDepth)
{
    const QByteArray blob("\x00\x01 plain blob \xff", 15);
    const auto failure = KSException::exceptionWithName(QStringLiteral("IO"), QStringLiteral("r"));
    const QDateTime now = QDateTime::currentDateTimeUtc();
    const QVariantMap original{
        {QStringLiteral("text"), QStringLiteral("t")},
        {QStringLiteral("when"), now},
        {QStringLiteral("count"), 12},
        {QStringLiteral("blob"), blob},
        {QStringLiteral("list"), QVariantList{QVariant::fromValue(failure), 2}},
        {QStringLiteral("inner"),
         QVariantMap{{QStringLiteral("e"), QVariant::fromValue(failure)}}}};
    const QVariantMap encoded = Additions::dictionaryEncodingNonSerializableObjects(original);
    EXPECT_EQ(encoded.value(QStringLiteral("text")), original.value(QStringLiteral("text")));
    EXPECT_EQ(encoded.value(QStringLiteral("count")), 12);
    EXPECT_NE(encoded.value(QStringLiteral("blob")).toByteArray(), blob);
    EXPECT_EQ(encoded.value(QStringLiteral("list")).toList().at(0).metaType(),
              QMetaType::fromType<QByteArray>());
    EXPECT_EQ(encoded.value(QStringLiteral("inner")).toMap().value(QStringLiteral("e")).metaType(),
              QMetaType::fromType<QByteArray>());

    // The encoded dictionary is a property list: it crosses the wire, then decodes.
    const QVariantMap wire = KeyedArchive::unarchivedObject(KeyedArchive::archivedData(encoded),
                                                            KeyedArchive::propertyListClasses())
                                 .toMap();
    const QVariantMap decoded = Additions::dictionaryDecodingSerializableObjects(wire);
    const QVariant inner =
        decoded.value(QStringLiteral("inner")).toMap().value(QStringLiteral("e"));
    EXPECT_EQ(inner.value<KSException>().description(), failure.description());
    EXPECT_EQ(decoded.value(QStringLiteral("list")).toList().at(0).value<KSException>().name(),
              QStringLiteral("IO"));
    EXPECT_EQ(decoded.value(QStringLiteral("when")).toDateTime(), now);
    EXPECT_EQ(decoded.value(QStringLiteral("blob")).toByteArray(), blob);
}

TEST(SerializableDictionaryEncoding, AValueThatCannotBeArchivedIsAProgrammingError)
{
    try {
        Additions::dictionaryEncodingNonSerializableObjects(
            {{QStringLiteral("p"), QVariant::fromValue(QPoint(1, 1))}});
        FAIL() << "an unarchivable value was accepted";
    } catch (const std::logic_error& error) {
        EXPECT_STREQ(error.what(), "QPoint cannot be encoded");
    }
}

TEST(SerializableDictionaryDecoding, DataThatIsNotAnArchiveStaysWithOneLogLine)
{
    RecordingLogSink sink;
    const QByteArray notArchive("\xff\xfe not cbor", 10);
    const QVariantMap decoded = Additions::dictionaryDecodingSerializableObjects(
        {{QStringLiteral("raw"), notArchive}, {QStringLiteral("n"), 1}});
    EXPECT_EQ(decoded.value(QStringLiteral("raw")).toByteArray(), notArchive);
    const auto lines = sink.lines();
    ASSERT_EQ(lines.size(), 1);
    EXPECT_EQ(lines.at(0).logClass, 9);
    EXPECT_TRUE(lines.at(0).text.startsWith(
        QStringLiteral("-[NSDictionary(SerializableDictionaryAdditions) "
                       "dictionaryDecodingSerializableObjects] unable to decode data object of "
                       "length 10 for key 'raw', reason=<Archive> data is not a keyed archive")))
        << lines.at(0).text.toStdString();
}

TEST(SerializableDictionaryStringifying, UrlsBecomeTextButNestedContainersAreLeft)
{
    const QUrl url(QStringLiteral("file:///srv/archive.stromi"));
    const QVariantList urls{QVariant(url)};
    const QVariantMap result = Additions::dictionaryStringifyingNonSerializableObjects(
        {{QStringLiteral("url"), url},
         {QStringLiteral("urls"), urls},
         {QStringLiteral("null"), QVariant::fromValue(nullptr)},
         {QStringLiteral("gone"), QVariant()},
         {QStringLiteral("n"), 3}});
    EXPECT_EQ(result.value(QStringLiteral("url")), QVariant(url.toString()));
    EXPECT_EQ(result.value(QStringLiteral("urls")).toList().at(0).metaType(),
              QMetaType::fromType<QUrl>());
    EXPECT_EQ(result.value(QStringLiteral("null")).toString(), QStringLiteral("<null>"));
    EXPECT_FALSE(result.contains(QStringLiteral("gone")));
    EXPECT_EQ(result.value(QStringLiteral("n")), 3);
}
