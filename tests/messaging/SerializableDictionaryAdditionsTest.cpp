#include "messaging/SerializableDictionaryAdditions.h"

#include "exception/KSException.h"
#include "foundation/KeyedArchive.h"
#include "support/RecordingLogSink.h"

#include <QDateTime>
#include <QPoint>
#include <QUrl>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

using Additions = SerializableDictionaryAdditions;

TEST(SerializableDictionaryEncoding,
     PlainValuesStayObjectsAndDataAreArchivedAtEveryDepthOthersThrow)
{
    const QByteArray blob("\x00\x01 plain blob \xff", 15);
    const auto failure = KSException::exceptionWithName(u"IO"_s, u"r"_s);
    const QDateTime now = QDateTime::currentDateTimeUtc();
    const QVariantMap original{{u"text"_s, u"t"_s},
                               {u"when"_s, now},
                               {u"count"_s, 12},
                               {u"blob"_s, blob},
                               {u"list"_s, QVariantList{QVariant::fromValue(failure), 2}},
                               {u"inner"_s, QVariantMap{{u"e"_s, QVariant::fromValue(failure)}}}};
    const QVariantMap encoded = Additions::dictionaryEncodingNonSerializableObjects(original);
    EXPECT_EQ(encoded.value(u"text"_s), original.value(u"text"_s));
    EXPECT_EQ(encoded.value(u"count"_s), 12);
    EXPECT_NE(encoded.value(u"blob"_s).toByteArray(), blob);
    EXPECT_EQ(encoded.value(u"list"_s).toList().at(0).metaType(),
              QMetaType::fromType<QByteArray>());
    EXPECT_EQ(encoded.value(u"inner"_s).toMap().value(u"e"_s).metaType(),
              QMetaType::fromType<QByteArray>());

    // The encoded dictionary is a property list: it crosses the wire, then decodes.
    const QVariantMap wire = KeyedArchive::unarchivedObject(KeyedArchive::archivedData(encoded),
                                                            KeyedArchive::propertyListClasses())
                                 .toMap();
    const QVariantMap decoded = Additions::dictionaryDecodingSerializableObjects(wire);
    const QVariant inner = decoded.value(u"inner"_s).toMap().value(u"e"_s);
    EXPECT_EQ(inner.value<KSException>().description(), failure.description());
    EXPECT_EQ(decoded.value(u"list"_s).toList().at(0).value<KSException>().name(), u"IO"_s);
    EXPECT_EQ(decoded.value(u"when"_s).toDateTime(), now);
    EXPECT_EQ(decoded.value(u"blob"_s).toByteArray(), blob);

    // A value that cannot be archived is a programming error.
    try {
        Additions::dictionaryEncodingNonSerializableObjects(
            {{u"p"_s, QVariant::fromValue(QPoint(1, 1))}});
        FAIL() << "an unarchivable value was accepted";
    } catch (const std::logic_error& error) {
        EXPECT_STREQ(error.what(), "QPoint cannot be encoded");
    }
}

TEST(SerializableDictionaryDecoding, DataThatIsNotAnArchiveStaysWithOneLogLine)
{
    RecordingLogSink sink;
    const QByteArray notArchive("\xff\xfe not cbor", 10);
    const QVariantMap decoded =
        Additions::dictionaryDecodingSerializableObjects({{u"raw"_s, notArchive}, {u"n"_s, 1}});
    EXPECT_EQ(decoded.value(u"raw"_s).toByteArray(), notArchive);
    const auto lines = sink.lines();
    ASSERT_EQ(lines.size(), 1);
    EXPECT_EQ(lines.at(0).logClass, 9);
    EXPECT_TRUE(lines.at(0).text.startsWith(
        u"-[NSDictionary(SerializableDictionaryAdditions) "
        "dictionaryDecodingSerializableObjects] unable to decode data object of "
        "length 10 for key 'raw', reason=<Archive> data is not a keyed archive"_s))
        << lines.at(0).text.toStdString();
}

TEST(SerializableDictionaryStringifying, UrlsBecomeTextButNestedContainersAreLeft)
{
    const QUrl url(u"file:///srv/archive.stromi"_s);
    const QVariantList urls{QVariant(url)};
    const QVariantMap result = Additions::dictionaryStringifyingNonSerializableObjects(
        {{u"url"_s, url},
         {u"urls"_s, urls},
         {u"null"_s, QVariant::fromValue(nullptr)},
         {u"gone"_s, QVariant()},
         {u"n"_s, 3}});
    EXPECT_EQ(result.value(u"url"_s), QVariant(url.toString()));
    EXPECT_EQ(result.value(u"urls"_s).toList().at(0).metaType(), QMetaType::fromType<QUrl>());
    EXPECT_EQ(result.value(u"null"_s).toString(), u"<null>"_s);
    EXPECT_FALSE(result.contains(u"gone"_s));
    EXPECT_EQ(result.value(u"n"_s), 3);
}
