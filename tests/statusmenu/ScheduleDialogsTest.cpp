#include "exception/KSException.h"
#include "statusmenu/HoldSchedulesUntilController.h"
#include "statusmenu/RunActionsAtController.h"
#include "statusmenu/RunActionsControllerDelegate.h"
#include "statusmenu/ScheduleControl.h"
#include "tracking/RecordingLogger.h"

#include <QAbstractButton>
#include <QApplication>
#include <QComboBox>
#include <QDateTimeEdit>
#include <QDialog>
#include <QDir>
#include <QLineEdit>
#include <QTest>
#include <QTimer>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

// Dates in failures as a reader knows them.
void PrintTo(const QDateTime& date, std::ostream* out)
{
    *out << date.toString(Qt::ISODateWithMs).toStdString();
}

namespace {
class FakeScheduler final : public ScheduleControl
{
public:
    std::optional<double> queryHoldTime() override { return holdTime; }
    void setHoldTime(double seconds) override { sent << seconds; }
    std::optional<double> holdTime;
    QList<double> sent;
};

class FakeDelegate final : public RunActionsControllerDelegate
{
public:
    void runAction(const QString& actionID, const QDateTime& at) override
    {
        sent << std::pair{actionID, at};
        if (actionID == failing) {
            throw KSException::exceptionWithName(u"IO"_s, u"scheduler went away"_s);
        }
    }
    QWidget* window() override { return owner; }
    QWidget* owner = nullptr;
    QString failing;
    QList<std::pair<QString, QDateTime>> sent;
};

QDateTime local(int year, int month, int day, int hour, int minute, int second = 0)
{
    return QDateTime(QDate(year, month, day), QTime(hour, minute, second));
}

// Hands the modal dialog `run` opens to `drive`, as soon as it is up however busy the machine
// is; one left up fails the test and is closed.
void whileModal(const std::function<void(QDialog&)>& drive, const std::function<void()>& run)
{
    bool driven = false;
    QTimer poll;
    poll.setInterval(10);
    QObject::connect(&poll, &QTimer::timeout, qApp, [&] {
        auto* dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget());
        if (dialog == nullptr || !dialog->isVisible()) {
            return;
        }
        poll.stop();
        driven = true;
        // As a desktop does with a new modal window.
        dialog->activateWindow();
        EXPECT_TRUE(QTest::qWaitForWindowActive(dialog, 30000));
        drive(*dialog);
        if (dialog->isVisible()) {
            ADD_FAILURE() << "the dialog is still up";
            dialog->reject();
        }
    });
    poll.start();
    run();
    poll.stop();
    EXPECT_TRUE(driven);
}

template <typename T> T* child(QWidget& dialog, const char* name)
{
    auto* found = dialog.findChild<T*>(QString::fromLatin1(name));
    EXPECT_NE(found, nullptr) << name;
    return found;
}

void pressKey(QWidget& dialog, Qt::Key key, Qt::KeyboardModifiers modifiers = {})
{
    QTest::keyClick(dialog.focusWidget(), key, modifiers);
}

// Tab walks through a date picker's sections before it leaves the picker.
void tabPast(QDialog& dialog, QWidget* picker)
{
    for (int i = 0; i < 10 && dialog.focusWidget() == picker; ++i) {
        pressKey(dialog, Qt::Key_Tab);
    }
}

void click(QWidget& dialog, const char* name)
{
    QTest::mouseClick(child<QAbstractButton>(dialog, name), Qt::LeftButton);
}

// A dark desktop: light text on dark buttons and windows, the rest derived from them.
QPalette darkPalette()
{
    QPalette palette(QColor(0x3c3c3c), QColor(0x2d2d2d));
    palette.setColor(QPalette::Base, QColor(0x1e1e1e));
    palette.setColor(QPalette::Highlight, QColor(0x3d7ee0));
    return palette;
}

// Leaves the dialog as the light and the dark desktop show it where a reviewer finds it.
void saveImages(QDialog& dialog, const QString& name)
{
    const QPalette original = dialog.palette();
    for (const auto& [palette, shade] :
         {std::pair{original, u"light"_s}, std::pair{darkPalette(), u"dark"_s}}) {
        dialog.setPalette(palette);
        const QString path = QDir(QStringLiteral(KESTROM_IMAGE_DIR))
                                 .filePath(u"statusmenu-%1-%2.png"_s.arg(name, shade));
        EXPECT_TRUE(dialog.grab().save(path, "PNG")) << path.toStdString();
    }
    dialog.setPalette(original);
}
} // namespace

