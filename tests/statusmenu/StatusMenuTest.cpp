#include "statusmenu/MonitorStatusMenuDelegate.h"
#include "statusmenu/StatusItemImage.h"
#include "statusmenu/StatusMenuHost.h"
#include "statusmenu/StatusMenuStyle.h"

#include <QAction>
#include <QDir>
#include <QMenu>
#include <QPainter>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

// The application as the menu sees it; every answer is set by the test.
class FakeMenuHost final : public StatusMenuHost
{
public:
    QList<CommandUmbrellaViewController*> orderedViewControllers() override { return {}; }
    NextAction nextAction() override { return m_next; }
    ArchiveStates archiveStates() override { return m_archives; }
    bool showStatusInStatusItem() override { return m_showStatus; }
    QDateTime now() override { return m_now; }
    bool schedulerConnected() override { return m_connected; }
    std::optional<QDateTime> holdDate() override { return m_hold; }
    std::optional<QVariantList> queryActionsInfo() override
    {
        ++m_queries;
        return m_actions;
    }
    void runActionNow(const QString& actionID) override { m_calls << u"run "_s + actionID; }
    void holdSchedules(int halfHours) override { m_calls << u"hold %1"_s.arg(halfHours); }
    void resumeSchedules() override { m_calls << u"resume"_s; }
    void orderMonitorWindowFront() override { m_calls << u"activity"_s; }
    void orderStatusWindowFront() override { m_calls << u"status"_s; }
    void launchClient() override { m_calls << u"client"_s; }
    void quit() override { m_calls << u"quit"_s; }

    NextAction m_next;
    ArchiveStates m_archives;
    bool m_showStatus = true;
    // Today: readable dates name "today" and "tomorrow" by the real calendar.
    QDateTime m_now = QDateTime(QDate::currentDate(), QTime(10, 0));
    bool m_connected = true;
    std::optional<QDateTime> m_hold;
    std::optional<QVariantList> m_actions = QVariantList{};
    int m_queries = 0;
    QStringList m_calls;
};

QVariantMap action(const QString& title, const QString& uuid, bool runnable, bool archive = true)
{
    QVariantMap info{{u"title"_s, title}, {u"uuid"_s, uuid}, {u"runnable"_s, runnable}};
    if (archive) {
        info.insert(u"repname"_s, u"Documents"_s);
    }
    return info;
}

// The dynamic items after the tag-7 separator, as "text|enabled".
QStringList activityItems(const MonitorStatusMenuDelegate& menu)
{
    QStringList items;
    const QList<QAction*> all = menu.menu()->actions();
    for (qsizetype i = all.indexOf(menu.itemWithTag(7)) + 1; i < all.size(); ++i) {
        items << all.at(i)->text() + (all.at(i)->isEnabled() ? u"|on"_s : u"|off"_s);
    }
    return items;
}

} // namespace

