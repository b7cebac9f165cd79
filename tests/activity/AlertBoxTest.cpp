#include "activity/AlertBox.h"

#include "errors/AlertTemplates.h"
#include "errors/CommandAlertInfo.h"
#include "exception/KSException.h"

#include <QAbstractButton>
#include <QDir>
#include <QFile>
#include <QMessageBox>
#include <QPushButton>
#include <QTest>
#include <algorithm>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {
QList<QAbstractButton*> actionButtonsLeftToRight(const QMessageBox& box)
{
    QList<QAbstractButton*> buttons;
    for (QAbstractButton* button : box.buttons()) {
        if (AlertBox::actionOfButton(button) != 0) {
            buttons << button;
        }
    }
    std::sort(buttons.begin(), buttons.end(), [](QAbstractButton* a, QAbstractButton* b) {
        return a->mapToGlobal(QPoint()).x() < b->mapToGlobal(QPoint()).x();
    });
    return buttons;
}

QStringList titles(const QList<QAbstractButton*>& buttons)
{
    QStringList texts;
    for (const QAbstractButton* button : buttons) {
        texts << button->text();
    }
    return texts;
}

QAbstractButton* helpButton(const QMessageBox& box)
{
    for (QAbstractButton* button : box.buttons()) {
        if (box.buttonRole(button) == QMessageBox::HelpRole) {
            return button;
        }
    }
    return nullptr;
}

class AlertBoxes : public ::testing::Test
{
protected:
    // Shows the box so that its buttons are laid out as a user sees them.
    void show(QMessageBox& box)
    {
        box.show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&box, 30000));
    }

    // Leaves what the box looks like where a reviewer finds it.
    static void saveImage(QMessageBox& box, const QString& name)
    {
        const QString path = QDir(QStringLiteral(KESTROM_IMAGE_DIR)).filePath(name);
        QFile::remove(path);
        EXPECT_TRUE(box.grab().save(path, "PNG"));
    }

    QList<QUrl> m_openedHelp;
    AlertBox m_alerts{QUrl(u"file:///usr/share/kestrom/help/index.html"_s),
                      [this](const QUrl& url) {
                          m_openedHelp << url;
                      }};
};
} // namespace

TEST_F(AlertBoxes, DataFailureShowsItsButtonsInCodeOrderWithHelp)
{
    auto exception = KSException::exceptionWithName(u"Data"_s, u"bad block checksum"_s);
    exception.setDetail(u"verify"_s, u".Command"_s);
    const auto info = AlertInfoForAnyCommand(&exception);
    ASSERT_NE(info, nullptr);
    // Readable command names come from command tracking; the alert only needs the context.
    auto context = info->context();
    context.insert(u"Command"_s, u"Verify"_s);
    info->setContext(context);
    const auto box = m_alerts.alert(*info);
    show(*box);

    EXPECT_EQ(box->icon(), QMessageBox::Critical);
    EXPECT_EQ(box->text(), u"Verify failed"_s);
    EXPECT_EQ(box->informativeText(),
              QStringLiteral("A data integrity problem in the archive was encountered. See the "
                             "log for the details. Consider reindexing or repairing the archive."));
    const auto buttons = actionButtonsLeftToRight(*box);
    EXPECT_EQ(titles(buttons), (QStringList{u"Close"_s, u"Repair"_s, u"Open Log"_s}));
    ASSERT_EQ(buttons.size(), 3);
    EXPECT_EQ(box->defaultButton(), buttons.at(0));
    EXPECT_EQ(box->escapeButton(), buttons.at(0));
    ASSERT_NE(helpButton(*box), nullptr);
    saveImage(*box, u"alert-data-failure.png"_s);

    // Help opens the tagged page and leaves the alert up.
    helpButton(*box)->click();
    EXPECT_EQ(m_openedHelp,
              QList<QUrl>{QUrl(u"file:///usr/share/kestrom/help/index.html#trblrepair"_s)});
    EXPECT_TRUE(box->isVisible());

    buttons.at(1)->click();
    EXPECT_FALSE(box->isVisible());
    EXPECT_EQ(AlertBox::clickedAction(*box), AlertActionSet::kRepair);
}

TEST_F(AlertBoxes, CanceledCaptureIsAWarningWithOnlyOK)
{
    const auto exception = KSException::exceptionWithName(u"Cancel"_s, u"user stopped"_s)
                               .setDetail(u"capture"_s, u".Command"_s);
    const auto info = AlertInfoForCanceledCommand(&exception);
    ASSERT_NE(info, nullptr);
    const auto box = m_alerts.alert(*info);
    show(*box);

    EXPECT_EQ(box->icon(), QMessageBox::Warning);
    EXPECT_EQ(box->text(), u"Capture Stopped"_s);
    EXPECT_EQ(titles(actionButtonsLeftToRight(*box)), QStringList{u"OK"_s});
    EXPECT_EQ(box->buttons().size(), 1);
    EXPECT_EQ(helpButton(*box), nullptr);
    saveImage(*box, u"alert-capture-stopped.png"_s);

    box->escapeButton()->click();
    EXPECT_EQ(AlertBox::clickedAction(*box), AlertActionSet::kOK);
}

TEST_F(AlertBoxes, InformationalStyleAndTheOrderOfAReorderedTemplate)
{
    const ContextualAlertInfo nothing(
        *CannedAlertInfo::templateIn(AlertTemplates::fileCommandAlerts(), u"nullcapture"_s));
    EXPECT_EQ(m_alerts.alert(nothing)->icon(), QMessageBox::Information);

    // "missingkey" lists Close, Import Key, Open Log.
    const ContextualAlertInfo missingKey(
        *CannedAlertInfo::templateIn(AlertTemplates::archiveAlerts(), u"missingkey"_s));
    const auto box = m_alerts.alert(missingKey);
    show(*box);
    EXPECT_EQ(titles(actionButtonsLeftToRight(*box)),
              (QStringList{u"Close"_s, u"Open Log"_s, u"Import Key"_s}));
}

TEST(AlertHelpBook, TagBecomesTheFragment)
{
    const AlertBox alerts(QUrl(u"https://help.example/kestrom/index.html"_s));
    EXPECT_EQ(alerts.helpUrl(u"encryption"_s).toString(),
              u"https://help.example/kestrom/index.html#encryption"_s);
    EXPECT_TRUE(AlertBox::defaultHelpBook().toString().endsWith(u"kestrom/help/index.html"_s));
}