class HoldDialog : public ::testing::Test
{
protected:
    HoldDialog()
    {
        m_controller.setHelpOpener([this](const QUrl& url) { m_opened << url; });
    }
    void run(const std::function<void(QDialog&)>& drive)
    {
        whileModal(drive, [this] { m_controller.runHoldDialog(); });
    }
    FakeScheduler m_scheduler;
    QDateTime m_now = local(2026, 5, 1, 10, 0);
    HoldSchedulesUntilController m_controller{m_scheduler, [this] {
                                                  return m_now;
                                              }};
    QList<QUrl> m_opened;
};

TEST_F(HoldDialog, WithoutAHoldOffersAnHourFromTheNearestWholeMinute)
{
    struct Case
    {
        std::optional<double> held;
        QDateTime now, offered;
    };
    const Case cases[] = {{std::nullopt, local(2026, 6, 16, 10, 0, 29), local(2026, 6, 16, 11, 0)},
                          {0.5, local(2026, 6, 16, 10, 0, 31), local(2026, 6, 16, 11, 1)},
                          {0.0, local(2026, 6, 16, 23, 59, 40), local(2026, 6, 17, 1, 0)}};
    for (const Case& c : cases) {
        m_scheduler.holdTime = c.held;
        m_now = c.now;
        run([&](QDialog& dialog) {
            EXPECT_EQ(dialog.windowTitle(), u"Hold All Schedules"_s);
            auto* picker = child<QDateTimeEdit>(dialog, "holdPicker");
            EXPECT_EQ(picker->dateTime(), c.offered);
            EXPECT_EQ(picker->minimumDateTime(), c.now);
            click(dialog, "cancelButton");
        });
    }
    EXPECT_TRUE(m_scheduler.sent.isEmpty());
}

TEST_F(HoldDialog, ConfirmingSendsThePickedTimeAsSecondsSince2001)
{
    m_scheduler.holdTime = 800'000'000.0; // 2026-05-09 08:13:20 in Berlin
    run([&](QDialog& dialog) {
        auto* picker = child<QDateTimeEdit>(dialog, "holdPicker");
        EXPECT_EQ(picker->dateTime(), local(2026, 5, 9, 8, 13, 20));
        EXPECT_EQ(picker->text(), u"5/9/2026 8:13 AM"_s);
        saveImages(dialog, u"hold-dialog"_s);
        // The day one on, then Return for the default button.
        QTest::mouseClick(picker, Qt::LeftButton);
        picker->setCurrentSection(QDateTimeEdit::DaySection);
        pressKey(dialog, Qt::Key_Up);
        pressKey(dialog, Qt::Key_Return);
    });
    EXPECT_EQ(m_scheduler.sent, QList<double>{800'086'400.0});
    EXPECT_EQ(m_controller.dialog(), nullptr);
}

TEST_F(HoldDialog, CancelFromTheKeyboardSendsNothingAndHelpKeepsTheDialogUp)
{
    run([&](QDialog& dialog) {
        tabPast(dialog, child<QDateTimeEdit>(dialog, "holdPicker"));
        EXPECT_EQ(dialog.focusWidget(), child<QAbstractButton>(dialog, "helpButton"));
        pressKey(dialog, Qt::Key_Space);
        EXPECT_TRUE(dialog.isVisible());
        pressKey(dialog, Qt::Key_Tab);
        EXPECT_EQ(dialog.focusWidget(), child<QAbstractButton>(dialog, "cancelButton"));
        pressKey(dialog, Qt::Key_Space);
    });
    ASSERT_EQ(m_opened.size(), 1);
    EXPECT_EQ(m_opened.at(0).fragment(), u"holdschedules"_s);

    // Hidden help is out of the way of Tab; Escape cancels.
    m_controller.setHelpButtonHidden(true);
    run([&](QDialog& dialog) {
        EXPECT_FALSE(child<QAbstractButton>(dialog, "helpButton")->isVisible());
        tabPast(dialog, child<QDateTimeEdit>(dialog, "holdPicker"));
        EXPECT_EQ(dialog.focusWidget(), child<QAbstractButton>(dialog, "cancelButton"));
        pressKey(dialog, Qt::Key_Escape);
    });
    EXPECT_TRUE(m_scheduler.sent.isEmpty());
    EXPECT_EQ(m_opened.size(), 1);
}

