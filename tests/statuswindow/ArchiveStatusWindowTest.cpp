#include "apps/MonitorProcessFixture.h"
#include "fakes/FakeSleepWatcher.h"
#include "preferences/ImpermanentValues.h"
#include "preferences/MonitorDefaults.h"
#include "preferences/PropertyList.h"
#include "status/RepositoryStatus.h"
#include "statuswindow/ArchiveStatusViewController.h"
#include "statuswindow/ArchiveStatusWindowController.h"
#include "statuswindow/StatusWindowHost.h"
#include "support/PrivateBus.h"
#include "tracking/RecordingLogger.h"
#include "ui_ArchiveStatusViewController.h"

#include <QAction>
#include <QDir>
#include <QMenu>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>

using namespace Qt::StringLiterals;

namespace {
[[maybe_unused]] const bool s_privateBus = (PrivateBus::use(), true);

// Keeps the state bits as the application would, and what the rows asked for.
class RecordingHost final : public StatusWindowHost
{
public:
    void showStatusItemStates(bool show, quint64 states) override
    {
        m_state = show ? (m_state | states) : (m_state & ~states);
    }
    void viewLogLine(const QString& line) override { m_logLines.append(line); }
    void openRepository(const QString& path, qint32 action) override
    {
        m_opened.append({path, action});
    }
    void revealInFileViewer(const QString& path) override { m_revealed.append(path); }
    void runInBackground(std::function<void()> job) override { job(); }

    quint64 m_state = 0;
    QStringList m_logLines;
    QList<std::pair<QString, qint32>> m_opened;
    QStringList m_revealed;
};
} // namespace

class ArchiveStatusWindowTest : public MonitorProcessFixture
{
protected:
    void SetUp() override
    {
        qputenv("XDG_CONFIG_HOME", m_config.path().toLocal8Bit());
        SwitchboardFixture::SetUp();
        QDir().mkpath(folder());
    }

    static QString folder() { return RepositoryStatus::statusFolder(); }

    // A mirror as a command leaves it, last written `age` seconds before the test's now.
    QString writeMirror(const QString& uuid, const QString& path, qint64 age,
                        QVariantMap properties = {})
    {
        properties.insert(u"repositoryUUID"_s, uuid);
        properties.insert(u"repositoryPath"_s, path);
        properties.insert(u"displayName"_s, QFileInfo(path).completeBaseName());
        // Well inside every default interval.
        properties.insert(u"lastCaptureDate"_s, m_now.addSecs(-3600));
        properties.insert(u"lastVerifyDate"_s, m_now.addSecs(-3600));
        const QString mirror = QDir(folder()).filePath(uuid + u".plist"_s);
        writeFile(mirror, PropertyList::xmlData(properties).data);
        setAge(mirror, age);
        return mirror;
    }

    void writeFile(const QString& path, const QByteArray& data, qint64 age = 60)
    {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(data);
        file.close();
        setAge(path, age);
    }

    void setAge(const QString& path, qint64 age)
    {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::ReadWrite));
        ASSERT_TRUE(file.setFileTime(m_now.addSecs(-age), QFileDevice::FileModificationTime));
    }

    std::unique_ptr<ArchiveStatusWindowController> makeWindow()
    {
        ArchiveStatusWindowController::Services services;
        services.host = &m_host;
        services.defaults = &MonitorDefaults::standardUserDefaults();
        services.impermanentValues = &m_impermanent;
        services.wake = &m_wake;
        services.clock = [this] {
            return m_now;
        };
        services.statusFolder = folder();
        auto window = std::make_unique<ArchiveStatusWindowController>(std::move(services));
        EXPECT_TRUE(reloaded(*window));
        return window;
    }

    static bool reloaded(ArchiveStatusWindowController& window)
    {
        QSignalSpy spy(&window, &ArchiveStatusWindowController::reloaded);
        return spy.wait(30000);
    }

    static QStringList names(const ArchiveStatusWindowController& window)
    {
        QStringList shown;
        for (const auto& row : window.statusControllers()) {
            shown.append(row->form().nameField->text());
        }
        return shown;
    }

    QTemporaryDir m_config;
    QDateTime m_now = QDateTime::currentDateTime();
    RecordingHost m_host;
    ImpermanentValues m_impermanent{MonitorDefaults::standardUserDefaults(), [this] {
                                        return m_now;
                                    }};
    FakeSleepWatcher m_wake;
};

