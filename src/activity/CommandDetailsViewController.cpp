#include "activity/CommandDetailsViewController.h"

#include "activity/ProgressDescriptionField.h"
#include "errors/AlertInfo.h"
#include "tracking/ActivityProgressManager.h"
#include "ui_CommandDetailsViewController.h"

#include <QMenu>
#include <QProgressBar>
#include <QToolButton>
#include <limits>

namespace {
const QString kMax = QStringLiteral("max");
const QString kMin = QStringLiteral("min");
const QString kValue = QStringLiteral("value");
// The thermometer counts in steps of this fraction of its range, so that large byte counts
// fit the bar's integer range.
constexpr double kThermometerSteps = 10000.0;

bool isNull(const QVariant& value)
{
    return value.typeId() == QMetaType::Nullptr;
}
} // namespace

CommandDetailsViewController::CommandDetailsViewController(QObject* parent)
    : CommandProgressViewController(parent)
{}

std::unique_ptr<CommandProgressViewController>
CommandDetailsViewController::makeCollapsedViewController() const
{
    return std::make_unique<CommandProgressViewController>();
}

std::unique_ptr<AlertInfo>
CommandDetailsViewController::alertInfoForException(const Exception&) const
{
    return nullptr;
}

std::unique_ptr<AlertInfo>
CommandDetailsViewController::adjustAlert(std::unique_ptr<AlertInfo> alert, const Exception&) const
{
    return alert;
}

QWidget* CommandDetailsViewController::loadView()
{
    auto* view = new CommandPaneContainerView;
    Ui::CommandDetailsViewController form;
    form.setupUi(view);
    adoptFields(form.titleField, form.runTimeField, form.stopButton, nullptr);
    m_actionButton = form.actionButton;
    m_taskDescription = form.taskDescription;
    m_thermometer = form.thermometer;
    connect(form.actionButton, &QToolButton::clicked, this,
            &CommandDetailsViewController::actionMenu);
    loadCounters(form.countersHost);
    return view;
}

void CommandDetailsViewController::loadCounters(QWidget* host)
{
    host->hide();
}

void CommandDetailsViewController::willBeginStatus()
{
    CommandProgressViewController::willBeginStatus();
    m_taskDescription->bindFullDescriptionTo(progressManager());
    m_thermometerInterderminate = true;
    m_thermometer->setRange(0, 0); // indeterminate: the style animates it
    m_thermometer->setValue(0);
}

void CommandDetailsViewController::updateStatus(const QVariantMap& progress)
{
    CommandProgressViewController::updateStatus(progress);
    const auto max = progress.constFind(kMax);
    if (max != progress.cend()) {
        const double maximum = isNull(*max) ? 0.0 : max->toDouble();
        m_thermometerInterderminate = maximum == 0;
        m_thermometer->setProperty("maxValue", maximum);
        m_thermometer->setRange(0, m_thermometerInterderminate ? 0 : int(kThermometerSteps));
    }
    if (const auto min = progress.constFind(kMin); min != progress.cend() && !isNull(*min)) {
        m_thermometer->setProperty("minValue", min->toDouble());
    }
    if (m_thermometerInterderminate) {
        return;
    }
    if (const auto value = progress.constFind(kValue);
        value != progress.cend() && !isNull(*value)) {
        m_thermometerValue = value->toDouble();
    }
    // A new maximum or minimum alone moves the bar too: the fill is the value between them.
    const double fraction = MonitorProgressIndicator::fillFraction(
        m_thermometerValue, m_thermometer->property("minValue").toDouble(),
        m_thermometer->property("maxValue").toDouble());
    m_thermometer->setValue(int(std::round(fraction * kThermometerSteps)));
}

void CommandDetailsViewController::didEndStatusWithException(const Exception* exception)
{
    CommandProgressViewController::didEndStatusWithException(exception);
    m_thermometerInterderminate = false;
    m_thermometer->setRange(0, int(kThermometerSteps));
    m_thermometer->setValue(m_thermometer->maximum());
    m_actionButton->hide();
}

void CommandDetailsViewController::actionMenu()
{
    view()->setFocus(Qt::OtherFocusReason);
    Q_EMIT view()->customContextMenuRequested(m_actionButton->geometry().bottomLeft());
}
