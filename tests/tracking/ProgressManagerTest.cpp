#include "tracking/ProgressManager.h"

#include "tracking/IconUtilities.h"
#include "tracking/ProgressServices.h"

#include <QSignalSpy>
#include <gtest/gtest.h>
#include <stdexcept>

namespace {
QVariant nullObject()
{
    return QVariant::fromValue(nullptr);
}

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
    void send(const QVariantMap& progress) { m_manager->commandProgressDidUpdate(progress); }

    std::shared_ptr<ProgressManager> m_manager = std::make_shared<ProgressManager>();
};

TEST_F(ProgressInterpretationTest, StartsWithEmptyTextsAndAnswersItsRoles)
{
    EXPECT_EQ(m_manager->displayRunTime(), QString());
    EXPECT_FALSE(m_manager->displayRunTime().isNull());
    EXPECT_EQ(m_manager->roles(), 3u);
    EXPECT_FALSE(m_manager->commandIsWorking());
    EXPECT_FALSE(m_manager->showingAlternateDescription());
}

TEST_F(ProgressInterpretationTest, TaskChangesThePrimaryDescriptionAndAnnouncesOnlyRealChanges)
{
    QSignalSpy spy(m_manager.get(), &ProgressManager::primaryDescriptionChanged);

    send({{QStringLiteral("task"), QStringLiteral("Scanning items")}});
    send({{QStringLiteral("task"), QStringLiteral("Scanning items")}});

    EXPECT_EQ(m_manager->primaryDescription(), QStringLiteral("Scanning items"));
    EXPECT_EQ(spy.count(), 1);
}

TEST_F(ProgressInterpretationTest, NullValuesCountAsAbsent)
{
    send({{QStringLiteral("task"), QStringLiteral("Copying")},
          {QStringLiteral("verb"), QStringLiteral("Copying")},
          {QStringLiteral("icon"), 7},
          {QStringLiteral("time"), 12}});
    QSignalSpy runTimeSpy(m_manager.get(), &ProgressManager::displayRunTimeChanged);

    send({{QStringLiteral("task"), nullObject()},
          {QStringLiteral("verb"), nullObject()},
          {QStringLiteral("icon"), nullObject()},
          {QStringLiteral("wait"), nullObject()},
          {QStringLiteral("paws"), nullObject()},
          {QStringLiteral("time"), nullObject()}});

    EXPECT_EQ(m_manager->primaryDescription(), QStringLiteral("Copying"));
    EXPECT_EQ(m_manager->altDescriptionVerb(), QStringLiteral("Copying"));
    EXPECT_EQ(m_manager->altDescriptionIconValue(), QVariant(7));
    EXPECT_FALSE(m_manager->commandPaused());
    EXPECT_EQ(m_manager->reportedRunTime(), 12);
    EXPECT_TRUE(m_manager->commandIsWorking());
    EXPECT_EQ(runTimeSpy.count(), 0);
}

TEST_F(ProgressInterpretationTest, AltShowsAndHidesTheAlternateLineAndNullHidesIt)
{
    QSignalSpy spy(m_manager.get(), &ProgressManager::showingAlternateDescriptionChanged);

    send({{QStringLiteral("alt"), true}});
    EXPECT_TRUE(m_manager->showingAlternateDescription());
    send({{QStringLiteral("verb"), QStringLiteral("Reading")}});
    EXPECT_TRUE(m_manager->showingAlternateDescription());
    send({{QStringLiteral("alt"), nullObject()}});
    EXPECT_FALSE(m_manager->showingAlternateDescription());
    send({{QStringLiteral("alt"), true}});
    send({{QStringLiteral("alt"), false}});

    EXPECT_FALSE(m_manager->showingAlternateDescription());
    EXPECT_EQ(spy.count(), 4);
}

TEST_F(ProgressInterpretationTest, NullItemClearsTheAlternateLineEvenWhenAltSaysShow)
{
    send({{QStringLiteral("verb"), QStringLiteral("Capturing")},
          {QStringLiteral("item"), QStringLiteral("Letters.txt")},
          {QStringLiteral("icon"), iconPixels(16)},
          {QStringLiteral("alt"), true}});
    ASSERT_EQ(m_manager->altDescriptionName(), QStringLiteral("Letters.txt"));
    ASSERT_FALSE(m_manager->altDescriptionIcon().isNull());
    QSignalSpy iconSpy(m_manager.get(), &ProgressManager::altDescriptionIconChanged);

    send({{QStringLiteral("item"), nullObject()}, {QStringLiteral("alt"), true}});

    EXPECT_EQ(m_manager->altDescriptionVerb(), QString());
    EXPECT_EQ(m_manager->altDescriptionName(), QString());
    EXPECT_FALSE(m_manager->altDescriptionIconValue().isValid());
    EXPECT_TRUE(m_manager->altDescriptionIcon().isNull());
    EXPECT_FALSE(m_manager->showingAlternateDescription());
    EXPECT_EQ(iconSpy.count(), 1);
}

