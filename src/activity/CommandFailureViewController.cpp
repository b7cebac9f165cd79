#include "activity/CommandFailureViewController.h"

#include "activity/ActivityWindowHost.h"
#include "activity/CommandPaneContainerView.h"
#include "activity/CommandUmbrellaViewController.h"
#include "errors/AlertInfo.h"
#include "exception/Exception.h"
#include "tracking/ActivityProgressManager.h"
#include "ui_CommandFailureViewController.h"

#include <QFileInfo>
#include <QIcon>
#include <QLabel>
#include <QPushButton>

CommandFailureViewController::CommandFailureViewController(QObject* parent)
    : CommandPaneViewController(parent)
{}

CommandFailureViewController::~CommandFailureViewController() = default;

QWidget* CommandFailureViewController::loadView()
{
    auto* view = new CommandPaneContainerView;
    Ui::CommandFailureViewController form;
    form.setupUi(view);
    m_iconField = form.iconField;
    m_titleField = form.titleField;
    m_failureReasonField = form.failureReasonField;
    m_failureDescriptionField = form.failureDescriptionField;
    m_okButton = form.okButton;
    m_repairArchiveButton = form.repairArchiveButton;
    m_viewLogButton = form.viewLogButton;
    connect(m_okButton, &QPushButton::clicked, this, &CommandFailureViewController::dismiss);
    connect(m_viewLogButton, &QPushButton::clicked, this, &CommandFailureViewController::viewLog);
    connect(m_repairArchiveButton, &QPushButton::clicked, this,
            &CommandFailureViewController::repairArchive);
    return view;
}

void CommandFailureViewController::viewDidLoad()
{
    static_cast<CommandPaneContainerView*>(view())->setMultilineTextFields(
        {m_failureDescriptionField});
    m_iconField->setPixmap(QIcon(QStringLiteral(":/activity/images/failure.svg")).pixmap(32, 32));
    QFont reason = m_failureReasonField->font();
    reason.setBold(true);
    m_failureReasonField->setFont(reason);
    m_failureReasonField->setWordWrap(true);
}

void CommandFailureViewController::setEndAlert(const AlertInfo& alert, const Exception& exception)
{
    view();
    ActivityProgressManager* manager = progressManager();
    m_titleField->setText(manager != nullptr ? manager->displayTitle() : QString());
    m_exception = exception.clone();
    m_endAlert = alert.clone();
    AlertActionSet actions = alert.actionSet();
    actions.limitToSet({AlertActionSet::kOK, AlertActionSet::kOpenLog, AlertActionSet::kRepair,
                        AlertActionSet::kReindex});
    actions.includeAction(AlertActionSet::kOK);
    m_repairRepositoryRef = manager != nullptr ? manager->repositoryRef() : QByteArray();
    CommandUmbrellaViewController* umbrella = umbrellaController();
    m_repairRepositoryPath =
        umbrella != nullptr ? umbrella->host().repositoryPath(m_repairRepositoryRef) : QString();
    // No repair of an archive that is not there.
    if (m_repairRepositoryPath.isEmpty() || !QFileInfo::exists(m_repairRepositoryPath)) {
        actions.excludeAction(AlertActionSet::kRepair);
        actions.excludeAction(AlertActionSet::kReindex);
    }
    m_failureReasonField->setText(alert.message());
    m_failureReasonField->setToolTip(alert.message());
    if (QWidget* pane = view()) {
        pane->setAccessibleName(m_titleField->text());
        pane->setAccessibleDescription(alert.message());
    }
    m_failureDescriptionField->setText(alert.informativeText());
    if (!actions.includesAction(AlertActionSet::kOpenLog)) {
        delete m_viewLogButton.data();
    }
    if (!actions.includesAction(AlertActionSet::kRepair) &&
        !actions.includesAction(AlertActionSet::kReindex)) {
        delete m_repairArchiveButton.data();
    } else {
        m_repairActionCommand =
            actions.includesAction(AlertActionSet::kRepair) ? kOpenToRepair : kOpenToReindex;
    }
    m_offeredActions = actions;
}

void CommandFailureViewController::dismiss()
{
    if (CommandUmbrellaViewController* umbrella = umbrellaController()) {
        umbrella->resign();
    }
}

void CommandFailureViewController::viewLog()
{
    if (CommandUmbrellaViewController* umbrella = umbrellaController(); umbrella && m_exception) {
        umbrella->viewLogLine(m_exception->userInfo().value(QStringLiteral(".LogLine")));
    }
    dismiss();
}

void CommandFailureViewController::repairArchive()
{
    if (CommandUmbrellaViewController* umbrella = umbrellaController()) {
        umbrella->host().openRepository(m_repairRepositoryPath, m_repairActionCommand);
    }
    dismiss();
}