TEST_F(HoldDialog, TheSharedControllerIsMadeOnceForTheSchedulerGiven)
{
    using Controller = HoldSchedulesUntilController;
    EXPECT_EQ(Controller::sharedHoldController(), nullptr);
    Controller::setSharedScheduleControl(&m_scheduler);
    const QPointer<Controller> shared = Controller::sharedHoldController();
    ASSERT_NE(shared, nullptr);
    EXPECT_EQ(Controller::sharedHoldController(), shared);
    FakeScheduler other;
    Controller::setSharedScheduleControl(&other);
    EXPECT_TRUE(shared.isNull());
    EXPECT_NE(Controller::sharedHoldController(), nullptr);
    Controller::setSharedScheduleControl(nullptr);
    EXPECT_EQ(Controller::sharedHoldController(), nullptr);
}

class RunAtSheet : public ::testing::Test
{
protected:
    RunAtSheet() { m_controller.setDelegate(&m_delegate); }
    // The user picks "in", types the delay and chooses the unit with the keyboard.
    static void chooseDelay(QDialog& dialog, const QString& delay, int unitsDown)
    {
        click(dialog, "inRadioButton");
        QTest::mouseClick(child<QLineEdit>(dialog, "inField"), Qt::LeftButton);
        pressKey(dialog, Qt::Key_A, Qt::ControlModifier);
        QTest::keyClicks(dialog.focusWidget(), delay);
        pressKey(dialog, Qt::Key_Tab);
        pressKey(dialog, Qt::Key_Home);
        for (int i = 0; i < unitsDown; ++i) {
            pressKey(dialog, Qt::Key_Down);
        }
    }
    void run(const std::function<void(QDialog&)>& drive, std::optional<QDateTime> date = {})
    {
        whileModal(drive, [&] { m_controller.runSheetWithDefaultDate(date, {u"backup-1"_s}); });
    }

    QDateTime m_now = local(2026, 6, 16, 10, 0);
    FakeDelegate m_delegate;
    RunActionsAtController m_controller{[this] {
        return m_now;
    }};
};

TEST_F(RunAtSheet, InModeCountsTheDelayFromTheNearestMinute)
{
    struct Case
    {
        QDateTime now;
        QString delay;
        int unitsDown; // from minutes: hours, days, weeks, months
        QDateTime expected;
    };
    const Case cases[] = {
        {local(2026, 6, 16, 10, 0, 45), u"2"_s, 1, local(2026, 6, 16, 12, 1)},
        {local(2026, 6, 16, 10, 0, 30), u"5"_s, 0, local(2026, 6, 16, 10, 5)},
        {local(2026, 1, 31, 10, 0), u"1"_s, 2, local(2026, 2, 1, 10, 0)},
        {local(2026, 1, 31, 10, 0), u"1"_s, 3, local(2026, 2, 7, 10, 0)},
        {local(2026, 1, 31, 10, 0), u"1"_s, 4, local(2026, 2, 28, 10, 0)},
        {local(2028, 1, 31, 10, 0), u"1"_s, 4, local(2028, 2, 29, 10, 0)},
        {local(2026, 6, 16, 10, 0), u"0"_s, 1, local(2026, 6, 16, 11, 0)},
        {local(2026, 6, 16, 10, 0), u"10000"_s, 0, local(2026, 6, 16, 10, 1)},
    };
    for (const Case& c : cases) {
        m_now = c.now;
        run([&](QDialog& dialog) {
            chooseDelay(dialog, c.delay, c.unitsDown);
            click(dialog, "runButton");
        });
        ASSERT_FALSE(m_delegate.sent.isEmpty());
        EXPECT_EQ(m_delegate.sent.last().second, c.expected) << c.delay.toStdString();
    }
    // The out-of-range delay was run as 1 and the field says so.
    QDialog& sheet = *m_controller.window();
    EXPECT_EQ(child<QLineEdit>(sheet, "inField")->text(), u"1"_s);

    // An untagged unit counts minutes.
    child<QComboBox>(sheet, "inScale")->setItemData(0, 0);
    run([&](QDialog& dialog) {
        chooseDelay(dialog, u"3"_s, 0);
        pressKey(dialog, Qt::Key_Return);
    });
    EXPECT_EQ(m_delegate.sent.last().second, local(2026, 6, 16, 10, 3));
}