TEST_F(ProgressInterpretationTest, WaitShowsWaitingAndStopsWorkingUntilRun)
{
    send({{QStringLiteral("run"), true}});
    EXPECT_TRUE(m_manager->commandIsWorking());
    EXPECT_EQ(m_manager->displayRunTime(), QStringLiteral("00:00"));

    send({{QStringLiteral("wait"), true}});
    EXPECT_EQ(m_manager->displayRunTime(), QStringLiteral("waiting"));
    EXPECT_FALSE(m_manager->commandIsWorking());

    send({{QStringLiteral("wait"), false}});
    EXPECT_EQ(m_manager->displayRunTime(), QStringLiteral("waiting"));

    send({{QStringLiteral("run"), true}});
    EXPECT_EQ(m_manager->displayRunTime(), QStringLiteral("00:00"));
    EXPECT_TRUE(m_manager->commandIsWorking());
}

TEST_F(ProgressInterpretationTest, RunWinsOverWaitInTheSameDictionary)
{
    send({{QStringLiteral("wait"), true}, {QStringLiteral("run"), true}});

    EXPECT_EQ(m_manager->displayRunTime(), QStringLiteral("00:00"));
    EXPECT_TRUE(m_manager->commandIsWorking());
}

TEST_F(ProgressInterpretationTest, PawsShowsPausedWithTheNegatedRunTimeAndTheAlternateLine)
{
    send({{QStringLiteral("task"), QStringLiteral("Copying files")}, {QStringLiteral("time"), 10}});
    ASSERT_TRUE(m_manager->commandIsWorking());

    send({{QStringLiteral("paws"), 30},
          {QStringLiteral("alt"), false},
          {QStringLiteral("run"), true}});

    EXPECT_TRUE(m_manager->commandPaused());
    EXPECT_EQ(m_manager->primaryDescription(), QStringLiteral("Paused"));
    EXPECT_EQ(m_manager->reportedRunTime(), -30);
    EXPECT_EQ(m_manager->displayRunTime(), QStringLiteral("-00:30"));
    EXPECT_TRUE(m_manager->showingAlternateDescription());
    EXPECT_FALSE(m_manager->commandIsWorking());
}

TEST_F(ProgressInterpretationTest, PausedCommandRestoresDescriptionOnTime)
{
    send({{QStringLiteral("task"), QStringLiteral("Copying files")}});
    send({{QStringLiteral("paws"), 30}});
    send({{QStringLiteral("paws"), 25}});
    EXPECT_EQ(m_manager->displayRunTime(), QStringLiteral("-00:25"));

    send({{QStringLiteral("time"), 95}});

    EXPECT_FALSE(m_manager->commandPaused());
    EXPECT_EQ(m_manager->primaryDescription(), QStringLiteral("Copying files"));
    EXPECT_EQ(m_manager->displayRunTime(), QStringLiteral("01:35"));
    EXPECT_TRUE(m_manager->commandIsWorking());
}

TEST_F(ProgressInterpretationTest, TaskWhilePausedChangesOnlyTheDescriptionToRestore)
{
    send({{QStringLiteral("task"), QStringLiteral("Copying files")}});
    send({{QStringLiteral("paws"), 60}});
    QSignalSpy spy(m_manager.get(), &ProgressManager::primaryDescriptionChanged);

    send({{QStringLiteral("task"), QStringLiteral("Verifying copies")}});
    EXPECT_EQ(m_manager->primaryDescription(), QStringLiteral("Paused"));
    EXPECT_EQ(spy.count(), 0);

    send({{QStringLiteral("time"), 61}});
    EXPECT_EQ(m_manager->primaryDescription(), QStringLiteral("Verifying copies"));
}

TEST_F(ProgressInterpretationTest, TimeDropsFractionsAndIgnoresAnUnchangedValue)
{
    send({{QStringLiteral("time"), 95.9}});
    EXPECT_EQ(m_manager->reportedRunTime(), 95);
    QSignalSpy spy(m_manager.get(), &ProgressManager::displayRunTimeChanged);

    send({{QStringLiteral("time"), 95}});

    EXPECT_EQ(spy.count(), 0);
    EXPECT_EQ(m_manager->displayRunTime(), QStringLiteral("01:35"));
}

