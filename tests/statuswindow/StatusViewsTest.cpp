#include "status/RepositoryStatus.h"
#include "statuswindow/ArchiveStatusSizeView.h"
#include "statuswindow/SizeViewModeAnimation.h"
#include "statuswindow/StatusLightView.h"

#include <QDir>
#include <QHBoxLayout>
#include <QSignalSpy>
#include <QStorageInfo>
#include <QTemporaryDir>
#include <QTest>
#include <QVBoxLayout>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {
using Role = StatusLightView::Role;

QPalette paletteOf(QRgb window, QRgb text, QRgb highlight, QRgb inactiveHighlight)
{
    QPalette palette;
    palette.setColor(QPalette::Window, QColor(window));
    palette.setColor(QPalette::WindowText, QColor(text));
    palette.setColor(QPalette::Highlight, QColor(highlight));
    palette.setColor(QPalette::Inactive, QPalette::Highlight, QColor(inactiveHighlight));
    QColor placeholder(text);
    placeholder.setAlpha(128);
    palette.setColor(QPalette::PlaceholderText, placeholder);
    return palette;
}

// A light and a dark desktop, named for the image files.
std::vector<std::pair<QPalette, QString>> desktops()
{
    return {{paletteOf(0xefefef, 0x000000, 0x308cc6, 0xb4d2ec), u"light"_s},
            {paletteOf(0x2d2d2d, 0xe8e8e8, 0x3d7ee0, 0x35557a), u"dark"_s}};
}

// The labels as one line, so that a failure reads plainly.
std::string labelsOf(const ArchiveStatusSizeView& view)
{
    return view.segmentLabels().join(u" | "_s).toStdString();
}

