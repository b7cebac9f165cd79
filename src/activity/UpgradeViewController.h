#pragma once

#include "activity/WTLegacyViewController.h"

#include <QLabel>
#include <QPointer>
#include <QPushButton>

// The notice at the top of the activity window that a newer release can be installed.
class UpgradeViewController : public WTLegacyViewController
{
    Q_OBJECT

public:
    using WTLegacyViewController::WTLegacyViewController;

    void setNewerVersion(const QString& version);
    QLabel* versionField() const { return m_versionField; }
    QPushButton* checkForUpdateButton() const { return m_checkForUpdateButton; }

Q_SIGNALS:
    void checkForUpdate();

protected:
    QWidget* loadView() override;

private:
    QPointer<QLabel> m_versionField;
    QPointer<QPushButton> m_checkForUpdateButton;
};
