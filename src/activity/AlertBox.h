#pragma once

#include <QUrl>
#include <functional>
#include <memory>

class AlertInfo;
class QAbstractButton;
class QMessageBox;
class QWidget;

// Builds the platform alert for an AlertInfo: a QMessageBox with the alert's icon, texts and
// one button per action in code order, and a Help button when the alert has a help tag. Help
// opens the tag as a fragment of the product's HTML help and leaves the alert up, as help
// buttons of alerts do. Main thread only.
class AlertBox
{
public:
    using HelpOpener = std::function<void(const QUrl&)>;

    // The opener defaults to the desktop's browser.
    explicit AlertBox(QUrl helpBook = defaultHelpBook(), HelpOpener openHelp = {});

    std::unique_ptr<QMessageBox> alert(const AlertInfo& info, QWidget* parent = nullptr) const;

    QUrl helpUrl(const QString& helpTag) const;
    const QUrl& helpBook() const { return m_helpBook; }

    // The action code a button of an alert stands for; 0 for any other button (Help).
    static qint32 actionOfButton(const QAbstractButton* button);
    // The action of the button that closed the alert; 0 when none did.
    static qint32 clickedAction(const QMessageBox& box);
    // The help book's start page among the installed data files.
    static QUrl defaultHelpBook();

private:
    QUrl m_helpBook;
    HelpOpener m_openHelp;
};