TEST_F(ProgressInterpretationTest, WorkingIsAnnouncedOnlyWhenItChanges)
{
    QSignalSpy spy(m_manager.get(), &ProgressManager::commandIsWorkingChanged);

    send({{QStringLiteral("time"), 1}});
    send({{QStringLiteral("time"), 2}});
    send({{QStringLiteral("verb"), QStringLiteral("Reading")}});

    ASSERT_EQ(spy.count(), 1);
    EXPECT_TRUE(spy.at(0).at(0).toBool());
}

class IconSizeTest : public ::testing::TestWithParam<int>
{};

TEST_P(IconSizeTest, RGBADataBecomesASquareImageOfItsSize)
{
    const int side = GetParam();
    const QByteArray pixels = iconPixels(side);
    auto manager = std::make_shared<ProgressManager>();

    manager->commandProgressDidUpdate({{QStringLiteral("icon"), pixels}});
    const QImage image = manager->altDescriptionIcon();

    ASSERT_EQ(image.size(), QSize(side, side));
    for (const QPoint point :
         {QPoint(0, 0), QPoint(side - 1, 0), QPoint(3, side / 2), QPoint(side - 1, side - 1)}) {
        const auto offset = (point.y() * side + point.x()) * 4;
        const QColor expected(
            static_cast<quint8>(pixels[offset]), static_cast<quint8>(pixels[offset + 1]),
            static_cast<quint8>(pixels[offset + 2]), static_cast<quint8>(pixels[offset + 3]));
        EXPECT_EQ(image.pixelColor(point), expected) << point.x() << "," << point.y();
    }
}

INSTANTIATE_TEST_SUITE_P(FourSizes, IconSizeTest, ::testing::Values(16, 32, 64, 128));

TEST(IconUtilitiesTest, DataOfAnyOtherLengthIsAProgrammingError)
{
    try {
        IconUtilities::imageFromRGBAData(QByteArray(1000, '\0'));
        FAIL() << "no error for 1000 bytes";
    } catch (const std::logic_error& error) {
        EXPECT_STREQ(error.what(), "invalid icon data object length (1000 bytes)");
    }
    EXPECT_THROW(IconUtilities::imageFromRGBAData(QByteArray()), std::logic_error);
    EXPECT_THROW(IconUtilities::imageFromRGBAData(QByteArray(4 * 48 * 48, '\0')), std::logic_error);
}

TEST(IconUtilitiesTest, SystemIconCodesIndexTheTableWithZeroAsTheDefault)
{
    EXPECT_EQ(IconUtilities::systemIconIndexForCode(0), 4);
    EXPECT_EQ(IconUtilities::systemIconIndexForCode(-250), 4);
    EXPECT_EQ(IconUtilities::systemIconIndexForCode(-254), 0);
    EXPECT_EQ(IconUtilities::systemIconIndexForCode(-240), 14);
}

// The icon table is a collaborator of the whole process; each test restores the default.
class SystemIconTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ProgressServices::setSystemIconTable([this](int index) {
            m_lookups.append(index);
            QImage image(8, 8, QImage::Format_RGBA8888);
            image.fill(QColor(index, 0, 0));
            return image;
        });
    }
    void TearDown() override { ProgressServices::setSystemIconTable({}); }

    QList<int> m_lookups;
    std::shared_ptr<ProgressManager> m_manager = std::make_shared<ProgressManager>();
};

TEST_F(SystemIconTest, ANumberIsLookedUpOnceUntilTheValueChanges)
{
    QSignalSpy spy(m_manager.get(), &ProgressManager::altDescriptionIconChanged);

    m_manager->commandProgressDidUpdate({{QStringLiteral("icon"), 0}});
    EXPECT_EQ(m_manager->altDescriptionIcon().pixelColor(0, 0), QColor(4, 0, 0));
    m_manager->altDescriptionIcon();
    m_manager->commandProgressDidUpdate({{QStringLiteral("icon"), 0}});
    m_manager->altDescriptionIcon();
    EXPECT_EQ(m_lookups, QList<int>{4});

    m_manager->commandProgressDidUpdate({{QStringLiteral("icon"), -240}});
    EXPECT_EQ(m_manager->altDescriptionIcon().pixelColor(0, 0), QColor(14, 0, 0));
    EXPECT_EQ(m_lookups, (QList<int>{4, 14}));
    EXPECT_EQ(spy.count(), 2);
}