// 20 GB used, 10 GB unused, 30 GB free and 40 GB of the rest of a 100 GB volume.
void setRoundSizes(ArchiveStatusSizeView& view)
{
    view.setRepositorySize(30'000'000'000);
    view.setRepositoryUnused(10'000'000'000);
    view.setVolumeFree(30'000'000'000);
    view.setVolumeSize(100'000'000'000);
}
} // namespace

TEST(StatusLightViewTest, LitTogglingNotifiesOncePerChangeAndRenamesTheLight)
{
    StatusLightView light;
    light.setRole(Role::Warning);
    QSignalSpy spy(&light, &StatusLightView::litChanged);
    EXPECT_EQ(light.accessibleName(), u"Warning light, off"_s);
    light.setLit(true);
    light.setLit(true);
    EXPECT_EQ(spy.count(), 1);
    EXPECT_EQ(light.accessibleName(), u"Warning light, lit"_s);
    light.setProperty("lit", false);
    EXPECT_EQ(spy.count(), 2);
    light.setRole(Role::Critical);
    EXPECT_EQ(light.accessibleName(), u"Critical light, off"_s);
    EXPECT_EQ(light.sizeHint(), QSize(14, 14));
}

TEST(ArchiveStatusSizeViewTest, StartsWithFreeSpaceAndUserChoicesCycleTheModes)
{
    ArchiveStatusSizeView view;
    EXPECT_EQ(view.viewMode(), 1u);
    EXPECT_EQ(view.showVolumeFree(), 1.0);
    EXPECT_EQ(view.showVolumeSize(), 0.0);
    EXPECT_EQ(view.accessibleName(), u"Archive size"_s);
    view.resize(300, view.heightForWidth(300));
    view.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&view, 30000));
    QSignalSpy spy(&view, &ArchiveStatusSizeView::viewModeSelected);
    const QPoint bar = view.barRect().center().toPoint();
    const QPoint below(bar.x(), view.height() - 1);
    for (int click = 0; click < 3; ++click) {
        QTest::mouseClick(&view, Qt::LeftButton, {}, bar);
    }
    EXPECT_EQ(view.viewMode(), 1u);
    // A press that leaves the bar before the release, or a click below it, chooses nothing.
    QTest::mousePress(&view, Qt::LeftButton, {}, bar);
    QTest::mouseRelease(&view, Qt::LeftButton, {}, below);
    QTest::mouseClick(&view, Qt::LeftButton, {}, below);
    QTest::keyClick(&view, Qt::Key_Space);
    QTest::keyClick(&view, Qt::Key_Return);
    QList<unsigned> selected;
    for (const QList<QVariant>& arguments : spy) {
        selected << arguments.at(0).toUInt();
    }
    EXPECT_EQ(selected, (QList<unsigned>{2, 0, 1, 2, 0}));

    view.setViewMode(2);
    view.setViewMode(3); // not a mode
    EXPECT_EQ(view.viewMode(), 2u);
    EXPECT_EQ(spy.count(), 5) << "the program's own choice was reported";
}

TEST(ArchiveStatusSizeViewTest, ModeChangesEaseInAndOutOverOneSecond)
{
    ArchiveStatusSizeView view;
    SizeViewModeAnimation* animation = view.modeAnimation();
    const auto at = [&](int ms) {
        animation->setCurrentTime(ms);
        return std::pair{view.showVolumeFree(), view.showVolumeSize()};
    };
    view.setViewMode(2);
    EXPECT_EQ(animation->state(), QAbstractAnimation::Running);
    EXPECT_EQ(at(0), std::pair(1.0, 0.0));
    EXPECT_LT(at(100).second, 0.05) << "eases in";
    EXPECT_NEAR(at(500).second, 0.5, 0.001);
    EXPECT_EQ(at(1000), std::pair(1.0, 1.0));
    EXPECT_EQ(animation->state(), QAbstractAnimation::Stopped);

    view.setViewMode(0);
    EXPECT_NEAR(at(500).first, 0.5, 0.001);
    EXPECT_NEAR(view.showVolumeSize(), 0.5, 0.001);
    // Turning back half way sets off from where the segments are.
    view.setViewMode(1);
    EXPECT_NEAR(at(0).first, 0.5, 0.001);
    EXPECT_EQ(at(1000), std::pair(1.0, 0.0));

    view.setViewMode(2, false);
    EXPECT_EQ(animation->state(), QAbstractAnimation::Stopped);
    EXPECT_EQ(std::pair(view.showVolumeFree(), view.showVolumeSize()), std::pair(1.0, 1.0));
}

TEST(ArchiveStatusSizeViewTest, LabelsNameEachShownSegmentWithItsSize)
{
    ArchiveStatusSizeView view;
    view.setRepositorySize(1'500'000'000);
    view.setRepositoryUnused(300'000'000);
    view.setVolumeFree(40'000'000'000);
    view.setVolumeSize(500'000'000'000);
    view.setViewMode(0, false);
    EXPECT_EQ(labelsOf(view), "1.2 GB used | 300.0 MB unused");
    view.setViewMode(1, false);
    EXPECT_EQ(labelsOf(view), "1.2 GB used | 300.0 MB unused | 40.0 GB free");
    view.setViewMode(2, false);
    EXPECT_EQ(labelsOf(view), "1.2 GB used | 300.0 MB unused | 40.0 GB free | 458.5 GB other");
    EXPECT_EQ(view.title().toStdString(), "1.2 GB used, 300.0 MB unused, 40.0 GB free of 500.0 GB");
    EXPECT_EQ(view.toolTip(), view.title());
    EXPECT_EQ(view.accessibleDescription(), view.title());

    // More than the volume's used space is not a negative rest.
    view.setVolumeSize(41'000'000'000);
    EXPECT_EQ(view.segmentLabels().last(), u"0 bytes other"_s);
}

TEST(ArchiveStatusSizeViewTest, UnknownSizesAreSaidPlainly)
{
    ArchiveStatusSizeView view;
    view.setViewMode(2, false);
    EXPECT_EQ(labelsOf(view), "unknown used | unknown unused | unknown free | unknown other");
    EXPECT_EQ(view.title().toStdString(),
              "Archive size unknown, free space and volume size unknown");
    view.setRepositorySize(2'000'000'000);
    view.setVolumeSize(10'000'000'000);
    EXPECT_EQ(labelsOf(view), "2.0 GB used | unknown unused | unknown free | 8.0 GB other");
    EXPECT_EQ(view.title().toStdString(), "2.0 GB used, free space unknown, 10.0 GB volume");
    // Hidden by the mode is not the same as unknown: no label at all.
    view.setViewMode(0, false);
    EXPECT_EQ(labelsOf(view), "2.0 GB used | unknown unused");
}

TEST(ArchiveStatusSizeViewTest, SizesComeFromTheArchiveStatus)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const QString path = dir.filePath(u"Photos.stromi"_s);
    ASSERT_TRUE(QDir().mkpath(path));
    auto status = RepositoryStatus::statusForRepository(path);
    ASSERT_TRUE(status);
    status->setProperty(qint64(3'000'000'000), RepositoryStatus::kRepositorySize);
    status->setProperty(qint64(1'000'000'000), RepositoryStatus::kRepositoryFree);

    ArchiveStatusSizeView view;
    view.setPropertiesFromStatus(*status);
    EXPECT_EQ(view.repositorySize(), 3'000'000'000);
    EXPECT_EQ(view.repositoryUnused(), 1'000'000'000);
    EXPECT_EQ(view.volumeSize(), QStorageInfo(path).bytesTotal()); // the live volume
    EXPECT_GT(view.volumeFree(), 0);

    // Once the archive is gone, what its status recorded is all there is; a recorded zero
    // is a full volume.
    status->setProperty(QVariant(), RepositoryStatus::kRepositoryFree);
    status->setProperty(qint64(0), RepositoryStatus::kVolumeFree);
    status->forgetVolumeAttributes();
    ASSERT_TRUE(QDir(path).removeRecursively());
    view.setPropertiesFromStatus(*status);
    EXPECT_EQ(view.repositorySize(), 3'000'000'000);
    EXPECT_EQ(view.repositoryUnused(), -1);
    EXPECT_EQ(view.volumeSize(), -1);
    EXPECT_EQ(view.volumeFree(), 0);
}

// One sheet per desktop: the lights, lit then off, the bar in each mode, a bar with no size
// known, and a narrow bar with the keyboard focus.
TEST(StatusViewsRenderingTest, LightsAndBarsTakeTheirColoursFromEitherDesktop)
{
    for (const auto& [palette, name] : desktops()) {
        SCOPED_TRACE(name.toStdString());
        QWidget sheet;
        sheet.setPalette(palette);
        sheet.setAutoFillBackground(true);
        auto* column = new QVBoxLayout(&sheet);
        auto* lightRow = new QHBoxLayout();
        column->addLayout(lightRow);
        QList<StatusLightView*> lights;
        for (const bool lit : {true, false}) {
            for (const Role role : {Role::OK, Role::Warning, Role::Critical}) {
                lights << new StatusLightView(&sheet);
                lights.last()->setRole(role);
                lights.last()->setLit(lit);
                lightRow->addWidget(lights.last());
            }
        }
        lightRow->addStretch();
        QList<ArchiveStatusSizeView*> bars;
        for (unsigned mode = 0; mode < 5; ++mode) {
            bars << new ArchiveStatusSizeView(&sheet);
            if (mode != 3) {
                setRoundSizes(*bars.last());
            }
            bars.last()->setViewMode(std::min(mode, 2u), false);
            if (mode < 4) {
                column->addWidget(bars.last());
            }
        }
        auto* narrowRow = new QHBoxLayout();
        column->addLayout(narrowRow);
        narrowRow->addWidget(bars[4], 2);
        narrowRow->addStretch(3);
        column->addStretch();
        sheet.resize(384, sheet.heightForWidth(384));
        sheet.show();
        sheet.activateWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(&sheet, 30000));
        bars[4]->setFocus();
        const QImage image = sheet.grab().toImage();
        EXPECT_TRUE(image.save(QDir(QStringLiteral(KESTROM_IMAGE_DIR))
                                   .filePath(u"statuswindow-views-%1.png"_s.arg(name)),
                               "PNG"));
        const auto at = [&](const QWidget* view, double x, double y) {
            return image.pixelColor(view->mapTo(&sheet, QPointF(x, y)).toPoint());
        };

        // Green, amber and red; an unlit light is only a ring.
        const int hues[] = {135, 42, 4};
        for (const StatusLightView* light : lights) {
            const QColor centre = at(light, 7, 7);
            if (light->lit()) {
                EXPECT_NEAR(centre.hsvHue(), hues[int(light->role())], 15);
            } else {
                EXPECT_EQ(centre, palette.color(QPalette::Window));
            }
        }
        // Along the bar's middle: 20/10/30/40 in the widest mode, 20/10/30 in the next.
        for (unsigned mode = 0; mode < 4; ++mode) {
            const QRectF bar = bars[mode]->barRect();
            const double x = bar.left() + bar.width() * (mode == 2 ? 0.45 : 0.75);
            EXPECT_EQ(at(bars[mode], x, bar.center().y()) ==
                          palette.color(QPalette::Inactive, QPalette::Highlight),
                      mode == 1 || mode == 2)
                << mode;
        }
        EXPECT_GT(bars[4]->height(), bars[0]->height()) << "labels wrap where they do not fit";
        // A ring in the highlight colour runs above a bar with the keyboard focus only.
        const double middle = bars[4]->barRect().center().x();
        EXPECT_EQ(at(bars[4], middle, 1), palette.color(QPalette::Highlight));
        EXPECT_EQ(at(bars[2], middle, 1), palette.color(QPalette::Window));
    }
}
