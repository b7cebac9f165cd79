#pragma once

#include "activity/CommandDetailsViewController.h"

#include <QLabel>

// The detailed form of capture, recall and restore: amount copied, items, duplicates and rate.
class FileCommandProgressViewController : public CommandDetailsViewController
{
    Q_OBJECT

public:
    using CommandDetailsViewController::CommandDetailsViewController;

    std::unique_ptr<AlertInfo> alertInfoForException(const Exception& exception) const override;
    void updateStatus(const QVariantMap& progress) override;

    QLabel* byteCountField() const { return m_byteCountField; }
    QLabel* duplicateField() const { return m_duplicateField; }
    QLabel* itemCountField() const { return m_itemCountField; }
    QLabel* rateField() const { return m_rateField; }

protected:
    void loadCounters(QWidget* host) override;

private:
    QPointer<QLabel> m_byteCountField;
    QPointer<QLabel> m_duplicateField;
    QPointer<QLabel> m_itemCountField;
    QPointer<QLabel> m_rateField;
};