TEST(StatusItemImageTest, TheIconFollowsTheStateBits)
{
    struct Row
    {
        quint64 state;
        bool showStatus;
        bool dark;
        const char* name;
    };
    const Row rows[] = {
        {0, true, false, "MenuBarIcon"},
        {1, true, false, "MenuBarIconActive"},
        {2, true, false, "MenuBarIconHeld"},
        {1 | 2, true, false, "MenuBarIconActive"},
        {4, true, false, "MenuBarIcon+StatusPartiallyAvailable"},
        {4 | 8, true, false, "MenuBarIcon+StatusUnavailable"},
        {2 | 8, true, false, "MenuBarIconHeld+StatusUnavailable"},
        {4 | 8, false, false, "MenuBarIcon"},
        {2 | 4, true, true, "MenuBarIconActive"},
        {2, true, true, "MenuBarIconHeld"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(StatusItemImage::imageName(row.state, row.showStatus, row.dark),
                  QString::fromLatin1(row.name));
        const QIcon icon = StatusItemImage::icon(row.state, row.showStatus, row.dark);
        EXPECT_FALSE(icon.pixmap(22, 22).isNull());
    }
    EXPECT_EQ(StatusItemImage::toolTip(1 | 2 | 8, true),
              u"Kestrom Activity Monitor\nCommands are running\nSchedules are held\n"
              "An archive needs attention now"_s);
    EXPECT_EQ(StatusItemImage::toolTip(4, false), u"Kestrom Activity Monitor"_s);
}

// Every icon at the two sizes panels use most, on a light and a dark panel, for a reviewer.
TEST(StatusItemImageTest, TheIconsAreWrittenForAReviewer)
{
    const quint64 states[] = {0, 1, 2, 4, 8, 2 | 8};
    for (const bool dark : {false, true}) {
        QImage sheet(6 * 56, 2 * 56, QImage::Format_ARGB32);
        sheet.fill(dark ? QColor(0x24, 0x24, 0x24) : QColor(0xf6, 0xf5, 0xf4));
        QPainter painter(&sheet);
        for (int column = 0; column < 6; ++column) {
            const QIcon icon = StatusItemImage::icon(states[column], true, dark);
            painter.drawPixmap(column * 56 + 17, 17, icon.pixmap(22, 22));
            painter.drawPixmap(column * 56 + 6, 62, icon.pixmap(44, 44));
        }
        painter.end();
        const QString path = QDir(QStringLiteral(KESTROM_IMAGE_DIR))
                                 .filePath(dark ? u"status-item-icons-dark.png"_s
                                                : u"status-item-icons-light.png"_s);
        ASSERT_TRUE(sheet.save(path)) << path.toStdString();
    }
}

TEST(StatusMenuTest, IdleTheMenuNamesTheNextActionAndTheFixedItemsAct)
{
    FakeMenuHost host;
    MonitorStatusMenuDelegate menu(host);
    Q_EMIT menu.menu()->aboutToShow();
    EXPECT_EQ(activityItems(menu), QStringList{u"Idle|off"_s});

    host.m_next = {u"Daily Capture"_s, QDateTime(QDate(2026, 11, 24), QTime(14, 30))};
    Q_EMIT menu.menu()->aboutToShow();
    ASSERT_EQ(activityItems(menu).size(), 1) << "the last opening's items are gone";
    EXPECT_TRUE(activityItems(menu).first().startsWith(u"Daily Capture\t"_s));

    // Disabled items do nothing: only what the state allows reaches the application.
    menu.itemWithTag(2)->trigger();
    menu.itemWithTag(5)->trigger();
    EXPECT_TRUE(host.m_calls.isEmpty());
    host.m_archives.hasStatus = true;
    host.m_hold = host.m_now.addSecs(600);
    Q_EMIT menu.menu()->aboutToShow();
    menu.itemWithTag(2)->trigger();
    menu.itemWithTag(5)->trigger();
    for (QAction* hold : menu.itemWithTag(4)->menu()->actions()) {
        hold->trigger();
    }
    EXPECT_EQ(host.m_calls, (QStringList{u"status"_s, u"resume"_s, u"hold 1"_s, u"hold 2"_s,
                                         u"hold 4"_s, u"hold 8"_s, u"hold 16"_s, u"hold 0"_s}));
}

TEST(StatusMenuTest, TheHoldItemSaysUntilWhenAndResumeFollowsTheHoldDate)
{
    FakeMenuHost host;
    MonitorStatusMenuDelegate menu(host);
    struct Row
    {
        std::optional<QDateTime> hold;
        bool connected;
        const char* title;
        bool holdEnabled;
        bool resumeEnabled;
    };
    const QDateTime now = host.m_now;
    const Row rows[] = {
        {std::nullopt, true, "Hold All Schedules", true, false},
        {std::nullopt, false, "Hold All Schedules", false, false},
        // A hold date in the past: holding is offered again, resuming still is.
        {now.addSecs(-60), true, "Hold All Schedules", true, true},
        {now.addSecs(3600), true, "Schedules Held Until 11:00", false, true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.title);
        host.m_hold = row.hold;
        host.m_connected = row.connected;
        Q_EMIT menu.menu()->aboutToShow();
        QAction* hold = menu.itemWithTag(4);
        EXPECT_TRUE(hold->text().startsWith(QString::fromLatin1(row.title)))
            << hold->text().toStdString();
        EXPECT_EQ(hold->isEnabled(), row.holdEnabled);
        EXPECT_EQ(menu.itemWithTag(5)->isEnabled(), row.resumeEnabled);
    }
    // Beyond a day the date is named too; beyond two, only the date.
    host.m_hold = now.addSecs(86400 + 3600);
    Q_EMIT menu.menu()->aboutToShow();
    const QString tomorrow = menu.itemWithTag(4)->text();
    host.m_hold = now.addDays(5);
    Q_EMIT menu.menu()->aboutToShow();
    const QString later = menu.itemWithTag(4)->text();
    EXPECT_EQ(tomorrow, u"Schedules Held Until Tomorrow 11:00 AM"_s) << tomorrow.toStdString();
    EXPECT_TRUE(later.contains(QString::number(now.addDays(5).date().day())) &&
                !later.contains(u"10:00"_s))
        << later.toStdString();
}

TEST(StatusMenuTest, RunActionListsTheSchedulersActionsByTitle)
{
    FakeMenuHost host;
    host.m_actions = QVariantList{
        action(u"Weekly Verify"_s, u"V"_s, true), action(u"Daily Capture"_s, u"C"_s, true),
        action(u"Paused Compact"_s, u"P"_s, false), action(u"Lost Archive"_s, u"L"_s, true, false)};
    MonitorStatusMenuDelegate menu(host);
    Q_EMIT menu.menu()->aboutToShow();
    QAction* run = menu.itemWithTag(6);
    QStringList shown;
    for (QAction* item : run->menu()->actions()) {
        shown << item->text() + (item->isEnabled() ? u"|on"_s : u"|off"_s);
    }
    EXPECT_EQ(shown, (QStringList{u"Daily Capture|on"_s, u"Lost Archive|off"_s,
                                  u"Paused Compact|off"_s, u"Weekly Verify|on"_s}));
    EXPECT_TRUE(run->isEnabled());
    run->menu()->actions().first()->trigger();
    EXPECT_EQ(host.m_calls, QStringList{u"run C"_s});

    // A scheduler that does not answer, or is not there, leaves the item as it was.
    host.m_actions.reset();
    Q_EMIT menu.menu()->aboutToShow();
    EXPECT_EQ(run->menu()->actions().size(), 4);
    EXPECT_TRUE(run->isEnabled());
    host.m_connected = false;
    const int queries = host.m_queries;
    Q_EMIT menu.menu()->aboutToShow();
    EXPECT_EQ(host.m_queries, queries) << "nobody to ask";
    EXPECT_EQ(run->menu()->actions().size(), 4);

    host.m_connected = true;
    host.m_actions = QVariantList{action(u"Daily Capture"_s, u"C"_s, false)};
    Q_EMIT menu.menu()->aboutToShow();
    EXPECT_FALSE(run->isEnabled()) << "no action can run now";
}

TEST(StatusMenuTest, TheArchiveStatusItemShowsTheWorstStateWhenAskedTo)
{
    FakeMenuHost host;
    MonitorStatusMenuDelegate menu(host);
    QAction* status = menu.itemWithTag(2);
    struct Row
    {
        StatusMenuHost::ArchiveStates states;
        bool showStatus;
        bool checked;
        bool enabled;
    };
    const Row rows[] = {{{false, false, false}, true, false, false},
                        {{true, false, false}, true, false, true},
                        {{true, true, false}, true, true, true},
                        {{true, true, true}, true, true, true},
                        {{true, true, true}, false, false, true}};
    for (const Row& row : rows) {
        host.m_archives = row.states;
        host.m_showStatus = row.showStatus;
        Q_EMIT menu.menu()->aboutToShow();
        EXPECT_EQ(status->isChecked(), row.checked);
        EXPECT_EQ(status->icon().isNull(), !row.checked);
        EXPECT_EQ(status->isEnabled(), row.enabled);
    }
}

TEST(StatusMenuTest, WhatFollowsATabIsDrawnSmallerAndGrey)
{
    FakeMenuHost host;
    MonitorStatusMenuDelegate menu(host);
    EXPECT_NE(qobject_cast<StatusMenuStyle*>(menu.menu()->style()), nullptr);

    QFont font(u"Sans Serif"_s);
    font.setPointSizeF(14);
    EXPECT_EQ(StatusMenuStyle::secondaryFont(font).pointSizeF(), 10.0);
    font.setPointSizeF(9);
    EXPECT_EQ(StatusMenuStyle::secondaryFont(font).pointSizeF(),
              StatusMenuStyle::kMinimumSecondaryPointSize)
        << "a desktop's small menu font keeps the run time legible";

    QPalette light(Qt::white);
    light.setColor(QPalette::Text, Qt::black);
    light.setColor(QPalette::Base, Qt::white);
    const QColor grey = StatusMenuStyle::secondaryColor(light, false);
    EXPECT_GT(grey.lightness(), 0);
    EXPECT_LT(grey.lightness(), 128) << "dark enough to read on white";
}