TEST_F(ArchiveStatusWindowTest, WithoutMirrorsTheWindowClosesAndNothingIsReported)
{
    writeMirror(u"A1"_s, u"/archives/Photos.stromi"_s, 60);
    const auto window = makeWindow();
    ASSERT_TRUE(window->hasStatus());
    window->showStatusWindowInFront(false);
    m_host.m_state = 4 | 8 | 1;

    QFile::remove(QDir(folder()).filePath(u"A1.plist"_s));
    window->reload();
    ASSERT_TRUE(reloaded(*window));
    EXPECT_FALSE(window->hasStatus());
    EXPECT_FALSE(window->isVisible());
    EXPECT_EQ(m_host.m_state, 1U) << "only the status window's bits are cleared";
    EXPECT_EQ(window->dimEventThreshold(), 2U);
}

TEST_F(ArchiveStatusWindowTest, TheFreshestStatusOfAPathWinsRowsAreSortedAndReused)
{
    const QString stale = writeMirror(u"OLD"_s, u"/archives/Photos.stromi"_s, 7200);
    writeMirror(u"NEW"_s, u"/archives/Photos.stromi"_s, 60);
    writeMirror(u"B"_s, u"/archives/archive 10.stromi"_s, 60);
    writeMirror(u"C"_s, u"/archives/Archive 9.stromi"_s, 60);
    const auto window = makeWindow();
    EXPECT_EQ(names(*window), (QStringList{u"Archive 9"_s, u"archive 10"_s, u"Photos"_s}));
    EXPECT_EQ(window->statusControllers().back()->uuid(), u"NEW"_s);
    EXPECT_TRUE(QFile::exists(stale)) << "the other status's mirror is kept";

    const ArchiveStatusViewController* photos = window->statusControllers().back().get();
    m_wake.m_wake();
    ASSERT_TRUE(reloaded(*window));
    EXPECT_EQ(window->statusControllers().back().get(), photos) << "a row is reused by its UUID";
}

TEST_F(ArchiveStatusWindowTest, StatusesNobodyWroteForTooLongAreRetired)
{
    const QString old = writeMirror(u"OLD"_s, u"/archives/Old.stromi"_s, 4233601);
    const QString young = writeMirror(u"YOUNG"_s, u"/archives/Young.stromi"_s, 4233600 - 60);
    auto window = makeWindow();
    EXPECT_FALSE(QFile::exists(old));
    EXPECT_TRUE(QFile::exists(young));
    EXPECT_EQ(names(*window), QStringList{u"Young"_s});

    MonitorDefaults::standardUserDefaults().setDouble(10, u"KSMonitorStatusRetirementDays"_s);
    setAge(young, 10 * 86400 + 1);
    window->reload();
    ASSERT_TRUE(reloaded(*window));
    EXPECT_FALSE(QFile::exists(young));
    EXPECT_FALSE(window->hasStatus());
}

TEST_F(ArchiveStatusWindowTest, TheRefreshTimerRollsTodayOverTenSecondsAfterMidnight)
{
    writeMirror(u"A"_s, u"/archives/Photos.stromi"_s, 60);
    m_now = QDateTime(QDate(2026, 11, 24), QTime(12, 0));
    const auto window = makeWindow();
    EXPECT_EQ(window->refreshDate(), QDateTime(QDate(2026, 11, 24), QTime(15, 0)));
    window->statusRefreshTime();
    ASSERT_TRUE(reloaded(*window));
    EXPECT_EQ(window->refreshDate(), QDateTime(QDate(2026, 11, 24), QTime(15, 0)));

    m_now = QDateTime(QDate(2026, 11, 24), QTime(22, 0));
    window->statusRefreshTime();
    ASSERT_TRUE(reloaded(*window));
    EXPECT_EQ(window->refreshDate(), QDateTime(QDate(2026, 11, 25), QTime(0, 0, 10)));
    EXPECT_EQ(window->refreshTimer()->interval(), 7210000);
    EXPECT_TRUE(window->refreshTimer()->isActive());
}

