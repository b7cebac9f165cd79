#include "tracking/ProgressManager.h"

#include "RecordingLogger.h"
#include "tracking/IconUtilities.h"
#include "tracking/ProgressServices.h"

#include <QSignalSpy>
#include <gtest/gtest.h>
#include <stdexcept>

using namespace Qt::StringLiterals;

namespace {
// Pixels whose every byte says where it is, so a misplaced row or channel shows.
QByteArray iconPixels(int side)
{
    QByteArray data(side * side * 4, Qt::Uninitialized);
    for (int index = 0; index < data.size(); ++index) {
        data[index] = static_cast<char>((index * 7 + index / 4) % 256);
    }
    return data;
}
} // namespace

// One manager, fed dictionaries the way a command sends them, with nobody to ask: it answers
// from what the command said alone.
class ProgressInterpretationTest : public ::testing::Test
{
protected:
    static QVariant nullObject() { return QVariant::fromValue(nullptr); }
    void send(const QVariantMap& progress) { m_manager->commandProgressDidUpdate(progress); }

    std::shared_ptr<ProgressManager> m_manager = std::make_shared<ProgressManager>();
};

TEST_F(ProgressInterpretationTest, NullValuesCountAsAbsentAndOnlyRealChangesAreAnnounced)
{
    EXPECT_EQ(m_manager->displayRunTime(), QString());
    QSignalSpy task(m_manager.get(), &ProgressManager::primaryDescriptionChanged);
    QSignalSpy working(m_manager.get(), &ProgressManager::commandIsWorkingChanged);
    send({{u"task"_s, u"Copying"_s}, {u"verb"_s, u"Copying"_s}, {u"icon"_s, 7}, {u"time"_s, 12.9}});
    QSignalSpy runTime(m_manager.get(), &ProgressManager::displayRunTimeChanged);
    send({{u"task"_s, u"Copying"_s}, {u"time"_s, 12}});

    QVariantMap nulls;
    for (const QString& key : {u"task"_s, u"verb"_s, u"icon"_s, u"wait"_s, u"paws"_s, u"time"_s}) {
        nulls.insert(key, nullObject());
    }
    send(nulls);

    EXPECT_EQ(m_manager->primaryDescription(), u"Copying"_s);
    EXPECT_EQ(m_manager->altDescriptionVerb(), u"Copying"_s);
    EXPECT_EQ(m_manager->altDescriptionIconValue(), QVariant(7));
    EXPECT_FALSE(m_manager->commandPaused());
    EXPECT_EQ(m_manager->reportedRunTime(), 12) << "fractions dropped";
    EXPECT_EQ(m_manager->displayRunTime(), u"00:12"_s);
    EXPECT_TRUE(m_manager->commandIsWorking());
    EXPECT_EQ(task.count(), 1);
    EXPECT_EQ(working.count(), 1);
    EXPECT_EQ(runTime.count(), 0);
}

TEST_F(ProgressInterpretationTest, AltShowsAndHidesTheAlternateLineAndANullItemClearsIt)
{
    QSignalSpy spy(m_manager.get(), &ProgressManager::showingAlternateDescriptionChanged);
    send({{u"alt"_s, true}});
    send({{u"alt"_s, nullObject()}});
    EXPECT_FALSE(m_manager->showingAlternateDescription());
    EXPECT_EQ(spy.count(), 2);

    send({{u"verb"_s, u"Capturing"_s},
          {u"item"_s, u"Letters.txt"_s},
          {u"icon"_s, iconPixels(16)},
          {u"alt"_s, true}});
    ASSERT_EQ(m_manager->altDescriptionName(), u"Letters.txt"_s);
    ASSERT_TRUE(m_manager->showingAlternateDescription());
    QSignalSpy iconSpy(m_manager.get(), &ProgressManager::altDescriptionIconChanged);

    send({{u"item"_s, nullObject()}, {u"alt"_s, true}});

    EXPECT_EQ(m_manager->altDescriptionVerb(), QString());
    EXPECT_EQ(m_manager->altDescriptionName(), QString());
    EXPECT_FALSE(m_manager->altDescriptionIconValue().isValid());
    EXPECT_TRUE(m_manager->altDescriptionIcon().isNull());
    EXPECT_FALSE(m_manager->showingAlternateDescription());
    EXPECT_EQ(iconSpy.count(), 1);
}

TEST_F(ProgressInterpretationTest, WaitShowsWaitingUntilRunWhichWinsInTheSameDictionary)
{
    const struct
    {
        QVariantMap progress;
        const char* runTime;
        bool working;
    } steps[] = {
        {{{u"run"_s, true}}, "00:00", true},
        {{{u"wait"_s, true}}, "waiting", false},
        {{{u"wait"_s, false}}, "waiting", false},
        {{{u"run"_s, true}}, "00:00", true},
        {{{u"wait"_s, true}, {u"run"_s, true}}, "00:00", true},
    };
    for (const auto& step : steps) {
        send(step.progress);
        EXPECT_EQ(m_manager->displayRunTime(), QString::fromLatin1(step.runTime));
        EXPECT_EQ(m_manager->commandIsWorking(), step.working) << step.runTime;
    }
}

