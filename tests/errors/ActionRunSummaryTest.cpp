#include "messaging/ActionRunSummary.h"

#include "errors/KSException.h"
#include "foundation/KeyedArchive.h"

#include <QBuffer>
#include <QCborArray>
#include <QCborMap>
#include <QCborValue>
#include <QDataStream>
#include <QTimeZone>
#include <gtest/gtest.h>

namespace {
const QDateTime kStart(QDate(2026, 5, 4), QTime(22, 15, 30), QTimeZone::utc());

ActionRunSummary roundTrip(const ActionRunSummary& summary)
{
    const QByteArray data = KeyedArchive::archivedData(QVariant::fromValue(summary));
    const QVariant decoded =
        KeyedArchive::unarchivedObject(data, {QStringLiteral("ActionRunSummary")});
    EXPECT_EQ(decoded.metaType(), QMetaType::fromType<ActionRunSummary>());
    return decoded.value<ActionRunSummary>();
}
} // namespace

TEST(ActionRunSummaries, WithoutHoldReasonRunningAndNotHeld)
{
    const ActionRunSummary summary(kStart);
    EXPECT_TRUE(summary.isRunning());
    EXPECT_FALSE(summary.isHeld());

    const ActionRunSummary decoded = roundTrip(summary);
    EXPECT_TRUE(decoded.isRunning());
    EXPECT_FALSE(decoded.isHeld());
    EXPECT_EQ(decoded.startTime(), kStart);
}

TEST(ActionRunSummaries, HeldSummaryKeepsReasonAndStartThroughTheArchive)
{
    ActionRunSummary summary(kStart);
    summary.setHoldReason(QStringLiteral("Waiting for the archive volume"));
    EXPECT_TRUE(summary.isHeld());
    EXPECT_TRUE(summary.isRunning());
    EXPECT_EQ(roundTrip(summary), summary);

    // Even an empty reason is a reason.
    summary.setHoldReason(QString());
    EXPECT_TRUE(roundTrip(summary).isHeld());
}

TEST(ActionRunSummaries, ArchivedUnderItsClassNameWithHoldAndStartKeys)
{
    const ActionRunSummary summary(kStart, QStringLiteral("paused"));
    const QCborValue root =
        QCborValue::fromCbor(KeyedArchive::archivedData(QVariant::fromValue(summary)));
    ASSERT_TRUE(root.isTag());
    const QCborArray object = root.taggedValue().toArray();
    EXPECT_EQ(object.at(0).toString(), QStringLiteral("ActionRunSummary"));
    const QCborMap fields = object.at(1).toMap();
    EXPECT_EQ(fields.value(QStringLiteral("hold")).toString(), QStringLiteral("paused"));
    EXPECT_EQ(fields.value(QStringLiteral("start")).toDateTime(), kStart);
    EXPECT_EQ(fields.size(), 2);
}

TEST(ActionRunSummaries, NonKeyedFormWritesHoldReasonThenStartTime)
{
    QByteArray bytes;
    {
        QDataStream out(&bytes, QIODevice::WriteOnly);
        out << ActionRunSummary(kStart, QStringLiteral("held")) << ActionRunSummary(kStart)
            << ActionRunSummary(kStart, QString());
    }
    QDataStream in(bytes);
    QString hold;
    QDateTime start;
    in >> hold >> start;
    EXPECT_EQ(hold, QStringLiteral("held"));
    EXPECT_EQ(start, kStart);
    ActionRunSummary second(QDateTime(), QStringLiteral("stale"));
    in >> second;
    EXPECT_FALSE(second.isHeld());
    EXPECT_EQ(second.startTime(), kStart);
    ActionRunSummary third;
    in >> third;
    EXPECT_TRUE(third.isHeld());
    EXPECT_EQ(in.status(), QDataStream::Ok);
}