TEST_F(RunAtSheet, ADefaultDateTooSoonBecomesTwoHoursAfterTheStartOfThisHour)
{
    m_now = local(2026, 6, 16, 14, 37, 12);
    run(
        [&](QDialog& dialog) {
            auto* picker = child<QDateTimeEdit>(dialog, "atPicker");
            EXPECT_TRUE(child<QAbstractButton>(dialog, "atRadioButton")->isChecked());
            EXPECT_TRUE(picker->isEnabled());
            EXPECT_FALSE(child<QComboBox>(dialog, "inScale")->isEnabled());
            EXPECT_EQ(picker->dateTime(), local(2026, 6, 16, 16, 0));
            EXPECT_EQ(picker->text(), u"6/16/2026 4:00 PM"_s);
            EXPECT_EQ(picker->minimumDateTime(), local(2026, 6, 16, 14, 37, 12));
            saveImages(dialog, u"run-at-sheet"_s);
            click(dialog, "runButton");
        },
        local(2026, 6, 16, 14, 38));
    ASSERT_EQ(m_delegate.sent.size(), 1);
    EXPECT_EQ(m_delegate.sent.at(0).second, local(2026, 6, 16, 16, 0));
    EXPECT_TRUE(m_controller.actions().isEmpty());

    // The arrow keys move between the modes; the delay typed before a cancel is kept, tidied,
    // for the next time.
    run([&](QDialog& dialog) {
        auto* picker = child<QDateTimeEdit>(dialog, "atPicker");
        EXPECT_EQ(dialog.focusWidget(), picker);
        click(dialog, "atRadioButton");
        pressKey(dialog, Qt::Key_Down);
        EXPECT_TRUE(child<QAbstractButton>(dialog, "inRadioButton")->isChecked());
        EXPECT_FALSE(picker->isEnabled());
        EXPECT_TRUE(child<QComboBox>(dialog, "inScale")->isEnabled());
        pressKey(dialog, Qt::Key_Tab);
        EXPECT_EQ(dialog.focusWidget(), child<QLineEdit>(dialog, "inField"));
        pressKey(dialog, Qt::Key_A, Qt::ControlModifier);
        QTest::keyClicks(child<QLineEdit>(dialog, "inField"), u"007"_s);
        click(dialog, "cancelButton");
    });
    EXPECT_EQ(m_delegate.sent.size(), 1);

    // A date far enough ahead is kept, and brings back the "at" mode.
    run(
        [&](QDialog& dialog) {
            EXPECT_EQ(child<QLineEdit>(dialog, "inField")->text(), u"7"_s);
            EXPECT_FALSE(child<QLineEdit>(dialog, "inField")->isEnabled());
            pressKey(dialog, Qt::Key_Return);
        },
        local(2026, 6, 18, 9, 30));
    EXPECT_EQ(m_delegate.sent.last().second, local(2026, 6, 18, 9, 30));
}

TEST_F(RunAtSheet, ModalOfItsOwnOrASheetOnTheWindowAndOneFailingActionSparesTheOthers)
{
    run([&](QDialog& dialog) {
        EXPECT_EQ(dialog.parentWidget(), nullptr);
        EXPECT_EQ(dialog.windowModality(), Qt::ApplicationModal);
        click(dialog, "cancelButton");
    });
    EXPECT_TRUE(m_delegate.sent.isEmpty());

    const auto logger = RecordingLogger::install();
    QWidget owner;
    owner.show();
    m_delegate.owner = &owner;
    m_delegate.failing = u"backup-2"_s;
    m_controller.runSheetWithDefaultDate(std::nullopt, {u"b-1"_s, u"backup-2"_s, u"b-3"_s});
    QDialog& sheet = *m_controller.window();
    EXPECT_TRUE(sheet.isVisible());
    EXPECT_EQ(sheet.parentWidget(), &owner);
    EXPECT_EQ(sheet.windowModality(), Qt::WindowModal);
    chooseDelay(sheet, u"4"_s, 1);
    click(sheet, "runButton");
    Logger::releaseDefaultLogger();
    EXPECT_FALSE(sheet.isVisible());
    const QDateTime inFourHours = local(2026, 6, 16, 14, 0);
    EXPECT_EQ(m_delegate.sent,
              (QList<std::pair<QString, QDateTime>>{
                  {u"b-1"_s, inFourHours}, {u"backup-2"_s, inFourHours}, {u"b-3"_s, inFourHours}}));
    EXPECT_EQ(logger->classesOf(u"Could not schedule backup-2"_s), QList<int>{3});
    EXPECT_FALSE(logger->messagesContaining(u"scheduler went away"_s).isEmpty());
    m_delegate.owner = nullptr;
}
