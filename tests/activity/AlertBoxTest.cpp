#include "activity/AlertBox.h"

#include "errors/AlertTemplates.h"
#include "errors/CommandAlertInfo.h"
#include "exception/KSException.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDir>
#include <QFile>
#include <QMessageBox>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <algorithm>
#include <gtest/gtest.h>

namespace {
std::unique_ptr<ContextualAlertInfo> dataFailure()
{
    auto exception = KSException::exceptionWithName(QStringLiteral("Data"),
                                                    QStringLiteral("bad block checksum"));
    exception.setDetail(QStringLiteral("verify"), QStringLiteral(".Command"));
    auto info = AlertInfoForAnyCommand(&exception);
    // Readable command names come from command tracking; the alert only needs the context.
    auto context = info->context();
    context.insert(QStringLiteral("Command"), QStringLiteral("Verify"));
    info->setContext(context);
    return info;
}

std::unique_ptr<ContextualAlertInfo> canceledCapture()
{
    const auto exception =
        KSException::exceptionWithName(QStringLiteral("Cancel"), QStringLiteral("user stopped"))
            .setDetail(QStringLiteral("capture"), QStringLiteral(".Command"));
    return AlertInfoForCanceledCommand(&exception);
}

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
    void SetUp() override { ASSERT_TRUE(m_images.isValid()); }

    // Shows the box so that its buttons are laid out as a user sees them.
    void show(QMessageBox& box)
    {
        box.show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&box));
    }

    // Saves what the box looks like beside the test and where a reviewer finds it.
    void saveImage(QMessageBox& box, const QString& name)
    {
        const QPixmap image = box.grab();
        ASSERT_FALSE(image.isNull());
        const QString path = m_images.filePath(name);
        ASSERT_TRUE(image.save(path, "PNG"));
        const QString copy = QDir(QStringLiteral(KESTROM_IMAGE_DIR)).filePath(name);
        QFile::remove(copy);
        EXPECT_TRUE(QFile::copy(path, copy));
    }

    QTemporaryDir m_images;
    QList<QUrl> m_openedHelp;
    AlertBox m_alerts{QUrl(QStringLiteral("file:///usr/share/kestrom/help/index.html")),
                      [this](const QUrl& url) {
                          m_openedHelp << url;
                      }};
};
} // namespace

TEST_F(AlertBoxes, DataFailureShowsItsButtonsInCodeOrderWithHelp)
{
    const auto info = dataFailure();
    ASSERT_NE(info, nullptr);
    const auto box = m_alerts.alert(*info);
    show(*box);

    EXPECT_EQ(box->icon(), QMessageBox::Critical);
    EXPECT_EQ(box->text(), QStringLiteral("Verify failed"));
    EXPECT_EQ(box->informativeText(),
              QStringLiteral("A data integrity problem in the archive was encountered. See the "
                             "log for the details. Consider reindexing or repairing the archive."));
    const auto buttons = actionButtonsLeftToRight(*box);
    EXPECT_EQ(titles(buttons), (QStringList{QStringLiteral("Close"), QStringLiteral("Repair"),
                                            QStringLiteral("Open Log")}));
    ASSERT_EQ(buttons.size(), 3);
    EXPECT_EQ(box->defaultButton(), buttons.at(0));
    EXPECT_EQ(box->escapeButton(), buttons.at(0));
    ASSERT_NE(helpButton(*box), nullptr);
    saveImage(*box, QStringLiteral("alert-data-failure.png"));

    // Help opens the tagged page and leaves the alert up.
    helpButton(*box)->click();
    EXPECT_EQ(
        m_openedHelp,
        QList<QUrl>{QUrl(QStringLiteral("file:///usr/share/kestrom/help/index.html#trblrepair"))});
    EXPECT_TRUE(box->isVisible());

    buttons.at(1)->click();
    EXPECT_FALSE(box->isVisible());
    EXPECT_EQ(AlertBox::clickedAction(*box), AlertActionSet::kRepair);
}

TEST_F(AlertBoxes, CanceledCaptureIsAWarningWithOnlyOK)
{
    const auto info = canceledCapture();
    ASSERT_NE(info, nullptr);
    const auto box = m_alerts.alert(*info);
    show(*box);

    EXPECT_EQ(box->icon(), QMessageBox::Warning);
    EXPECT_EQ(box->text(), QStringLiteral("Capture Stopped"));
    EXPECT_EQ(titles(actionButtonsLeftToRight(*box)), QStringList{QStringLiteral("OK")});
    EXPECT_EQ(box->buttons().size(), 1);
    EXPECT_EQ(helpButton(*box), nullptr);
    saveImage(*box, QStringLiteral("alert-capture-stopped.png"));

    box->escapeButton()->click();
    EXPECT_EQ(AlertBox::clickedAction(*box), AlertActionSet::kOK);
}

TEST_F(AlertBoxes, InformationalStyleAndTheOrderOfAReorderedTemplate)
{
    const ContextualAlertInfo nothing(*CannedAlertInfo::templateIn(
        AlertTemplates::fileCommandAlerts(), QStringLiteral("nullcapture")));
    EXPECT_EQ(m_alerts.alert(nothing)->icon(), QMessageBox::Information);

    // "missingkey" lists Close, Import Key, Open Log.
    const ContextualAlertInfo missingKey(*CannedAlertInfo::templateIn(
        AlertTemplates::archiveAlerts(), QStringLiteral("missingkey")));
    const auto box = m_alerts.alert(missingKey);
    show(*box);
    EXPECT_EQ(titles(actionButtonsLeftToRight(*box)),
              (QStringList{QStringLiteral("Close"), QStringLiteral("Open Log"),
                           QStringLiteral("Import Key")}));
}

TEST(AlertHelpBook, TagBecomesTheFragment)
{
    const AlertBox alerts(QUrl(QStringLiteral("https://help.example/kestrom/index.html")));
    EXPECT_EQ(alerts.helpUrl(QStringLiteral("encryption")).toString(),
              QStringLiteral("https://help.example/kestrom/index.html#encryption"));
    EXPECT_TRUE(
        AlertBox::defaultHelpBook().toString().endsWith(QStringLiteral("kestrom/help/index.html")));
}