TEST_F(ArchiveStatusWindowTest, WarningsAndCriticalsReachTheStatusItemAndTheDimming)
{
    writeMirror(u"OK"_s, u"/archives/Fine.stromi"_s, 60);
    writeMirror(u"W"_s, u"/archives/Warned.stromi"_s, 60, {{u"captureWarning"_s, true}});
    const auto window = makeWindow();
    EXPECT_TRUE(window->warnings());
    EXPECT_FALSE(window->criticals());
    EXPECT_EQ(m_host.m_state, 4U);
    EXPECT_EQ(window->dimEventThreshold(), 6U);
    const auto& warned = window->statusControllers().back()->form();
    EXPECT_EQ(warned.captureWarningLight->accessibleName(), u"Capture warning light, lit"_s);
    EXPECT_EQ(warned.verifyWarningLight->accessibleName(), u"Verify warning light, off"_s);

    writeMirror(u"R"_s, u"/archives/Broken.stromi"_s, 60, {{u"needsRepair"_s, true}});
    window->reload();
    ASSERT_TRUE(reloaded(*window));
    EXPECT_EQ(m_host.m_state, 4U | 8U);
    EXPECT_EQ(window->dimEventThreshold(), 24U);
    const auto& broken = *window->statusControllers().front();
    EXPECT_TRUE(broken.showingRepair());
    EXPECT_EQ(broken.form().repairField->text(), u"Broken needs repair"_s);
}

// The ignore items are a menu's checkable entries; the choice lives under the archive's UUID.
TEST_F(ArchiveStatusWindowTest, IgnoringWarningsSilencesARowAndTogglesBack)
{
    writeMirror(u"W"_s, u"/archives/Warned.stromi"_s, 60, {{u"captureWarning"_s, true}});
    const auto window = makeWindow();
    auto& row = *window->statusControllers().front();
    const auto itemFor = [&row](QMenu& menu, const QString& title) {
        const QList<QAction*> actions = menu.actions();
        const auto found = std::find_if(actions.cbegin(), actions.cend(),
                                        [&](const QAction* a) { return a->text() == title; });
        return found == actions.cend() ? nullptr : *found;
    };
    {
        std::unique_ptr<QMenu> menu(row.actionMenu());
        QAction* ignore = itemFor(*menu, u"Ignore Capture Warnings"_s);
        ASSERT_NE(ignore, nullptr);
        EXPECT_FALSE(ignore->isChecked());
        EXPECT_FALSE(itemFor(*menu, u"Ignore Repair Warnings"_s)->isEnabled());
        EXPECT_FALSE(itemFor(*menu, u"View Log"_s)->isEnabled());
        EXPECT_FALSE(itemFor(*menu, u"Show in File Manager"_s)->isEnabled())
            << "the archive's path does not exist";
        ignore->trigger();
    }
    EXPECT_FALSE(window->warnings());
    EXPECT_EQ(m_host.m_state, 0U);
    EXPECT_EQ(row.form().captureField->text(), u"Capture warnings silenced"_s);
    EXPECT_EQ(m_impermanent.impermanentValueForKey(u"ignoreCaptureWarnings"_s, u"W"_s), true);
    {
        std::unique_ptr<QMenu> menu(row.actionMenu());
        EXPECT_TRUE(itemFor(*menu, u"Ignore Capture Warnings"_s)->isChecked());
        itemFor(*menu, u"Ignore Capture Warnings"_s)->trigger();
    }
    EXPECT_TRUE(window->warnings());
    EXPECT_EQ(m_host.m_state, 4U);
}

