#include "tracking/ProgressManager.h"

#include "RecordingLogger.h"
#include "tracking/IconUtilities.h"
#include "tracking/ProgressServices.h"

#include <QSignalSpy>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>

using namespace Qt::StringLiterals;

namespace {
const QVariant kNull = QVariant::fromValue(nullptr);

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
    // What a pane shows: the primary description, verb, item and run time, the run time as
    // reported, then the states that hold.
    QString shown() const
    {
        const ProgressManager& manager = *m_manager;
        QString shown = QStringList{manager.primaryDescription(), manager.altDescriptionVerb(),
                                    manager.altDescriptionName(), manager.displayRunTime(),
                                    QString::number(manager.reportedRunTime())}
                            .join(u'|');
        for (const auto& [state, holds] :
             {std::pair(u" alt"_s, manager.showingAlternateDescription()),
              std::pair(u" working"_s, manager.commandIsWorking()),
              std::pair(u" paused"_s, manager.commandPaused())}) {
            shown += holds ? state : QString();
        }
        return shown;
    }
    QString shownAfter(const QVariantMap& progress)
    {
        m_manager->commandProgressDidUpdate(progress);
        return shown();
    }

    std::shared_ptr<ProgressManager> m_manager = std::make_shared<ProgressManager>();
};

TEST_F(ProgressInterpretationTest, NullValuesCountAsAbsentAndOnlyRealChangesAreAnnounced)
{
    EXPECT_EQ(shown(), u"||||0"_s);
    QSignalSpy task(m_manager.get(), &ProgressManager::primaryDescriptionChanged);
    QSignalSpy working(m_manager.get(), &ProgressManager::commandIsWorkingChanged);
    shownAfter(
        {{u"task"_s, u"Copying"_s}, {u"verb"_s, u"Copying"_s}, {u"icon"_s, 7}, {u"time"_s, 12.9}});
    QSignalSpy runTime(m_manager.get(), &ProgressManager::displayRunTimeChanged);
    shownAfter({{u"task"_s, u"Copying"_s}, {u"time"_s, 12}});

    EXPECT_EQ(shownAfter({{u"task"_s, kNull},
                          {u"verb"_s, kNull},
                          {u"icon"_s, kNull},
                          {u"wait"_s, kNull},
                          {u"paws"_s, kNull},
                          {u"time"_s, kNull}}),
              u"Copying|Copying||00:12|12 working"_s)
        << "fractions dropped";
    EXPECT_EQ(m_manager->altDescriptionIconValue(), QVariant(7));
    EXPECT_EQ((QList<qsizetype>{task.count(), working.count(), runTime.count()}),
              (QList<qsizetype>{1, 1, 0}));
}

// "alt" shows and hides the alternate line; "wait" shows waiting until "run", which wins in the
// same dictionary; "paws" shows Paused with the negated time until "time" restores the task.
TEST_F(ProgressInterpretationTest, EachKeyMovesThePaneAsTheCommandMeansIt)
{
    const std::pair<QVariantMap, const char*> steps[] = {
        {{{u"alt"_s, true}}, "||||0 alt"},
        {{{u"alt"_s, kNull}}, "||||0"},
        {{{u"run"_s, true}}, "|||00:00|0 working"},
        {{{u"wait"_s, true}}, "|||waiting|0"},
        {{{u"wait"_s, false}}, "|||waiting|0"},
        {{{u"run"_s, true}}, "|||00:00|0 working"},
        {{{u"wait"_s, true}, {u"run"_s, true}}, "|||00:00|0 working"},
        {{{u"task"_s, u"Copying files"_s}, {u"time"_s, 10}}, "Copying files|||00:10|10 working"},
        {{{u"paws"_s, 30}, {u"alt"_s, false}, {u"run"_s, true}}, "Paused|||-00:30|-30 alt paused"},
        {{{u"paws"_s, 25}, {u"task"_s, u"Verifying"_s}}, "Paused|||-00:25|-25 alt paused"},
        {{{u"time"_s, 95}}, "Verifying|||01:35|95 alt working"},
    };
    QSignalSpy alt(m_manager.get(), &ProgressManager::showingAlternateDescriptionChanged);
    QSignalSpy task(m_manager.get(), &ProgressManager::primaryDescriptionChanged);
    for (const auto& [progress, shown] : steps) {
        EXPECT_EQ(shownAfter(progress), QString::fromLatin1(shown))
            << progress.keys().join(u',').toStdString();
    }
    EXPECT_EQ(alt.count(), 3);
    EXPECT_EQ(task.count(), 3) << "Copying files, Paused, Verifying: never the task while paused";
}

// A null item clears the verb, the item, the icon and the alternate line.
TEST_F(ProgressInterpretationTest, ANullItemClearsTheAlternateLine)
{
    EXPECT_EQ(shownAfter({{u"verb"_s, u"Capturing"_s},
                          {u"item"_s, u"Letters.txt"_s},
                          {u"icon"_s, iconPixels(16)},
                          {u"alt"_s, true}}),
              u"|Capturing|Letters.txt||0 alt"_s);
    QSignalSpy icon(m_manager.get(), &ProgressManager::altDescriptionIconChanged);

    EXPECT_EQ(shownAfter({{u"item"_s, kNull}, {u"alt"_s, true}}), u"||||0"_s);
    EXPECT_FALSE(m_manager->altDescriptionIconValue().isValid());
    EXPECT_TRUE(m_manager->altDescriptionIcon().isNull());
    EXPECT_EQ(icon.count(), 1);
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
    EXPECT_THAT([] { IconUtilities::imageFromRGBAData(QByteArray(1000, '\0')); },
                testing::ThrowsMessage<std::logic_error>(
                    testing::StrEq("invalid icon data object length (1000 bytes)")));
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
    const auto colourAfter = [&](int icon) {
        manager->commandProgressDidUpdate({{u"icon"_s, icon}});
        return manager->altDescriptionIcon().pixelColor(0, 0);
    };

    EXPECT_EQ(colourAfter(0), QColor(4, 0, 0));
    EXPECT_EQ(colourAfter(0), QColor(4, 0, 0));
    EXPECT_EQ(lookups, QList<int>{4});
    EXPECT_EQ(colourAfter(-240), QColor(14, 0, 0));
    ProgressServices::setSystemIconTable({});
    EXPECT_EQ(lookups, (QList<int>{4, 14}));
    EXPECT_EQ(spy.count(), 2);
}
