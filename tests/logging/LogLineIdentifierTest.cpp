#include "logging/LogLineIdentifier.h"

#include "foundation/KeyedArchive.h"

#include <QDataStream>
#include <QIODevice>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

TEST(LogLineIdentifier, ChildrenNumberFromOneAndDescribeFromTheRoot)
{
    const LogLine line = LogLineIdentifier::fromString(QStringLiteral("4.73961099.512"));
    ASSERT_NE(line, nullptr);
    const LogLine first = line->next();
    const LogLine second = line->next();
    const LogLine nested = second->next();
    EXPECT_EQ(first->description(), QStringLiteral("4.73961099.512.1"));
    EXPECT_EQ(nested->description(), QStringLiteral("4.73961099.512.2.1"));
    EXPECT_EQ(line->count(), 2U);
    EXPECT_EQ(nested->depth(), 5);
    EXPECT_EQ(nested->application(), 4U);
}

TEST(LogLineIdentifier, ParsingMalformedTextGivesNone)
{
    for (const char* text : {"", ".", "4..5", "4.5.", ".4", "4.x.5", "4. 5", "+4.5", "-1",
                             "99999999999999999999999.1"}) {
        EXPECT_EQ(LogLineIdentifier::fromString(QString::fromLatin1(text)), nullptr) << text;
    }
}

TEST(LogLineIdentifier, EqualityOrderAndHashFollowTheChain)
{
    const auto a = LogLineIdentifier::fromString(QStringLiteral("4.1.2.7"));
    const auto b = LogLineIdentifier::fromString(QStringLiteral("4.1.2.7"));
    const auto c = LogLineIdentifier::fromString(QStringLiteral("4.1.3.1"));
    const auto shallow = LogLineIdentifier::fromString(QStringLiteral("4.1.2"));
    EXPECT_TRUE(*a == *b);
    EXPECT_EQ(a->hash(), b->hash());
    EXPECT_FALSE(*a == *c);
    EXPECT_NE(a->hash(), c->hash());
    EXPECT_TRUE(*a < *c);
    EXPECT_FALSE(*c < *a);
    EXPECT_TRUE(*shallow < *a); // a parent chain that is shorter sorts first at its level
}

TEST(LogLineIdentifier, ConcurrentChildrenAreAllDistinct)
{
    const auto parent = LogLineIdentifier::extending(nullptr, 4);
    std::vector<std::thread> threads;
    std::vector<std::vector<quint64>> seen(4);
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 1000; ++i) {
                seen[size_t(t)].push_back(parent->next()->sequence());
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    std::vector<quint64> all;
    for (const auto& part : seen) {
        all.insert(all.end(), part.begin(), part.end());
    }
    std::sort(all.begin(), all.end());
    EXPECT_EQ(std::unique(all.begin(), all.end()), all.end());
    EXPECT_EQ(all.back(), 4000U);
}

TEST(LogLineIdentifier, ArchivesKeyedAndNonKeyedWithItsParentsAndCounts)
{
    const auto line = LogLineIdentifier::fromString(QStringLiteral("4.7"));
    line->next();
    line->next();
    line->addClassification(5);
    QByteArray bytes; // non-keyed: the parent, then three unsigned 32-bit values; none is 0
    QDataStream writer(&bytes, QIODevice::WriteOnly);
    writer << line << LogLine();
    EXPECT_EQ(bytes.toHex(), QByteArray("0101"
                                        "00"
                                        "000000000000000400000000"
                                        "000000200000000700000002"
                                        "00"));
    LogLine nonKeyed;
    QDataStream reader(bytes);
    reader >> nonKeyed;
    const QVariant keyed =
        KeyedArchive::unarchivedObject(KeyedArchive::archivedData(QVariant::fromValue(line)),
                                       {QStringLiteral("LogLineIdentifier")});
    for (const LogLine& copy : {keyed.value<LogLine>(), nonKeyed}) {
        ASSERT_NE(copy, nullptr);
        EXPECT_EQ(copy->description(), QStringLiteral("4.7"));
        EXPECT_EQ(copy->count(), 2U);
        EXPECT_EQ(copy->classifications(), 1U << 5);
        EXPECT_TRUE(*copy == *line);
    }
}
