#include "activity/UpgradeViewController.h"

#include "activity/StackedPartView.h"
#include "ui_UpgradeViewController.h"

#include <QIcon>

QWidget* UpgradeViewController::loadView()
{
    auto* view = new StackedPartView;
    Ui::UpgradeViewController form;
    form.setupUi(view);
    form.iconField->setPixmap(QIcon(QStringLiteral(":/activity/images/update.svg")).pixmap(24, 24));
    m_versionField = form.versionField;
    m_checkForUpdateButton = form.checkForUpdateButton;
    connect(m_checkForUpdateButton, &QPushButton::clicked, this,
            &UpgradeViewController::checkForUpdate);
    return view;
}

void UpgradeViewController::setNewerVersion(const QString& version)
{
    view();
    m_versionField->setText(tr("Version %1").arg(version));
}
