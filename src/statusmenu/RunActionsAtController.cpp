#include "statusmenu/RunActionsAtController.h"

#include "logging/Logger.h"
#include "statusmenu/RunActionsControllerDelegate.h"
#include "ui_RunActionAt.h"

#include <QApplication>
#include <QDialog>
#include <QRegularExpressionValidator>
#include <QThread>

namespace {
constexpr qint64 kMSecsPerMinute = 60'000;
// Past this much of a minute the delay counts from the next one, as a person rounds.
constexpr qint64 kRoundUpMSecs = 30'000;
// A default date this close to now would be past before the user finished choosing it.
constexpr qint64 kLeadSeconds = 60;
constexpr qint64 kFallbackHoursAhead = 2;

QDateTime startOfMinute(const QDateTime& date)
{
    const qint64 msecs = date.toMSecsSinceEpoch();
    const qint64 intoMinute = ((msecs % kMSecsPerMinute) + kMSecsPerMinute) % kMSecsPerMinute;
    return QDateTime::fromMSecsSinceEpoch(msecs - intoMinute).toLocalTime();
}
} // namespace

RunActionsAtController::RunActionsAtController(Clock clock, QObject* parent)
    : QObject(parent)
    , m_clock(std::move(clock))
{
    if (!m_clock) {
        m_clock = [] {
            return QDateTime::currentDateTime();
        };
    }
}

RunActionsAtController::~RunActionsAtController()
{
    // The sheet is ours even while a window of the delegate parents it.
    delete m_window.data();
}

QDialog* RunActionsAtController::window()
{
    if (m_window.isNull()) {
        loadWindow();
    }
    return m_window;
}

void RunActionsAtController::loadWindow()
{
    Q_ASSERT(QThread::currentThread() == qApp->thread());
    m_window = new QDialog;
    m_form = std::make_unique<Ui::RunActionAt>();
    m_form->setupUi(m_window);

    m_form->inScale->addItem(tr("minutes"), int(kMinutesTag));
    m_form->inScale->addItem(tr("hours"), int(kHoursTag));
    m_form->inScale->addItem(tr("days"), int(kDaysTag));
    m_form->inScale->addItem(tr("weeks"), int(kWeeksTag));
    m_form->inScale->addItem(tr("months"), int(kMonthsTag));
    // Digits only; the range is checked when the sheet runs, so a mistyped delay still runs.
    m_form->inField->setValidator(new QRegularExpressionValidator(
        QRegularExpression(QStringLiteral("[0-9]*")), m_form->inField));

    for (QAbstractButton* radio : {static_cast<QAbstractButton*>(m_form->atRadioButton),
                                   static_cast<QAbstractButton*>(m_form->inRadioButton)}) {
        connect(radio, &QAbstractButton::clicked, this, [this, radio] { toggleAtOrIn(radio); });
    }
    connect(m_form->runButton, &QPushButton::clicked, this, &RunActionsAtController::runAt);
    connect(m_form->cancelButton, &QPushButton::clicked, this,
            &RunActionsAtController::cancelRunAt);
    toggleAtOrIn(m_form->atRadioButton->isChecked() ? m_form->atRadioButton
                                                    : m_form->inRadioButton);
}

void RunActionsAtController::attachToDelegateWindow(QWidget* parent)
{
    if (m_window->parentWidget() != parent) {
        m_window->setParent(parent, Qt::Dialog);
    }
    m_window->setWindowModality(parent != nullptr ? Qt::WindowModal : Qt::ApplicationModal);
}

void RunActionsAtController::runSheetWithDefaultDate(std::optional<QDateTime> date,
                                                     QStringList actions)
{
    window();
    if (m_window->isVisible()) {
        // One choice at a time: the sheet already up keeps its actions.
        m_window->raise();
        m_window->activateWindow();
        return;
    }
    QDateTimeEdit* picker = m_form->atPicker;
    picker->clearMinimumDateTime();
    if (date) {
        picker->setDateTime(date->toLocalTime());
        toggleAtOrIn(m_form->atRadioButton);
    }
    m_actions = std::move(actions);

    const QDateTime now = m_clock().toLocalTime();
    if (picker->dateTime() < now.addSecs(kLeadSeconds)) {
        const QDateTime thisHour(now.date(), QTime(now.time().hour(), 0));
        picker->setDateTime(thisHour.addSecs(kFallbackHoursAhead * 3600));
    }
    picker->setMinimumDateTime(now);
    m_form->inField->setText(QString::number(m_form->inField->text().toInt()));
    QWidget* parent = m_delegate != nullptr ? m_delegate->window() : nullptr;
    attachToDelegateWindow(parent);
    // Whatever had focus when the sheet was last closed, Return now runs it.
    if (m_form->atRadioButton->isChecked()) {
        picker->setFocus(Qt::OtherFocusReason);
    } else {
        m_form->inField->setFocus(Qt::OtherFocusReason);
    }
    if (parent != nullptr) {
        m_window->open();
    } else {
        m_window->exec();
    }
}

void RunActionsAtController::toggleAtOrIn(QAbstractButton* sender)
{
    window();
    const bool at =
        sender != nullptr ? sender == m_form->atRadioButton : m_form->atRadioButton->isChecked();
    (at ? m_form->atRadioButton : m_form->inRadioButton)->setChecked(true);
    m_form->atPicker->setEnabled(at);
    m_form->inField->setEnabled(!at);
    m_form->inScale->setEnabled(!at);
}

int RunActionsAtController::delayFromField()
{
    const int delay = m_form->inField->text().toInt();
    if (delay >= kMinimumDelay && delay <= kMaximumDelay) {
        return delay;
    }
    m_form->inField->setText(QString::number(kMinimumDelay));
    return kMinimumDelay;
}

QDateTime RunActionsAtController::delayedDate(const QDateTime& now, int delay) const
{
    QDateTime base = startOfMinute(now);
    if (base.msecsTo(now) > kRoundUpMSecs) {
        base = base.addSecs(60);
    }
    // Days and longer follow the calendar, so "in 1 day" keeps the time across a clock change.
    switch (m_form->inScale->currentData().toInt()) {
    case kHoursTag:
        return base.addSecs(qint64(delay) * 3600);
    case kDaysTag:
        return base.addDays(delay);
    case kWeeksTag:
        return base.addDays(qint64(delay) * 7);
    case kMonthsTag:
        return base.addMonths(delay);
    default:
        return base.addSecs(qint64(delay) * 60);
    }
}

void RunActionsAtController::sendActions(const QDateTime& date)
{
    if (m_delegate == nullptr) {
        return;
    }
    // A copy: the delegate may start another sheet while it is told.
    const QStringList actions = m_actions;
    for (const QString& action : actions) {
        try {
            m_delegate->runAction(action, date);
        } catch (const std::exception& exception) {
            Logger::log(3, nullptr,
                        QStringLiteral("Could not schedule %1 for %2")
                            .arg(action, Logger::formatDate(date)),
                        &exception);
        }
    }
}

void RunActionsAtController::runAt()
{
    window();
    const int delay = delayFromField();
    const QDateTime date = m_form->inRadioButton->isChecked()
                               ? delayedDate(m_clock().toLocalTime(), delay)
                               : m_form->atPicker->dateTime();
    sendActions(date);
    m_actions.clear();
    cancelRunAt();
}

void RunActionsAtController::cancelRunAt()
{
    // Closing ends the sheet and, for a modal window, its session as well.
    if (m_window) {
        m_window->reject();
    }
}
