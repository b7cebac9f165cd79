#pragma once

#include "activity/CommandDetailsViewController.h"

#include <QLabel>

// The detailed form of verify, reindex and repair: amount, archives, layers, files and folders.
class IndexCommandProgressViewController : public CommandDetailsViewController
{
    Q_OBJECT

public:
    using CommandDetailsViewController::CommandDetailsViewController;

    // A soft failure of a reindex that offers to reindex also offers to repair.
    std::unique_ptr<AlertInfo> adjustAlert(std::unique_ptr<AlertInfo> alert,
                                           const Exception& exception) const override;
    void updateStatus(const QVariantMap& progress) override;

    QLabel* amountField() const { return m_amountField; }
    QLabel* stromCountField() const { return m_stromCountField; }
    QLabel* layerCountField() const { return m_layerCountField; }
    QLabel* fileCountField() const { return m_fileCountField; }
    QLabel* folderCountField() const { return m_folderCountField; }

protected:
    void loadCounters(QWidget* host) override;

private:
    QPointer<QLabel> m_amountField;
    QPointer<QLabel> m_stromCountField;
    QPointer<QLabel> m_layerCountField;
    QPointer<QLabel> m_fileCountField;
    QPointer<QLabel> m_folderCountField;
};
