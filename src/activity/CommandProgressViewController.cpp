#include "activity/CommandProgressViewController.h"

#include "activity/CommandUmbrellaViewController.h"
#include "activity/MonitorProgressIndicator.h"
#include "tracking/ActivityProgressManager.h"
#include "ui_CommandProgressControlMenu.h"
#include "ui_CommandProgressViewController.h"

#include <QMenu>
#include <QToolButton>

namespace {
const QString kCanCancel = QStringLiteral("can.cancel");
const QString kMax = QStringLiteral("max");
const QString kMin = QStringLiteral("min");
const QString kValue = QStringLiteral("value");

bool isNull(const QVariant& value)
{
    return value.typeId() == QMetaType::Nullptr;
}
} // namespace

CommandProgressViewController::CommandProgressViewController(QObject* parent)
    : CommandPaneViewController(parent)
{}

CommandProgressViewController::~CommandProgressViewController()
{
    delete m_controlMenu;
}

QWidget* CommandProgressViewController::loadView()
{
    auto* view = new CommandPaneContainerView;
    Ui::CommandProgressViewController form;
    form.setupUi(view);
    adoptFields(form.titleField, form.runTimeField, form.stopButton, form.progressIndicator);
    return view;
}

void CommandProgressViewController::adoptFields(QLabel* title, QLabel* runTime, QToolButton* stop,
                                                MonitorProgressIndicator* indicator)
{
    m_titleField = title;
    m_runTimeField = runTime;
    m_stopButton = stop;
    m_progressIndicator = indicator;
    connect(stop, &QToolButton::clicked, this, &CommandProgressViewController::stopButtonClicked);
}

void CommandProgressViewController::viewDidLoad()
{
    loadControlMenu(view());
}

void CommandProgressViewController::loadControlMenu(QWidget* view)
{
    m_controlMenu = new QMenu;
    Ui::CommandProgressControlMenu menu;
    menu.setupUi(m_controlMenu);
    // The submenu stands for its items when the menu is validated.
    menu.pauseMenu->menuAction()->setProperty("action", QByteArrayLiteral("pauseCommand"));
    const QList<QAction*> actions = m_controlMenu->findChildren<QAction*>();
    for (QAction* action : actions) {
        const QByteArray selector = action->property("action").toByteArray();
        if (selector.isEmpty() || action->menu() != nullptr) {
            continue;
        }
        connect(action, &QAction::triggered, this,
                [this, action, selector] { tryToPerform(selector.constData(), action); });
    }
    connect(m_controlMenu, &QMenu::aboutToShow, this, [this] { menuNeedsUpdate(m_controlMenu); });
    connect(view, &QWidget::customContextMenuRequested, this,
            &CommandProgressViewController::showControlMenu);
}

void CommandProgressViewController::showControlMenu(const QPoint& position)
{
    m_controlMenu->popup(view()->mapToGlobal(position));
}

void CommandProgressViewController::menuNeedsUpdate(QMenu* menu)
{
    CommandUmbrellaViewController* umbrella = umbrellaController();
    const QList<QAction*> items = menu->actions();
    for (QAction* item : items) {
        if (!item->isSeparator()) {
            item->setEnabled(umbrella != nullptr && umbrella->validateUserInterfaceItem(item));
        }
    }
    const auto resume = std::find_if(items.cbegin(), items.cend(), [](const QAction* item) {
        return item->property("action").toByteArray() == "resumeCommand";
    });
    if (resume == items.cend() || resume == items.cbegin() || umbrella == nullptr ||
        !umbrella->hasCommandStatus()) {
        return;
    }
    const bool paused = umbrella->safeCommandStatus().isPaused;
    (*resume)->setVisible(paused);
    (*(resume - 1))->setVisible(!paused);
}

void CommandProgressViewController::willBeginStatus()
{
    view();
    if (m_progressIndicator) {
        m_progressIndicator->hide();
    }
    m_stopButton->setEnabled(false);
}

void CommandProgressViewController::didBeginStatus()
{
    ActivityProgressManager* manager = progressManager();
    if (manager == nullptr) {
        return;
    }
    m_titleField->setText(manager->displayTitle());
    m_titleField->setToolTip(manager->displayTitle());
    // A screen reader names the pane by its command, not by its kind.
    if (QWidget* pane = view()) {
        pane->setAccessibleName(manager->displayTitle());
    }
    m_runTimeField->setText(manager->displayRunTime());
    disconnect(m_runTimeConnection);
    m_runTimeConnection =
        connect(manager, &ProgressManager::displayRunTimeChanged, m_runTimeField, &QLabel::setText);
    if (m_progressIndicator) {
        const auto showWorking = [indicator = m_progressIndicator](bool working) {
            indicator->setVisible(working);
            indicator->setAnimating(working);
        };
        disconnect(m_workingConnection);
        m_workingConnection =
            connect(manager, &ProgressManager::commandIsWorkingChanged, this, showWorking);
        showWorking(manager->commandIsWorking());
    }
    m_stopButton->setEnabled(true);
}

void CommandProgressViewController::updateStatus(const QVariantMap& progress)
{
    const auto cancel = progress.constFind(kCanCancel);
    if (cancel != progress.cend() && !isNull(*cancel)) {
        m_stopButton->setEnabled(cancel->toBool());
    }
    if (!m_progressIndicator) {
        return;
    }
    const auto max = progress.constFind(kMax);
    if (max != progress.cend()) {
        const double maximum = isNull(*max) ? 0.0 : max->toDouble();
        if (maximum == 0) {
            m_progressIndicator->setIndeterminate(true);
        } else {
            m_progressIndicator->setIndeterminate(false);
            m_progressIndicator->setMaxValue(maximum);
        }
    }
    if (const auto min = progress.constFind(kMin); min != progress.cend() && !isNull(*min)) {
        m_progressIndicator->setMinValue(min->toDouble());
    }
    if (const auto value = progress.constFind(kValue);
        value != progress.cend() && !isNull(*value)) {
        m_progressIndicator->setDoubleValue(value->toDouble());
    }
}

void CommandProgressViewController::didEndStatusWithException(const Exception*)
{
    m_stopButton->hide();
}

void CommandProgressViewController::stopButtonClicked()
{
    tryToPerform("stopCommand", m_stopButton);
}
