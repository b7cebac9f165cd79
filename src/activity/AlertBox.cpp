#include "activity/AlertBox.h"

#include "errors/AlertInfo.h"
#include "errors/AlertTemplate.h"

#include <QDesktopServices>
#include <QDialogButtonBox>
#include <QMessageBox>
#include <QPushButton>
#include <QStandardPaths>

namespace {
// Where the code of an action button is kept, as a tag is kept on a platform button.
constexpr const char* kActionProperty = "kestromAlertAction";
const QString kHelpPage = QStringLiteral("kestrom/help/index.html");

QMessageBox::Icon iconForStyle(quint64 style)
{
    switch (style) {
    case AlertTemplate::kInformationalStyle:
        return QMessageBox::Information;
    case AlertTemplate::kCriticalStyle:
        return QMessageBox::Critical;
    default:
        return QMessageBox::Warning;
    }
}

// A message box closes on any of its buttons; help must not close the alert, so the Help
// button is taken out of the box's click handling and only opens the help.
void keepOpenOnHelp(QMessageBox& box, QAbstractButton* help)
{
    if (auto* buttons = box.findChild<QDialogButtonBox*>()) {
        QObject::disconnect(help, &QAbstractButton::clicked, buttons, nullptr);
    }
}
} // namespace

AlertBox::AlertBox(QUrl helpBook, HelpOpener openHelp)
    : m_helpBook(std::move(helpBook))
    , m_openHelp(std::move(openHelp))
{
    if (!m_openHelp) {
        m_openHelp = [](const QUrl& url) {
            QDesktopServices::openUrl(url);
        };
    }
}

std::unique_ptr<QMessageBox> AlertBox::alert(const AlertInfo& info, QWidget* parent) const
{
    auto box = std::make_unique<QMessageBox>(parent);
    box->setIcon(iconForStyle(info.alertStyle()));
    // Texts carry paths and names from the failure; they are never markup.
    box->setTextFormat(Qt::PlainText);
    box->setText(info.message());
    box->setInformativeText(info.informativeText());

    // One role for all, so the box keeps the order in which they are added: code order.
    QPushButton* first = nullptr;
    QPushButton* escape = nullptr;
    for (const qint32 action : info.actionSet().buttonActions()) {
        QPushButton* button =
            box->addButton(AlertActionSet::descriptionForAction(action), QMessageBox::ActionRole);
        button->setProperty(kActionProperty, action);
        if (first == nullptr) {
            first = button;
        }
        if (action == AlertActionSet::kClose ||
            (action == AlertActionSet::kOK && escape == nullptr)) {
            escape = button;
        }
    }
    if (first != nullptr) {
        box->setDefaultButton(first);
    }
    if (escape != nullptr) {
        box->setEscapeButton(escape);
    }

    const QString tag = info.helpTag();
    if (!tag.isEmpty()) {
        QPushButton* help = box->addButton(QMessageBox::Help);
        keepOpenOnHelp(*box, help);
        QObject::connect(help, &QAbstractButton::clicked, box.get(),
                         [open = m_openHelp, url = helpUrl(tag)] { open(url); });
    }
    return box;
}

QUrl AlertBox::helpUrl(const QString& helpTag) const
{
    QUrl url = m_helpBook;
    url.setFragment(helpTag);
    return url;
}

qint32 AlertBox::actionOfButton(const QAbstractButton* button)
{
    return button != nullptr ? button->property(kActionProperty).toInt() : 0;
}

qint32 AlertBox::clickedAction(const QMessageBox& box)
{
    return actionOfButton(box.clickedButton());
}

QUrl AlertBox::defaultHelpBook()
{
    const QString installed =
        QStandardPaths::locate(QStandardPaths::GenericDataLocation, kHelpPage);
    // Without an installed copy the alert still names the page a package would install.
    return QUrl::fromLocalFile(installed.isEmpty() ? QStringLiteral("/usr/share/") + kHelpPage
                                                   : installed);
}
