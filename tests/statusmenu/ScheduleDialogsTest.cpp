#include "statusmenu/HoldSchedulesUntilController.h"
#include "statusmenu/ScheduleControl.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDateTimeEdit>
#include <QDialog>
#include <QDir>
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

QDateTime local(int year, int month, int day, int hour, int minute, int second = 0)
{
    return QDateTime(QDate(year, month, day), QTime(hour, minute, second));
}

// Hands the modal dialog `run` opens to `drive`; one left up fails the test and is closed.
void whileModal(const std::function<void(QDialog&)>& drive, const std::function<void()>& run)
{
    bool driven = false;
    QTimer::singleShot(0, qApp, [&] {
        if (auto* dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget())) {
            driven = true;
            // As a desktop does with a new modal window.
            dialog->activateWindow();
            EXPECT_TRUE(QTest::qWaitForWindowActive(dialog));
            drive(*dialog);
            if (dialog->isVisible()) {
                ADD_FAILURE() << "the dialog is still up";
                dialog->reject();
            }
        }
    });
    run();
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
