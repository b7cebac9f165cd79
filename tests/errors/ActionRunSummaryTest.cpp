#include "messaging/ActionRunSummary.h"

#include "exception/KSException.h"
#include "foundation/KeyedArchive.h"

#include <QCborArray>
#include <QCborMap>
#include <QCborValue>
#include <QDataStream>
#include <QIODevice>
#include <QTimeZone>
#include <gtest/gtest.h>
#include <utility>

using namespace Qt::StringLiterals;

namespace {
const QDateTime kStart(QDate(2026, 5, 4), QTime(22, 15, 30), QTimeZone::utc());

// A summary that is not decoded as one reads as a default summary: not held, no start.
ActionRunSummary roundTrip(const ActionRunSummary& summary)
{
    return KeyedArchive::unarchivedObject(KeyedArchive::archivedData(QVariant::fromValue(summary)),
                                          {u"ActionRunSummary"_s})
        .value<ActionRunSummary>();
}
} // namespace

TEST(ActionRunSummaries, HeldOnlyWithAReasonAndArchivedWithHoldAndStartKeys)
{
    ActionRunSummary summary(kStart);
    EXPECT_TRUE(summary.isRunning() && !summary.isHeld());
    EXPECT_EQ(roundTrip(summary), summary);
    summary.setHoldReason(u"Waiting for the archive volume"_s);
    EXPECT_TRUE(summary.isHeld() && summary.isRunning());
    EXPECT_EQ(roundTrip(summary), summary);
    // Even an empty reason is a reason.
    summary.setHoldReason(QString());
    EXPECT_TRUE(roundTrip(summary).isHeld());

    // Archived under its class name with "hold" and "start" keys.
    summary.setHoldReason(u"paused"_s);
    const QCborValue root =
        QCborValue::fromCbor(KeyedArchive::archivedData(QVariant::fromValue(summary)));
    const QCborArray object = root.taggedValue().toArray();
    EXPECT_EQ(object.at(0).toString(), u"ActionRunSummary"_s);
    const QCborMap fields = object.at(1).toMap();
    EXPECT_EQ(fields.value(u"hold"_s).toString(), u"paused"_s);
    EXPECT_EQ(fields.value(u"start"_s).toDateTime(), kStart);
    EXPECT_EQ(fields.size(), 2);
}

TEST(ActionRunSummaries, NonKeyedFormWritesHoldReasonThenStartTime)
{
    QByteArray bytes;
    {
        QDataStream out(&bytes, QIODevice::WriteOnly);
        out << ActionRunSummary(kStart, u"held"_s) << ActionRunSummary(kStart)
            << ActionRunSummary(kStart, QString());
    }
    QDataStream in(bytes);
    QString hold;
    QDateTime start;
    in >> hold >> start;
    EXPECT_EQ(std::pair(hold, start), std::pair(u"held"_s, kStart));
    ActionRunSummary second(QDateTime(), u"stale"_s);
    in >> second;
    EXPECT_EQ(second, ActionRunSummary(kStart));
    ActionRunSummary third;
    in >> third;
    EXPECT_TRUE(third.isHeld());
    EXPECT_EQ(in.status(), QDataStream::Ok);
}
