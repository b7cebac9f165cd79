#pragma once

#include "activity/CommandDetailsViewController.h"

#include <QLabel>

// The detailed form of compact: the amount moved and the space recovered.
class CompactCommandProgressViewController : public CommandDetailsViewController
{
    Q_OBJECT

public:
    using CommandDetailsViewController::CommandDetailsViewController;

    void updateStatus(const QVariantMap& progress) override;

    QLabel* movedField() const { return m_movedField; }
    QLabel* recoveredField() const { return m_recoveredField; }

protected:
    void loadCounters(QWidget* host) override;

private:
    QPointer<QLabel> m_movedField;
    QPointer<QLabel> m_recoveredField;
};
