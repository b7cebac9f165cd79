#include "statuswindow/ArchiveStatusViewController.h"

#include "preferences/ImpermanentValues.h"
#include "status/RepositoryStatus.h"
#include "statuswindow/ArchiveStatusWindowController.h"
#include "statuswindow/StatusWindowHost.h"
#include "ui_ArchiveStatusViewController.h"

#include <QDateTime>
#include <QFileInfo>
#include <QMenu>

namespace {

void showLights(StatusLightView* ok, StatusLightView* warning, StatusLightView* critical,
                const StatusIndicators& indicators)
{
    ok->setLit(indicators.OKLight);
    warning->setLit(indicators.warningLight);
    critical->setLit(indicators.criticalLight);
}

void setRoles(StatusLightView* ok, StatusLightView* warning, StatusLightView* critical)
{
    ok->setRole(StatusLightView::Role::OK);
    warning->setRole(StatusLightView::Role::Warning);
    critical->setRole(StatusLightView::Role::Critical);
}

// Hidden pages take no room: a summary row is as low as its summary.
void showOnly(std::initializer_list<QWidget*> pages, QWidget* page)
{
    for (QWidget* each : pages) {
        each->setVisible(each == page);
    }
}

} // namespace

const QStringList& ArchiveStatusViewController::ignoreKeys()
{
    static const QStringList keys{
        RepositoryGrade::kIgnoreCaptureWarnings, RepositoryGrade::kIgnoreVerifyWarnings,
        RepositoryGrade::kIgnoreSizeWarnings, RepositoryGrade::kIgnoreRepairWarnings};
    return keys;
}

const QVariantList& ArchiveStatusViewController::ignoreValues()
{
    static const QVariantList values{true, true, true, true};
    return values;
}

ArchiveStatusViewController::ArchiveStatusViewController(Context context, QObject* parent)
    : WTLegacyViewController(parent)
    , m_context(context)
{}

ArchiveStatusViewController::~ArchiveStatusViewController() = default;

void ArchiveStatusViewController::setWindowController(ArchiveStatusWindowController* controller)
{
    m_windowController = controller;
}

QWidget* ArchiveStatusViewController::loadView()
{
    auto* view = new MonitorStackedContainerView;
    m_form = std::make_unique<Ui::ArchiveStatusViewController>();
    m_form->setupUi(view);
    setRoles(m_form->summaryOKLight, m_form->summaryWarningLight, m_form->summaryCriticalLight);
    setRoles(m_form->captureOKLight, m_form->captureWarningLight, m_form->captureCriticalLight);
    setRoles(m_form->verifyOKLight, m_form->verifyWarningLight, m_form->verifyCriticalLight);
    setRoles(m_form->spaceOKLight, m_form->spaceWarningLight, m_form->spaceCriticalLight);
    m_form->repairLight->setRole(StatusLightView::Role::Critical);
    m_form->repairLight->setLit(true);
    view->setAccessibleDescription(
        tr("Space shows or hides the details; the menu key opens the archive's menu."));
    connect(view, &QWidget::customContextMenuRequested, this,
            [this, view](const QPoint& position) { openMenuAt(view->mapToGlobal(position)); });
    connect(m_form->actionButton, &QToolButton::clicked, this, [this] {
        QWidget* button = m_form->actionButton;
        openMenuAt(button->mapToGlobal(QPoint(0, button->height())));
    });
    connect(m_form->viewLogButton, &QPushButton::clicked, this,
            &ArchiveStatusViewController::viewLog);
    connect(m_form->repairButton, &QPushButton::clicked, this,
            &ArchiveStatusViewController::repairRepository);
    connect(m_form->sizeView, &ArchiveStatusSizeView::viewModeSelected, this,
            [this](unsigned mode) { setImpermanentValue(qint64(mode), kSizeViewMode); });
    return view;
}

void ArchiveStatusViewController::setStatus(const StatusMirrorScan::Entry& entry)
{
    view();
    m_entry = entry;
    if (!m_entry.status) {
        showUnreadable();
        return;
    }
    reevaluateStatus();
}

void ArchiveStatusViewController::reevaluateStatus()
{
    if (!m_entry.status) {
        return;
    }
    m_grade = RepositoryGrade::gradeStatus(*m_entry.status, *m_context.defaults,
                                           m_context.impermanentValues);
    m_warning = m_grade.isWarning();
    m_critical = m_grade.isCritical();
    showGrade();
    setShowingRepair(m_grade.needsRepair);
}

