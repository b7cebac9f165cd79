#include "statusmenu/HoldSchedulesUntilController.h"

#include "activity/AlertBox.h"
#include "statusmenu/ScheduleControl.h"
#include "ui_HoldSchedules.h"

#include <QApplication>
#include <QDesktopServices>
#include <QDialog>
#include <QThread>
#include <cmath>

namespace {
// Seconds between 1970-01-01 and the scheduler's reference date 2001-01-01.
constexpr double kReferenceDateOffset = 978307200.0;
// Where the help book explains holding schedules.
const QString kHelpTag = QStringLiteral("holdschedules");

double referenceSeconds(const QDateTime& date)
{
    return double(date.toMSecsSinceEpoch()) / 1000.0 - kReferenceDateOffset;
}

QDateTime dateOfReferenceSeconds(double seconds)
{
    return QDateTime::fromMSecsSinceEpoch(
               qint64(std::llround((seconds + kReferenceDateOffset) * 1000.0)))
        .toLocalTime();
}

struct SharedHold
{
    ScheduleControl* scheduler = nullptr;
    QPointer<HoldSchedulesUntilController> controller;
};

SharedHold& sharedHold()
{
    static SharedHold shared;
    return shared;
}
} // namespace

HoldSchedulesUntilController::HoldSchedulesUntilController(ScheduleControl& scheduler, Clock clock,
                                                           QObject* parent)
    : QObject(parent)
    , m_scheduler(scheduler)
    , m_clock(std::move(clock))
{
    if (!m_clock) {
        m_clock = [] {
            return QDateTime::currentDateTime();
        };
    }
    m_openHelp = [](const QUrl& url) {
        QDesktopServices::openUrl(url);
    };
}

HoldSchedulesUntilController::~HoldSchedulesUntilController() = default;

void HoldSchedulesUntilController::setSharedScheduleControl(ScheduleControl* scheduler)
{
    Q_ASSERT(QThread::currentThread() == qApp->thread());
    SharedHold& shared = sharedHold();
    if (shared.scheduler == scheduler) {
        return;
    }
    // The controller holds on to its scheduler; it cannot be handed another one.
    delete shared.controller;
    shared.scheduler = scheduler;
}

HoldSchedulesUntilController* HoldSchedulesUntilController::sharedHoldController()
{
    Q_ASSERT(QThread::currentThread() == qApp->thread());
    SharedHold& shared = sharedHold();
    if (shared.controller.isNull() && shared.scheduler != nullptr) {
        shared.controller = new HoldSchedulesUntilController(*shared.scheduler, {}, qApp);
    }
    return shared.controller;
}

void HoldSchedulesUntilController::setHelpButtonHidden(bool hidden)
{
    m_helpButtonHidden = hidden;
    if (m_dialog) {
        if (auto* help = m_dialog->findChild<QPushButton*>(QStringLiteral("helpButton"))) {
            help->setHidden(hidden);
        }
    }
}

void HoldSchedulesUntilController::setHelpOpener(HelpOpener opener)
{
    if (opener) {
        m_openHelp = std::move(opener);
    }
}

QDateTime HoldSchedulesUntilController::initialHoldDate(const QDateTime& now) const
{
    const double held = m_scheduler.queryHoldTime().value_or(0.0);
    if (held >= 1.0) {
        return dateOfReferenceSeconds(held);
    }
    // No hold yet: offer an hour from the nearest whole minute.
    return dateOfReferenceSeconds(std::round(referenceSeconds(now) / 60.0) * 60.0 + 3600.0);
}

void HoldSchedulesUntilController::runHoldDialog()
{
    Q_ASSERT(QThread::currentThread() == qApp->thread());
    if (m_dialog) {
        m_dialog->raise();
        m_dialog->activateWindow();
        return;
    }
    const QDateTime now = m_clock().toLocalTime();
    const QDateTime holdDate = initialHoldDate(now);

    QDialog dialog;
    Ui::HoldSchedules form;
    form.setupUi(&dialog);
    form.helpButton->setHidden(m_helpButtonHidden);
    form.holdPicker->setMinimumDateTime(now);
    form.holdPicker->setDateTime(holdDate);
    form.holdPicker->setFocus(Qt::OtherFocusReason);
    connect(form.helpButton, &QPushButton::clicked, this, &HoldSchedulesUntilController::showHelp);
    connect(form.cancelButton, &QPushButton::clicked, this,
            &HoldSchedulesUntilController::cancelHoldUntil);
    connect(form.holdButton, &QPushButton::clicked, this,
            &HoldSchedulesUntilController::holdSchedulesUntil);

    m_dialog = &dialog;
    const int result = dialog.exec();
    m_dialog = nullptr;
    if (result == QDialog::Accepted) {
        m_scheduler.setHoldTime(referenceSeconds(form.holdPicker->dateTime()));
    }
}

void HoldSchedulesUntilController::holdSchedulesUntil()
{
    if (m_dialog) {
        m_dialog->accept();
    }
}

void HoldSchedulesUntilController::cancelHoldUntil()
{
    if (m_dialog) {
        m_dialog->reject();
    }
}

void HoldSchedulesUntilController::showHelp()
{
    QUrl url = AlertBox::defaultHelpBook();
    url.setFragment(kHelpTag);
    m_openHelp(url);
}
