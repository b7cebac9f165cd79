#include "statusmenu/MonitorStatusMenuDelegate.h"

#include "activity/CommandUmbrellaViewController.h"
#include "foundation/HumanReadableString.h"
#include "statusmenu/StatusItemImage.h"
#include "statusmenu/StatusMenuHost.h"
#include "statusmenu/StatusMenuStyle.h"
#include "tracking/ActivityProgressManager.h"
#include "ui_StatusMenu.h"

#include <QCollator>
#include <QMenu>
#include <QTimer>
#include <algorithm>

namespace {

int tagOf(const QAction* action)
{
    const QVariant tag =
        action->menu() != nullptr ? action->menu()->property("tag") : action->property("tag");
    return tag.isValid() ? tag.toInt() : -1;
}

QIcon namedIcon(const QString& name)
{
    return QIcon(QStringLiteral(":/statusmenu/images/%1.svg").arg(name));
}

// A copy of a pane's control menu whose items act on that pane, validated as the pane's own
// menu would be when it opens.
QMenu* copyOfControlMenu(QMenu* source, CommandUmbrellaViewController* pane, QWidget* parent)
{
    Q_EMIT source->aboutToShow();
    auto* copy = new QMenu(source->title(), parent);
    const QPointer<CommandUmbrellaViewController> target(pane);
    for (QAction* item : source->actions()) {
        if (item->isSeparator()) {
            copy->addSeparator();
            continue;
        }
        if (item->menu() != nullptr) {
            QMenu* submenu = copyOfControlMenu(item->menu(), pane, copy);
            submenu->menuAction()->setEnabled(item->isEnabled());
            submenu->menuAction()->setVisible(item->isVisible());
            copy->addMenu(submenu);
            continue;
        }
        QAction* copied = copy->addAction(item->text());
        copied->setEnabled(item->isEnabled());
        copied->setVisible(item->isVisible());
        copied->setCheckable(item->isCheckable());
        copied->setChecked(item->isChecked());
        for (const QByteArray& name : item->dynamicPropertyNames()) {
            copied->setProperty(name.constData(), item->property(name.constData()));
        }
        const QByteArray selector = item->property("action").toByteArray();
        QObject::connect(copied, &QAction::triggered, copied, [target, selector, copied] {
            if (target && !selector.isEmpty()) {
                target->tryToPerform(selector.constData(), copied);
            }
        });
    }
    return copy;
}

} // namespace

MonitorStatusMenuDelegate::MonitorStatusMenuDelegate(StatusMenuHost& host, QObject* parent)
    : QObject(parent)
    , m_host(host)
    , m_style(std::make_unique<StatusMenuStyle>())
    , m_menu(std::make_unique<QMenu>())
{
    Ui::StatusMenu form;
    form.setupUi(m_menu.get());
    m_menu->setStyle(m_style.get());
    form.actionActivitySeparator->setSeparator(true);
    connect(form.actionOpenClient, &QAction::triggered, this, [this] { m_host.launchClient(); });
    connect(form.actionShowActivity, &QAction::triggered, this,
            [this] { m_host.orderMonitorWindowFront(); });
    connect(form.actionArchiveStatus, &QAction::triggered, this,
            [this] { m_host.orderStatusWindowFront(); });
    connect(form.actionResume, &QAction::triggered, this, [this] { m_host.resumeSchedules(); });
    connect(form.actionQuit, &QAction::triggered, this, [this] { m_host.quit(); });
    for (QAction* hold : form.holdMenu->actions()) {
        if (!hold->isSeparator()) {
            connect(hold, &QAction::triggered, this,
                    [this, hold] { m_host.holdSchedules(hold->property("halfHours").toInt()); });
        }
    }
    connect(m_menu.get(), &QMenu::aboutToShow, this, &MonitorStatusMenuDelegate::menuNeedsUpdate);
    connect(m_menu.get(), &QMenu::aboutToHide, this, &MonitorStatusMenuDelegate::menuDidClose);
}

MonitorStatusMenuDelegate::~MonitorStatusMenuDelegate() = default;

QAction* MonitorStatusMenuDelegate::itemWithTag(int tag) const
{
    const QList<QAction*> items = m_menu->actions();
    const auto found = std::find_if(items.cbegin(), items.cend(),
                                    [tag](const QAction* item) { return tagOf(item) == tag; });
    return found == items.cend() ? nullptr : *found;
}

QList<QAction*> MonitorStatusMenuDelegate::activityItems() const
{
    const QList<QAction*> items = m_menu->actions();
    const qsizetype separator = items.indexOf(itemWithTag(7));
    return separator < 0 ? QList<QAction*>() : items.mid(separator + 1);
}

void MonitorStatusMenuDelegate::menuNeedsUpdate()
{
    for (QAction* item : activityItems()) {
        m_menu->removeAction(item);
        item->deleteLater();
    }
    m_runningActions.clear();
    addActivityItems();
    updateHoldItems();
    updateRunActionItem();
    updateArchiveStatusItem();
}