void ArchiveStatusViewController::showGrade()
{
    RepositoryStatus& status = *m_entry.status;
    const QString name = status.displayName();
    view()->setAccessibleName(name);
    m_form->nameField->setText(name);
    m_form->titleField->setText(name);
    showLights(m_form->summaryOKLight, m_form->summaryWarningLight, m_form->summaryCriticalLight,
               m_grade.summary);
    m_form->summaryField->setText(
        m_grade.needsRepair ? m_grade.repairText
                            : m_grade.capture.title + QStringLiteral(" · ") + m_grade.verify.title);
    showLights(m_form->captureOKLight, m_form->captureWarningLight, m_form->captureCriticalLight,
               m_grade.capture);
    m_form->captureField->setText(m_grade.capture.title);
    showLights(m_form->verifyOKLight, m_form->verifyWarningLight, m_form->verifyCriticalLight,
               m_grade.verify);
    m_form->verifyField->setText(m_grade.verify.title);
    showLights(m_form->spaceOKLight, m_form->spaceWarningLight, m_form->spaceCriticalLight,
               m_grade.space);
    m_form->sizeView->setPropertiesFromStatus(status);
    m_form->repairField->setText(m_grade.repairText);
    m_form->repairLight->setLit(m_grade.summary.criticalLight);
    // Hidden, not disabled: a button that can never work is noise.
    m_form->viewLogButton->setVisible(!status.logLineIdentifier().isEmpty());
}

void ArchiveStatusViewController::showUnreadable()
{
    m_grade = RepositoryGrade();
    m_warning = false;
    m_critical = false;
    const QString name = QFileInfo(m_entry.mirrorPath).fileName();
    view()->setAccessibleName(name);
    m_form->nameField->setText(name);
    m_form->summaryField->setText(
        tr("This archive status cannot be read (%1). Forget it from the menu.")
            .arg(m_entry.problem));
    showLights(m_form->summaryOKLight, m_form->summaryWarningLight, m_form->summaryCriticalLight,
               StatusIndicators{false, true, false, {}});
    m_showingRepair = false;
    m_showingDetails = false;
    showPage();
}

bool ArchiveStatusViewController::defaultDetailsShowing() const
{
    return impermanentValueForKey(kStatusDetails).toBool();
}

void ArchiveStatusViewController::setShowingRepair(bool repair)
{
    if (repair == m_showingRepair) {
        showPage();
        return;
    }
    m_showingRepair = repair;
    if (!repair) {
        m_showingDetails = defaultDetailsShowing();
    }
    showPage();
}

void ArchiveStatusViewController::restoreDefaultView()
{
    m_showingDetails = defaultDetailsShowing();
    bool isNumber = false;
    const uint mode = impermanentValueForKey(kSizeViewMode).toUInt(&isNumber);
    if (isNumber && mode <= 2) {
        view();
        m_form->sizeView->setViewMode(mode, false);
    }
    showPage();
}

void ArchiveStatusViewController::showPage()
{
    view();
    QWidget* page = m_form->summaryView;
    if (m_entry.status && m_showingRepair) {
        page = m_form->repairView;
    } else if (m_entry.status && m_showingDetails) {
        page = m_form->detailedView;
    }
    showOnly({m_form->summaryView, m_form->detailedView, m_form->repairView}, page);
    Q_EMIT viewChanged();
}

void ArchiveStatusViewController::toggleDetails(QObject*)
{
    if (!m_entry.status || m_showingRepair) {
        return;
    }
    if (m_windowController) {
        m_windowController->didToggleDetails();
    }
    m_showingDetails = !m_showingDetails;
    setImpermanentValue(m_showingDetails, kStatusDetails);
    showPage();
}