TEST_F(ArchiveStatusWindowTest, RowActionsReachTheApplicationAndDetailsAreRemembered)
{
    QTemporaryDir archive;
    writeMirror(u"R"_s, archive.path(), 60,
                {{u"needsRepair"_s, true}, {u"logLineIdentifier"_s, u"77.2.1"_s}});
    writeMirror(u"D"_s, u"/archives/Detailed.stromi"_s, 60);
    auto window = makeWindow();
    auto& broken = *window->statusControllers().back();
    broken.form().repairButton->click();
    EXPECT_EQ(m_host.m_opened, (QList<std::pair<QString, qint32>>{{archive.path(), 3}}));
    broken.viewLog();
    EXPECT_EQ(m_host.m_logLines, QStringList{u"77.2.1"_s});
    std::unique_ptr<QMenu> menu(broken.actionMenu());
    for (QAction* action : menu->actions()) {
        if (action->text() == u"Show in File Manager"_s) {
            ASSERT_TRUE(action->isEnabled());
            action->trigger();
        }
    }
    EXPECT_EQ(m_host.m_revealed, QStringList{archive.path()});

    auto& detailed = *window->statusControllers().front();
    EXPECT_FALSE(detailed.showingDetails());
    QTest::keyClick(detailed.view(), Qt::Key_Space);
    EXPECT_TRUE(detailed.showingDetails());
    EXPECT_EQ(m_impermanent.impermanentValueForKey(u"statusDetails"_s, u"D"_s), true);
    ArchiveStatusSizeView* bar = detailed.form().sizeView;
    const QPoint inBar = bar->barRect().center().toPoint();
    QTest::mouseClick(bar, Qt::LeftButton, {}, inBar);
    EXPECT_EQ(m_impermanent.impermanentValueForKey(u"KSArchiveStatusSizeViewMode"_s, u"D"_s), 2);

    window.reset();
    window = makeWindow();
    EXPECT_TRUE(window->statusControllers().front()->showingDetails());
    EXPECT_EQ(window->statusControllers().front()->form().sizeView->viewMode(), 2U);
}

// The monitor's own window is the second one; peers ask it whether it has any status.
TEST_F(ArchiveStatusWindowTest, APeersNoticeReloadsAndAForgottenStatusGoesForEveryWindow)
{
    const auto window = makeWindow();
    EXPECT_FALSE(window->hasStatus());
    startMonitor(QStringLiteral(MONITOR_PROGRAM));
    const auto monitorHasStatus = [] {
        return answer(u"StromMonitoring"_s, u"queryStatusWindowHasStatus"_s).toBool();
    };
    QTemporaryDir archives;
    auto create = ctl({u"archive"_s, u"create"_s, archives.filePath(u"Work.stromi"_s),
                       u"--captured-days-ago"_s, u"2"_s, u"--no-history"_s});
    ASSERT_TRUE(create->finished());
    ASSERT_TRUE(QTest::qWaitFor([&] { return window->hasStatus(); }, 30000));
    EXPECT_EQ(names(*window), QStringList{u"Work"_s});
    ASSERT_TRUE(QTest::qWaitFor(monitorHasStatus, 30000));

    window->forgetStatus(window->statusControllers().front()->entry());
    ASSERT_TRUE(reloaded(*window));
    EXPECT_FALSE(window->hasStatus());
    EXPECT_TRUE(QDir(folder()).entryList({u"*.plist"_s}).isEmpty());
    EXPECT_TRUE(QTest::qWaitFor([&] { return !monitorHasStatus(); }, 30000))
        << m_monitor->output().toStdString();
}

