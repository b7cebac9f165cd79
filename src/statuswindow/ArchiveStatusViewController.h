#pragma once

#include "activity/WTLegacyViewController.h"
#include "status/RepositoryGrade.h"
#include "statuswindow/StatusMirrorScan.h"

#include <QPointer>
#include <QVariant>
#include <memory>

class ArchiveStatusWindowController;
class ImpermanentValues;
class MonitorDefaults;
class QAction;
class QMenu;
class StatusWindowHost;

namespace Ui {
class ArchiveStatusViewController;
}

// One archive's row of the status window: a summary, the details (capture, verify and space
// graded with three lights each, and the size bar) or, while the archive needs repair, only
// that. The user's choices for the row (details shown, warnings ignored, the size bar's mode)
// are impermanent values under the archive's UUID. Main thread only.
class ArchiveStatusViewController : public WTLegacyViewController
{
    Q_OBJECT

public:
    struct Context
    {
        StatusWindowHost* host = nullptr;
        MonitorDefaults* defaults = nullptr;
        ImpermanentValues* impermanentValues = nullptr;
    };

    static inline const QString kStatusDetails = QStringLiteral("statusDetails");
    static inline const QString kSizeViewMode = QStringLiteral("KSArchiveStatusSizeViewMode");
    static constexpr qint32 kRepairAction = 3;
    // The ignore menu items, tags counted from 1; the values they store pair with them.
    static const QStringList& ignoreKeys();
    static const QVariantList& ignoreValues();

    ArchiveStatusViewController(Context context, QObject* parent = nullptr);
    ~ArchiveStatusViewController() override;

    void setWindowController(ArchiveStatusWindowController* controller);
    ArchiveStatusWindowController* windowController() const { return m_windowController; }

    // Grades the status and shows it.
    void setStatus(const StatusMirrorScan::Entry& entry);
    const std::shared_ptr<RepositoryStatus>& status() const { return m_entry.status; }
    const StatusMirrorScan::Entry& entry() const { return m_entry; }
    QString uuid() const { return m_entry.uuid(); }
    const RepositoryGrade& grade() const { return m_grade; }
    bool warning() const { return m_warning; }
    bool critical() const { return m_critical; }

    bool showingDetails() const { return m_showingDetails; }
    bool showingRepair() const { return m_showingRepair; }
    bool defaultDetailsShowing() const;
    void setShowingRepair(bool repair);

    void reevaluateStatus();
    void restoreDefaultView();

    // The row's menu as it is now; the caller owns it.
    QMenu* actionMenu(QWidget* parent = nullptr);
    void viewLog();
    void repairRepository();
    void forgetStatus();
    void ignoreWarnings(int tag);
    void revealRepository();
    bool validateUserInterfaceItem(const QAction* item) const;
    bool ignoringWarningsForKey(const QString& key) const;
    QVariant impermanentValueForKey(const QString& key) const;

    Ui::ArchiveStatusViewController& form() const { return *m_form; }

public Q_SLOTS:
    void toggleDetails(QObject* sender);

Q_SIGNALS:
    // The row's height may have changed.
    void viewChanged();

protected:
    QWidget* loadView() override;

private:
    void showGrade();
    void showUnreadable();
    void showPage();
    void setImpermanentValue(const QVariant& value, const QString& key);
    void openMenuAt(const QPoint& position);

    Context m_context;
    QPointer<ArchiveStatusWindowController> m_windowController;
    std::unique_ptr<Ui::ArchiveStatusViewController> m_form;
    StatusMirrorScan::Entry m_entry;
    RepositoryGrade m_grade;
    bool m_warning = false;
    bool m_critical = false;
    bool m_showingDetails = false;
    bool m_showingRepair = false;
};