QMenu* ArchiveStatusViewController::actionMenu(QWidget* parent)
{
    auto* menu = new QMenu(parent);
    menu->setAccessibleName(tr("Archive actions"));
    const auto add = [this, menu](const QString& title, const char* name, auto slot) {
        QAction* action = menu->addAction(title, this, slot);
        action->setObjectName(QString::fromLatin1(name));
        action->setEnabled(validateUserInterfaceItem(action));
        return action;
    };
    add(tr("View Log"), "viewLog", &ArchiveStatusViewController::viewLog);
    add(tr("Repair…"), "repairRepository", &ArchiveStatusViewController::repairRepository);
    add(tr("Show in File Manager"), "revealRepository",
        &ArchiveStatusViewController::revealRepository);
    menu->addSeparator();
    const QStringList titles{tr("Ignore Capture Warnings"), tr("Ignore Verify Warnings"),
                             tr("Ignore Space Warnings"), tr("Ignore Repair Warnings")};
    for (int tag = 1; tag <= int(titles.size()); ++tag) {
        QAction* action =
            add(titles.at(tag - 1), "ignoreWarnings", [this, tag] { ignoreWarnings(tag); });
        action->setData(tag);
        action->setCheckable(true);
        action->setChecked(m_entry.status && impermanentValueForKey(ignoreKeys().at(tag - 1)) ==
                                                 ignoreValues().at(tag - 1));
        action->setEnabled(validateUserInterfaceItem(action));
    }
    menu->addSeparator();
    add(tr("Forget This Archive"), "forgetStatus", &ArchiveStatusViewController::forgetStatus);
    return menu;
}

void ArchiveStatusViewController::openMenuAt(const QPoint& position)
{
    QMenu* menu = actionMenu(view());
    menu->setAttribute(Qt::WA_DeleteOnClose);
    menu->popup(position);
}

bool ArchiveStatusViewController::validateUserInterfaceItem(const QAction* item) const
{
    const QString name = item->objectName();
    if (name == QStringLiteral("forgetStatus")) {
        return true;
    }
    if (!m_entry.status) {
        return false; // an unreadable status can only be forgotten
    }
    if (name == QStringLiteral("viewLog")) {
        return !m_entry.status->logLineIdentifier().isEmpty();
    }
    if (name == QStringLiteral("repairRepository")) {
        return m_entry.status->needsRepair();
    }
    if (name == QStringLiteral("revealRepository")) {
        const QString path = m_entry.status->repositoryPath();
        return !path.isEmpty() && QFileInfo::exists(path);
    }
    if (name == QStringLiteral("ignoreWarnings")) {
        const int tag = item->data().toInt();
        return ignoreKeys().value(tag - 1) != RepositoryGrade::kIgnoreRepairWarnings ||
               m_entry.status->needsRepair();
    }
    return false;
}

void ArchiveStatusViewController::viewLog()
{
    if (m_entry.status) {
        m_context.host->viewLogLine(m_entry.status->logLineIdentifier());
    }
}

void ArchiveStatusViewController::repairRepository()
{
    if (m_entry.status) {
        m_context.host->openRepository(m_entry.status->repositoryPath(), kRepairAction);
    }
}

void ArchiveStatusViewController::revealRepository()
{
    if (m_entry.status) {
        m_context.host->revealInFileViewer(m_entry.status->repositoryPath());
    }
}

void ArchiveStatusViewController::forgetStatus()
{
    if (m_windowController) {
        m_windowController->forgetStatus(m_entry);
    }
}

void ArchiveStatusViewController::ignoreWarnings(int tag)
{
    if (tag < 1 || tag > int(ignoreKeys().size()) || !m_entry.status) {
        return;
    }
    const QString& key = ignoreKeys().at(tag - 1);
    const QVariant& value = ignoreValues().at(tag - 1);
    if (impermanentValueForKey(key) == value) {
        setImpermanentValue(QVariant(), key);
    } else {
        setImpermanentValue(value.typeId() == QMetaType::QDateTime
                                ? QVariant(QDateTime::currentDateTimeUtc())
                                : value,
                            key);
    }
    reevaluateStatus();
    if (m_windowController) {
        m_windowController->statusesDidChange();
    }
}

bool ArchiveStatusViewController::ignoringWarningsForKey(const QString& key) const
{
    return RepositoryGrade::countsAsIgnored(impermanentValueForKey(key));
}

QVariant ArchiveStatusViewController::impermanentValueForKey(const QString& key) const
{
    return m_context.impermanentValues->impermanentValueForKey(key, uuid());
}

void ArchiveStatusViewController::setImpermanentValue(const QVariant& value, const QString& key)
{
    m_context.impermanentValues->setImpermanentValue(value, key, uuid());
}
