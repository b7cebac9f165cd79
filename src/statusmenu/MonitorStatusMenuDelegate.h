#pragma once

#include <QObject>
#include <QPointer>
#include <QSet>
#include <memory>

class QAction;
class QMenu;
class StatusMenuHost;
class StatusMenuStyle;

// The status item's menu: fixed items from the "StatusMenu" form, found by their tags (2 the
// archive status, 4 hold, 5 resume, 6 run action, 7 the separator the running commands follow),
// and the running commands, the next action and the scheduler's actions filled in each time the
// menu opens. Submenus made for an opening are let go after it closes. Main thread only.
class MonitorStatusMenuDelegate : public QObject
{
    Q_OBJECT

public:
    explicit MonitorStatusMenuDelegate(StatusMenuHost& host, QObject* parent = nullptr);
    ~MonitorStatusMenuDelegate() override;

    QMenu* menu() const { return m_menu.get(); }
    // The fixed item with the tag; a submenu's item for 4 and 6.
    QAction* itemWithTag(int tag) const;

    void menuNeedsUpdate();
    void menuDidClose();
    void menuCleanup();

private:
    void addActivityItems();
    void updateHoldItems();
    void updateRunActionItem();
    void updateArchiveStatusItem();
    QList<QAction*> activityItems() const;

    StatusMenuHost& m_host;
    // Outlives the menu that draws with it.
    std::unique_ptr<StatusMenuStyle> m_style;
    std::unique_ptr<QMenu> m_menu;
    // The actions of running panes, which cannot be run again now.
    QSet<QString> m_runningActions;
};
