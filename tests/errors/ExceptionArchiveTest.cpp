#include "errors/ExceptionArchive.h"

#include "exception/Error.h"
#include "exception/KSException.h"
#include "support/RecordingLogSink.h"

#include <QCborArray>
#include <QCborMap>
#include <QCborValue>
#include <QDateTime>
#include <QTimeZone>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {
KSException richException()
{
    const QDateTime when(QDate(2026, 3, 29), QTime(1, 30, 0, 5), QTimeZone::utc());
    auto cause = KSException::exceptionWithName(u"IPC"_s, u"lost connection with command"_s);
    cause.setHexDetail(0xdead, u"Port"_s);
    auto exception = KSException::exceptionWithName(u"IO"_s, u"write"_s);
    exception.setPOSIXErr(28)
        .setCause(cause)
        .setDetail(when, u"When"_s)
        .setDetail(QByteArray("\x00\x7f", 2), u"Bytes"_s)
        .setDetail(QVariantMap{{u"inner"_s, QVariantList{1.5, u"x"_s}}}, u"Nested"_s)
        .setError(Error(Error::kPOSIXDomain, 28))
        .setSoft(true);
    return exception;
}
} // namespace

TEST(ExceptionWireForm, NestedDetailsCrossIntactAndAForeignExceptionKeepsItsClass)
{
    const KSException original = richException();
    const auto decoded =
        ExceptionArchive::exceptionFromData(ExceptionArchive::dataForException(original));
    ASSERT_NE(decoded, nullptr);
    const KSException* ks = decoded->asKSException();
    ASSERT_NE(ks, nullptr);
    EXPECT_EQ(ks->name(), u"IO"_s);
    EXPECT_EQ(ks->reason(), u"write"_s);
    EXPECT_TRUE(ks->isSoft());
    EXPECT_EQ(ks->description(), original.description());
    EXPECT_EQ(ks->details().value(u"When"_s).toDateTime(),
              original.details().value(u"When"_s).toDateTime());
    EXPECT_EQ(ks->details().value(u".Error"_s).value<Error>(), Error(Error::kPOSIXDomain, 28));
    const auto cause = Exception::fromVariant(ks->details().value(u"Cause"_s));
    ASSERT_NE(cause, nullptr);
    ASSERT_NE(cause->asKSException(), nullptr);
    EXPECT_EQ(cause->asKSException()->details().value(u"Port"_s).toString(), u"0xdead"_s);

    const Exception foreign(u"NSRangeException"_s, u"index 3 beyond"_s, {{u"Index"_s, 3}});
    const auto decodedForeign =
        ExceptionArchive::exceptionFromData(ExceptionArchive::dataForException(foreign));
    ASSERT_NE(decodedForeign, nullptr);
    EXPECT_EQ(decodedForeign->asKSException(), nullptr);
    EXPECT_EQ(decodedForeign->className(), u"Exception"_s);
    EXPECT_EQ(decodedForeign->name(), u"NSRangeException"_s);
    EXPECT_EQ(KSException::preferredLogClassForException(*decodedForeign), 5);
}

TEST(ExceptionWireForm, APeerBuiltArchiveDecodesAndAClassUnknownHereKeepsWhatItSaid)
{
    // What a peer in any language writes: tag 27 around the class name and the three keys.
    for (const QString& className : {u"KSException"_s, u"KSTapeException"_s}) {
        const QCborValue peer(
            QCborTag(27),
            QCborArray{className, QCborMap{{u"name"_s, u"Cancel"_s},
                                           {u"reason"_s, u"user stopped it"_s},
                                           {u"userInfo"_s, QCborMap{{u".Explain"_s, u"Stopped."_s},
                                                                    {u"POSIXErr"_s, 89}}}}});
        const auto decoded = ExceptionArchive::exceptionFromData(peer.toCbor());
        ASSERT_NE(decoded, nullptr) << className.toStdString();
        EXPECT_EQ(decoded->name(), u"Cancel"_s);
        EXPECT_EQ(decoded->reason(), u"user stopped it"_s);
        EXPECT_EQ(decoded->userInfo().value(u"POSIXErr"_s).toInt(), 89);
        EXPECT_EQ(decoded->asKSException() != nullptr, className == u"KSException"_s);
    }
    const auto known = ExceptionArchive::exceptionFromData(
        QCborValue(QCborTag(27), QCborArray{u"KSException"_s, QCborMap{{u"name"_s, u"Cancel"_s}}})
            .toCbor());
    ASSERT_NE(known, nullptr);
    EXPECT_EQ(known->asKSException()->preferredLogClass(), 3);
}

// A root that is not an exception is logged.
TEST(ExceptionWireForm, DataThatIsNoExceptionGivesNoneAndBytesThatAreNoArchiveRaise)
{
    RecordingLogSink sink;
    EXPECT_EQ(ExceptionArchive::exceptionFromData(QCborValue(u"just text"_s).toCbor()), nullptr);
    const auto lines = sink.lines();
    ASSERT_EQ(lines.size(), 1);
    EXPECT_EQ(lines.at(0).logClass, 9);
    EXPECT_EQ(lines.at(0).text,
              u"+[Exception exceptionFromData:] exception object was actually a String"_s);

    EXPECT_EQ(ExceptionArchive::exceptionFromData({}), nullptr);
    const QByteArray data = ExceptionArchive::dataForException(richException());
    EXPECT_THROW(ExceptionArchive::exceptionFromData(data.left(data.size() / 2)), KSException);
    EXPECT_THROW(ExceptionArchive::exceptionFromData(QByteArray("bplist00garbage")), KSException);
}
