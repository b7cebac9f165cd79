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

namespace {
KSException richException()
{
    const QDateTime when(QDate(2026, 3, 29), QTime(1, 30, 0, 5), QTimeZone::utc());
    auto cause = KSException::exceptionWithName(QStringLiteral("IPC"),
                                                QStringLiteral("lost connection with command"));
    cause.setHexDetail(0xdead, QStringLiteral("Port"));
    auto exception = KSException::exceptionWithName(QStringLiteral("IO"), QStringLiteral("write"));
    exception.setPOSIXErr(28)
        .setCause(cause)
        .setDetail(when, QStringLiteral("When"))
        .setDetail(QByteArray("\x00\x7f", 2), QStringLiteral("Bytes"))
        .setDetail(QVariantMap{{QStringLiteral("inner"), QVariantList{1.5, QStringLiteral("x")}}},
                   QStringLiteral("Nested"))
        .setError(Error(Error::kPOSIXDomain, 28))
        .setSoft(true);
    return exception;
}
} // namespace

TEST(ExceptionWireForm, NestedDetailsCrossIntact)
{
    const KSException original = richException();
    const auto decoded =
        ExceptionArchive::exceptionFromData(ExceptionArchive::dataForException(original));
    ASSERT_NE(decoded, nullptr);
    const KSException* ks = decoded->asKSException();
    ASSERT_NE(ks, nullptr);
    EXPECT_EQ(ks->name(), QStringLiteral("IO"));
    EXPECT_EQ(ks->reason(), QStringLiteral("write"));
    EXPECT_TRUE(ks->isSoft());
    EXPECT_EQ(ks->description(), original.description());
    EXPECT_EQ(ks->details().value(QStringLiteral("When")).toDateTime(),
              original.details().value(QStringLiteral("When")).toDateTime());
    EXPECT_EQ(ks->details().value(QStringLiteral(".Error")).value<Error>(),
              Error(Error::kPOSIXDomain, 28));
    const auto cause = Exception::fromVariant(ks->details().value(QStringLiteral("Cause")));
    ASSERT_NE(cause, nullptr);
    ASSERT_NE(cause->asKSException(), nullptr);
    EXPECT_EQ(cause->asKSException()->details().value(QStringLiteral("Port")).toString(),
              QStringLiteral("0xdead"));
}

TEST(ExceptionWireForm, AForeignExceptionKeepsItsClass)
{
    const Exception foreign(QStringLiteral("NSRangeException"), QStringLiteral("index 3 beyond"),
                            {{QStringLiteral("Index"), 3}});
    const auto decoded =
        ExceptionArchive::exceptionFromData(ExceptionArchive::dataForException(foreign));
    ASSERT_NE(decoded, nullptr);
    EXPECT_EQ(decoded->asKSException(), nullptr);
    EXPECT_EQ(decoded->className(), QStringLiteral("Exception"));
    EXPECT_EQ(decoded->name(), QStringLiteral("NSRangeException"));
    EXPECT_EQ(KSException::preferredLogClassForException(*decoded), 5);
}

TEST(ExceptionWireForm, APeerBuiltArchiveDecodesAndAClassUnknownHereKeepsWhatItSaid)
{
    // What a peer in any language writes: tag 27 around the class name and the three keys.
    for (const QString& className :
         {QStringLiteral("KSException"), QStringLiteral("KSTapeException")}) {
        const QCborValue peer(
            QCborTag(27),
            QCborArray{className,
                       QCborMap{{QStringLiteral("name"), QStringLiteral("Cancel")},
                                {QStringLiteral("reason"), QStringLiteral("user stopped it")},
                                {QStringLiteral("userInfo"),
                                 QCborMap{{QStringLiteral(".Explain"), QStringLiteral("Stopped.")},
                                          {QStringLiteral("POSIXErr"), 89}}}}});
        const auto decoded = ExceptionArchive::exceptionFromData(peer.toCbor());
        ASSERT_NE(decoded, nullptr) << className.toStdString();
        EXPECT_EQ(decoded->name(), QStringLiteral("Cancel"));
        EXPECT_EQ(decoded->reason(), QStringLiteral("user stopped it"));
        EXPECT_EQ(decoded->userInfo().value(QStringLiteral("POSIXErr")).toInt(), 89);
        EXPECT_EQ(decoded->asKSException() != nullptr, className == QStringLiteral("KSException"));
    }
    const auto known = ExceptionArchive::exceptionFromData(
        QCborValue(QCborTag(27),
                   QCborArray{QStringLiteral("KSException"),
                              QCborMap{{QStringLiteral("name"), QStringLiteral("Cancel")}}})
            .toCbor());
    ASSERT_NE(known, nullptr);
    EXPECT_EQ(known->asKSException()->preferredLogClass(), 3);
}

TEST(ExceptionWireForm, NoDataIsNoException)
{
    EXPECT_EQ(ExceptionArchive::exceptionFromData({}), nullptr);
}

TEST(ExceptionWireForm, ARootThatIsNotAnExceptionIsLoggedAndGivesNone)
{
    RecordingLogSink sink;
    const QByteArray data = QCborValue(QStringLiteral("just text")).toCbor();
    EXPECT_EQ(ExceptionArchive::exceptionFromData(data), nullptr);
    const auto lines = sink.lines();
    ASSERT_EQ(lines.size(), 1);
    EXPECT_EQ(lines.at(0).logClass, 9);
    EXPECT_EQ(lines.at(0).text,
              QStringLiteral("+[Exception exceptionFromData:] exception object was actually a "
                             "String"));
}

TEST(ExceptionWireForm, BytesThatAreNotAnArchiveRaise)
{
    const QByteArray data = ExceptionArchive::dataForException(richException());
    EXPECT_THROW(ExceptionArchive::exceptionFromData(data.left(data.size() / 2)), KSException);
    EXPECT_THROW(ExceptionArchive::exceptionFromData(QByteArray("bplist00garbage")), KSException);
}