TEST_F(ArchiveStatusWindowTest, AMirrorThatCannotBeReadIsARowThatSaysSo)
{
    writeMirror(u"GOOD"_s, u"/archives/Good.stromi"_s, 60);
    const QString truncated = QDir(folder()).filePath(u"TRUNC.plist"_s);
    QByteArray whole = PropertyList::xmlData(QVariantMap{{u"repositoryUUID"_s, u"TRUNC"_s}}).data;
    writeFile(truncated, whole.left(whole.size() / 2));
    writeFile(QDir(folder()).filePath(u"ARRAY.plist"_s),
              PropertyList::xmlData(QVariantList{1, 2}).data);
    writeFile(QDir(folder()).filePath(u"NUMBER.plist"_s),
              PropertyList::xmlData(QVariantMap{{u"repositoryUUID"_s, 12}}).data);
    writeFile(QDir(folder()).filePath(u"NEWER.plist"_s), QByteArray("bplist17\x00\x01\x02", 11));
    const auto window = makeWindow();
    ASSERT_EQ(window->statusControllers().size(), 5U);
    EXPECT_EQ(names(*window).first(), u"Good"_s);
    for (size_t index = 1; index < 5; ++index) {
        auto& row = *window->statusControllers().at(index);
        SCOPED_TRACE(row.uuid().toStdString());
        EXPECT_FALSE(row.status());
        EXPECT_TRUE(
            row.form().summaryField->text().startsWith(u"This archive status cannot be read"_s));
        std::unique_ptr<QMenu> menu(row.actionMenu());
        for (QAction* action : menu->actions()) {
            if (!action->isSeparator()) {
                EXPECT_EQ(action->isEnabled(), action->text() == u"Forget This Archive"_s);
            }
        }
    }
    EXPECT_FALSE(window->warnings());

    window->forgetStatus(window->statusControllers().at(1)->entry());
    ASSERT_TRUE(reloaded(*window));
    EXPECT_EQ(window->statusControllers().size(), 4U);
}

// The status folder on a file system made read-only in a mount namespace of this test process
// (before any thread exists): retiring fails, is logged, and the status keeps its row until
// the folder can be written again.
TEST(ArchiveStatusRetirementTest, AMirrorThatCannotBeDeletedStaysUntilItCan)
{
    if (::unshare(CLONE_NEWNS) != 0 ||
        ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        GTEST_SKIP() << "no mount namespace for this test: " << std::strerror(errno);
    }
    QTemporaryDir config;
    qputenv("XDG_CONFIG_HOME", config.path().toLocal8Bit());
    const QByteArray folder = RepositoryStatus::statusFolder().toLocal8Bit();
    ASSERT_TRUE(QDir().mkpath(RepositoryStatus::statusFolder()));
    ASSERT_EQ(::mount("none", folder.constData(), "tmpfs", 0, nullptr), 0) << std::strerror(errno);
    const QString mirror = RepositoryStatus::statusFolder() + u"/OLD.plist"_s;
    {
        QFile file(mirror);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(PropertyList::xmlData(QVariantMap{{u"repositoryUUID"_s, u"OLD"_s},
                                                     {u"repositoryPath"_s, u"/archives/Old"_s},
                                                     {u"displayName"_s, u"Old"_s}})
                       .data);
        ASSERT_TRUE(file.flush()); // a later flush would date the file again
        ASSERT_TRUE(file.setFileTime(QDateTime::currentDateTime().addDays(-50),
                                     QFileDevice::FileModificationTime));
    }
    const auto remount = [&folder](unsigned long flags) {
        return ::mount(nullptr, folder.constData(), nullptr, MS_REMOUNT | flags, nullptr);
    };
    ASSERT_EQ(remount(MS_RDONLY), 0) << std::strerror(errno);
    const auto log = RecordingLogger::install();

    RecordingHost host;
    FakeSleepWatcher wake;
    ImpermanentValues impermanent(MonitorDefaults::standardUserDefaults());
    ArchiveStatusWindowController window({&host, &MonitorDefaults::standardUserDefaults(),
                                          &impermanent, &wake, &QDateTime::currentDateTime,
                                          RepositoryStatus::statusFolder()});
    QSignalSpy reloads(&window, &ArchiveStatusWindowController::reloaded);
    ASSERT_TRUE(reloads.wait(30000));
    ASSERT_EQ(window.statusControllers().size(), 1U);
    EXPECT_EQ(window.statusControllers().front()->uuid(), u"OLD"_s);
    EXPECT_EQ(log->linesContaining(u"Unable to forget the status of archive Old"_s).size(), 1);

    ASSERT_EQ(remount(0), 0) << std::strerror(errno);
    window.reload();
    ASSERT_TRUE(reloads.wait(30000));
    EXPECT_FALSE(window.hasStatus());
    EXPECT_FALSE(QFile::exists(mirror));
}
