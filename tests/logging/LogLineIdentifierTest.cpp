#include "logging/LogLineIdentifier.h"

#include "foundation/KeyedArchive.h"

#include <QDataStream>
#include <QIODevice>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

using namespace Qt::StringLiterals;

// Malformed text parses to none.
TEST(LogLineIdentifier, ChildrenNumberFromOneDescribeFromTheRootAndCompareByTheChain)
{
    const LogLine line = LogLineIdentifier::fromString(u"4.73961099.512"_s);
    ASSERT_NE(line, nullptr);
    const LogLine first = line->next();
    const LogLine second = line->next();
    const LogLine nested = second->next();
    EXPECT_EQ(first->description(), u"4.73961099.512.1"_s);
    EXPECT_EQ(nested->description(), u"4.73961099.512.2.1"_s);
    EXPECT_EQ(line->count(), 2U);
    EXPECT_EQ(nested->depth(), 5);
    EXPECT_EQ(nested->application(), 4U);

    const auto a = LogLineIdentifier::fromString(u"4.1.2.7"_s);
    const auto b = LogLineIdentifier::fromString(u"4.1.2.7"_s);
    const auto c = LogLineIdentifier::fromString(u"4.1.3.1"_s);
    const auto shallow = LogLineIdentifier::fromString(u"4.1.2"_s);
    EXPECT_TRUE(*a == *b);
    EXPECT_EQ(a->hash(), b->hash());
    EXPECT_FALSE(*a == *c);
    EXPECT_NE(a->hash(), c->hash());
    EXPECT_TRUE(*a < *c);
    EXPECT_FALSE(*c < *a);
    EXPECT_TRUE(*shallow < *a); // a parent chain that is shorter sorts first at its level
    for (const char* text : {"", ".", "4..5", "4.5.", ".4", "4.x.5", "4. 5", "+4.5", "-1",
                             "99999999999999999999999.1"}) {
        EXPECT_EQ(LogLineIdentifier::fromString(QString::fromLatin1(text)), nullptr) << text;
    }
}

TEST(LogLineIdentifier, ConcurrentChildrenAreAllDistinct)
{
    const auto parent = LogLineIdentifier::extending(nullptr, 4);
    std::vector<quint64> all(4000);
    std::vector<std::thread> threads;
    for (size_t t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (size_t i = 0; i < 1000; ++i) {
                all[t * 1000 + i] = parent->next()->sequence();
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    std::sort(all.begin(), all.end());
    EXPECT_EQ(std::unique(all.begin(), all.end()), all.end());
    EXPECT_EQ(all.back(), 4000U);
}

TEST(LogLineIdentifier, ArchivesKeyedAndNonKeyedWithItsParentsAndCounts)
{
    const auto line = LogLineIdentifier::fromString(u"4.7"_s);
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
    const QVariant keyed = KeyedArchive::unarchivedObject(
        KeyedArchive::archivedData(QVariant::fromValue(line)), {u"LogLineIdentifier"_s});
    for (const LogLine& copy : {keyed.value<LogLine>(), nonKeyed}) {
        ASSERT_NE(copy, nullptr);
        EXPECT_EQ(copy->description(), u"4.7"_s);
        EXPECT_EQ(copy->count(), 2U);
        EXPECT_EQ(copy->classifications(), 1U << 5);
        EXPECT_TRUE(*copy == *line);
    }
}