void MonitorStatusMenuDelegate::addActivityItems()
{
    const QList<CommandUmbrellaViewController*> panes = m_host.orderedViewControllers();
    if (panes.isEmpty()) {
        const StatusMenuHost::NextAction next = m_host.nextAction();
        QString text = next.title.isEmpty() ? QStringLiteral("Idle") : next.title;
        // After a tab the menu's style sets the date apart, small and grey, where shortcuts
        // stand.
        if (next.time.isValid()) {
            text +=
                QLatin1Char('\t') + HumanReadableString::stringWithReadableFullDateTime(next.time);
        }
        m_menu->addAction(text)->setEnabled(false);
        return;
    }
    for (CommandUmbrellaViewController* pane : panes) {
        ActivityProgressManager* manager = pane->progressManager();
        QString text = manager != nullptr ? manager->displayTitle() : QString();
        if (manager != nullptr && pane->safeCommandStatus().isRunning &&
            !manager->displayRunTime().isEmpty()) {
            text += QLatin1Char('\t') + manager->displayRunTime();
        }
        QAction* item = m_menu->addAction(text);
        if (pane->showingAlert()) {
            item->setIcon(namedIcon(QStringLiteral("WarningSmall")));
        }
        const QPointer<CommandUmbrellaViewController> target(pane);
        connect(item, &QAction::triggered, this, [this, target] {
            if (target) {
                target->setShowingDetails(true);
            }
            m_host.orderMonitorWindowFront();
        });
        if (QMenu* controls = pane->controlMenu()) {
            // An item with a submenu only opens it: the details are its first entry.
            QMenu* submenu = copyOfControlMenu(controls, pane, m_menu.get());
            QAction* details = new QAction(QStringLiteral("Show Details"), submenu);
            connect(details, &QAction::triggered, item, &QAction::trigger);
            submenu->insertAction(submenu->actions().value(0), details);
            submenu->insertSeparator(submenu->actions().value(1));
            item->setMenu(submenu);
        }
        if (manager != nullptr) {
            if (const QString action = manager->actionUUIDReturningCachedValue(true);
                !action.isEmpty()) {
                m_runningActions.insert(action);
            }
        }
    }
}

void MonitorStatusMenuDelegate::updateHoldItems()
{
    QAction* hold = itemWithTag(4);
    const std::optional<QDateTime> holdDate = m_host.holdDate();
    const QDateTime now = m_host.now();
    if (holdDate && *holdDate > now) {
        const qint64 ahead = now.secsTo(*holdDate);
        QString when;
        if (ahead <= 86400) {
            when = HumanReadableString::stringWithReadableShortTime(*holdDate);
        } else if (ahead <= 172800) {
            when = HumanReadableString::stringWithReadableFullDateTime(*holdDate);
        } else {
            when = HumanReadableString::stringWithReadableDate(*holdDate, 4);
        }
        hold->setText(QStringLiteral("Schedules Held Until %1").arg(when));
        hold->setEnabled(false);
    } else {
        hold->setText(QStringLiteral("Hold All Schedules"));
        hold->setEnabled(m_host.schedulerConnected());
    }
    itemWithTag(5)->setEnabled(holdDate.has_value());
}

void MonitorStatusMenuDelegate::updateRunActionItem()
{
    QAction* run = itemWithTag(6);
    if (!m_host.schedulerConnected()) {
        return;
    }
    const std::optional<QVariantList> actions = m_host.queryActionsInfo();
    if (!actions) {
        return; // as it was: a scheduler that does not answer changes nothing here
    }
    QVariantList sorted = *actions;
    QCollator collator;
    std::stable_sort(
        sorted.begin(), sorted.end(), [&collator](const QVariant& a, const QVariant& b) {
            return collator.compare(a.toMap().value(QStringLiteral("title")).toString(),
                                    b.toMap().value(QStringLiteral("title")).toString()) < 0;
        });
    QMenu* submenu = run->menu();
    submenu->clear();
    bool anyEnabled = false;
    for (const QVariant& value : std::as_const(sorted)) {
        const QVariantMap action = value.toMap();
        const QString uuid = action.value(QStringLiteral("uuid")).toString();
        QAction* item = submenu->addAction(action.value(QStringLiteral("title")).toString());
        const bool enabled = action.contains(QStringLiteral("repname")) &&
                             action.value(QStringLiteral("runnable")).toBool() &&
                             !m_runningActions.contains(uuid);
        item->setEnabled(enabled);
        anyEnabled |= enabled;
        connect(item, &QAction::triggered, this, [this, uuid] { m_host.runActionNow(uuid); });
    }
    run->setEnabled(anyEnabled);
}

void MonitorStatusMenuDelegate::updateArchiveStatusItem()
{
    QAction* status = itemWithTag(2);
    const StatusMenuHost::ArchiveStates states = m_host.archiveStates();
    QString image;
    if (m_host.showStatusInStatusItem()) {
        if (states.criticals) {
            image = QStringLiteral("StatusUnavailable");
        } else if (states.warnings) {
            image = QStringLiteral("StatusPartiallyAvailable");
        }
    }
    status->setIcon(image.isEmpty() ? QIcon() : namedIcon(image));
    status->setCheckable(!image.isEmpty());
    status->setChecked(!image.isEmpty());
    status->setEnabled(states.hasStatus);
}

void MonitorStatusMenuDelegate::menuDidClose()
{
    // Not at once: the chosen item's action still needs its submenu.
    QTimer::singleShot(0, this, &MonitorStatusMenuDelegate::menuCleanup);
}

void MonitorStatusMenuDelegate::menuCleanup()
{
    for (QAction* item : activityItems()) {
        if (QMenu* submenu = item->menu()) {
            item->setMenu(nullptr);
            submenu->deleteLater();
        }
    }
}