TEST_F(ProgressInterpretationTest, PawsShowsPausedWithTheNegatedTimeUntilTimeRestoresTheTask)
{
    send({{u"task"_s, u"Copying files"_s}, {u"time"_s, 10}});
    send({{u"paws"_s, 30}, {u"alt"_s, false}, {u"run"_s, true}});

    EXPECT_TRUE(m_manager->commandPaused());
    EXPECT_EQ(m_manager->primaryDescription(), u"Paused"_s);
    EXPECT_EQ(m_manager->reportedRunTime(), -30);
    EXPECT_EQ(m_manager->displayRunTime(), u"-00:30"_s);
    EXPECT_TRUE(m_manager->showingAlternateDescription());
    EXPECT_FALSE(m_manager->commandIsWorking());

    QSignalSpy spy(m_manager.get(), &ProgressManager::primaryDescriptionChanged);
    send({{u"paws"_s, 25}, {u"task"_s, u"Verifying"_s}});
    EXPECT_EQ(m_manager->displayRunTime(), u"-00:25"_s);
    EXPECT_EQ(m_manager->primaryDescription(), u"Paused"_s);
    EXPECT_EQ(spy.count(), 0);

    send({{u"time"_s, 95}});
    EXPECT_FALSE(m_manager->commandPaused());
    EXPECT_EQ(m_manager->primaryDescription(), u"Verifying"_s);
    EXPECT_EQ(m_manager->displayRunTime(), u"01:35"_s);
    EXPECT_TRUE(m_manager->commandIsWorking());
}

TEST(IconTest, RGBADataOfTheFourSizesBecomesASquareImageAndOtherLengthsAreRefused)
{
    for (const int side : {16, 32, 64, 128}) {
        const QByteArray pixels = iconPixels(side);
        auto manager = std::make_shared<ProgressManager>();
        manager->commandProgressDidUpdate({{u"icon"_s, pixels}});
        const QImage image = manager->altDescriptionIcon();
        ASSERT_EQ(image.size(), QSize(side, side));
        for (const QPoint point :
             {QPoint(0, 0), QPoint(side - 1, 0), QPoint(3, side / 2), QPoint(side - 1, side - 1)}) {
            const auto at = [&](int offset) {
                return static_cast<quint8>(pixels[(point.y() * side + point.x()) * 4 + offset]);
            };
            EXPECT_EQ(image.pixelColor(point), QColor(at(0), at(1), at(2), at(3))) << side;
        }
    }
    try {
        IconUtilities::imageFromRGBAData(QByteArray(1000, '\0'));
        FAIL() << "no error for 1000 bytes";
    } catch (const std::logic_error& error) {
        EXPECT_STREQ(error.what(), "invalid icon data object length (1000 bytes)");
    }
    EXPECT_THROW(IconUtilities::imageFromRGBAData(QByteArray()), std::logic_error);
    EXPECT_THROW(IconUtilities::imageFromRGBAData(QByteArray(4 * 48 * 48, '\0')), std::logic_error);

    // From a peer, a wrong length is dropped where it arrives: the pane shows the alternate
    // text without an icon, and nothing reaches the check above.
    const auto log = RecordingLogger::install();
    auto manager = std::make_shared<ProgressManager>();
    manager->commandProgressDidUpdate({{u"icon"_s, iconPixels(16)}});
    for (int round = 0; round < 2; ++round) {
        manager->commandProgressDidUpdate(
            {{u"icon"_s, QByteArray(1000, '\x7f')}, {u"alt"_s, true}, {u"item"_s, u"a.raw"_s}});
    }
    EXPECT_EQ(manager->altDescriptionIconValue(), QVariant(iconPixels(16)));
    EXPECT_EQ(log->classesOf(u"sent an icon of 1000 bytes"_s), QList<int>{4});
    auto fresh = std::make_shared<ProgressManager>();
    fresh->commandProgressDidUpdate(
        {{u"icon"_s, QByteArray(1000, '\x7f')}, {u"alt"_s, true}, {u"item"_s, u"x"_s}});
    EXPECT_NO_THROW(EXPECT_TRUE(fresh->altDescriptionIcon().isNull()));
    EXPECT_NO_THROW(EXPECT_TRUE(IconUtilities::imageForIconValue(QByteArray(3, 'x')).isNull()));
    Logger::releaseDefaultLogger();
}

TEST(IconTest, ASystemIconNumberIsLookedUpOnceUntilTheValueChanges)
{
    EXPECT_EQ(IconUtilities::systemIconIndexForCode(-250), 4);
    EXPECT_EQ(IconUtilities::systemIconIndexForCode(-254), 0);
    QList<int> lookups;
    ProgressServices::setSystemIconTable([&lookups](int index) {
        lookups.append(index);
        QImage image(8, 8, QImage::Format_RGBA8888);
        image.fill(QColor(index, 0, 0));
        return image;
    });
    const auto manager = std::make_shared<ProgressManager>();
    QSignalSpy spy(manager.get(), &ProgressManager::altDescriptionIconChanged);

    manager->commandProgressDidUpdate({{u"icon"_s, 0}});
    EXPECT_EQ(manager->altDescriptionIcon().pixelColor(0, 0), QColor(4, 0, 0));
    manager->commandProgressDidUpdate({{u"icon"_s, 0}});
    manager->altDescriptionIcon();
    EXPECT_EQ(lookups, QList<int>{4});
    manager->commandProgressDidUpdate({{u"icon"_s, -240}});
    EXPECT_EQ(manager->altDescriptionIcon().pixelColor(0, 0), QColor(14, 0, 0));
    ProgressServices::setSystemIconTable({});
    EXPECT_EQ(lookups, (QList<int>{4, 14}));
    EXPECT_EQ(spy.count(), 2);
}
