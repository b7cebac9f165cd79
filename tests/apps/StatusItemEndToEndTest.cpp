#include "StatusPanelFixture.h"
#include "support/PrivateBus.h"

using namespace Qt::StringLiterals;

namespace {
[[maybe_unused]] const bool s_privateBus = (PrivateBus::use(), true);
} // namespace

class StatusItemEndToEndTest : public StatusPanelFixture
{
protected:
    // As the main application's settings do: the item, with the archives' state on it.
    StatusItemEndToEndTest()
        : StatusPanelFixture({u"KSShowStatusIndicatorInStatusMenu"_s, u"KSShowStatusMenu"_s})
    {}

    // The tool tip's title and text, as a panel shows them.
    QString toolTip() const
    {
        const QDBusArgument argument = itemProperty(u"ToolTip"_s).value<QDBusArgument>();
        QString icon, title, text;
        argument.beginStructure();
        argument >> icon;
        argument.beginArray();
        while (!argument.atEnd()) {
            argument.beginStructure();
            int width = 0, height = 0;
            QByteArray pixels;
            argument >> width >> height >> pixels;
            argument.endStructure();
        }
        argument.endArray();
        argument >> title >> text;
        argument.endStructure();
        return title + (text.isEmpty() ? QString() : u'\n' + text);
    }

    static QStringList labels(const MenuItem& menu)
    {
        QStringList shown;
        for (const MenuItem& item : menu.children) {
            if (item.visible) {
                shown << (item.type == u"separator"_s
                              ? u"-"_s
                              : item.label + (item.enabled ? u""_s : u" (off)"_s));
            }
        }
        return shown;
    }
};

TEST_F(StatusItemEndToEndTest, ThePanelShowsTheItemItsStateAndItsMenu)
{
    EXPECT_EQ(itemProperty(u"Status"_s).toString(), u"Active"_s);
    EXPECT_EQ(toolTip(), u"Kestrom Activity Monitor"_s);
    const QStringList idle = labels(openMenu());
    EXPECT_EQ(idle, (QStringList{u"Open Kestrom"_s, u"Show Activity"_s, u"Archive Status… (off)"_s,
                                 u"-"_s, u"Hold All Schedules (off)"_s, u"Resume Schedules (off)"_s,
                                 u"Run Action"_s, u"-"_s, u"Quit Activity Monitor"_s, u"-"_s,
                                 u"Idle (off)"_s}))
        << idle.join(u" | "_s).toStdString();

    // A command runs and an archive needs repair: the icon says both, the menu lists the command.
    QTemporaryDir archives;
    auto create = ctl({u"archive"_s, u"create"_s, archives.filePath(u"Laptop.stromi"_s),
                       u"--needs-repair"_s, u"--no-history"_s});
    ASSERT_TRUE(create->finished());
    auto command = ctl(words("command capture --id tray.capture --steps 400 --interval-ms 100"));
    ASSERT_TRUE(QTest::qWaitFor(
        [this] {
            return toolTip() == u"Kestrom Activity Monitor\nCommands are running\n"
                                "An archive needs attention now"_s;
        },
        30000))
        << toolTip().toStdString();
    // The pane learns what its command can do by asking it: until the answer, Stop is off.
    MenuItem running;
    ASSERT_TRUE(QTest::qWaitFor(
        [&] {
            running = openMenu();
            return !running.children.isEmpty() &&
                   labels(running.children.last()).contains(u"Stop"_s);
        },
        30000))
        << labels(running).join(u" | "_s).toStdString();
    const QStringList shown = labels(running);
    EXPECT_EQ(shown.at(2), u"Archive Status…"_s);
    ASSERT_EQ(shown.size(), 11) << shown.join(u" | "_s).toStdString();
    EXPECT_TRUE(shown.last().startsWith(u"Capture"_s)) << shown.last().toStdString();
    // Its submenu is the pane's control menu, after the way to its details.
    const QStringList controls = labels(running.children.last());
    EXPECT_EQ(controls.value(0), u"Show Details"_s);
    EXPECT_TRUE(controls.contains(u"Stop"_s)) << controls.join(u" | "_s).toStdString();
}
