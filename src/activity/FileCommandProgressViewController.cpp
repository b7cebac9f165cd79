#include "activity/FileCommandProgressViewController.h"

#include "errors/CommandAlertInfo.h"
#include "foundation/HumanReadableString.h"
#include "ui_FileCommandProgressViewController.h"

#include <QLabel>
#include <QVBoxLayout>

void FileCommandProgressViewController::loadCounters(QWidget* host)
{
    auto* counters = new QWidget;
    Ui::FileCommandProgressViewController form;
    form.setupUi(counters);
    (new QVBoxLayout(host))->addWidget(counters);
    host->layout()->setContentsMargins(0, 0, 0, 0);
    m_byteCountField = form.byteCountField;
    m_duplicateField = form.duplicateField;
    m_itemCountField = form.itemCountField;
    m_rateField = form.rateField;
}

std::unique_ptr<AlertInfo>
FileCommandProgressViewController::alertInfoForException(const Exception& exception) const
{
    return AlertInfoForFileException(&exception);
}

void FileCommandProgressViewController::updateStatus(const QVariantMap& progress)
{
    CommandDetailsViewController::updateStatus(progress);
    const auto present = [&progress](const QString& key) {
        const QVariant value = progress.value(key);
        return value.isValid() && value.typeId() != QMetaType::Nullptr;
    };
    if (present(QStringLiteral("dup"))) {
        // The unsigned value, as a count is read: 12.5 is 12, not rounded up.
        const auto percent = quint64(progress.value(QStringLiteral("dup")).toDouble());
        m_duplicateField->setText(percent == 0 ? QString()
                                               : QStringLiteral("(%1% duplicate)").arg(percent));
    }
    if (present(QStringLiteral("bytes"))) {
        m_byteCountField->setText(HumanReadableString::stringWithReadableSize(
            progress.value(QStringLiteral("bytes")).toULongLong()));
    }
    if (present(QStringLiteral("items"))) {
        const qint64 items = progress.value(QStringLiteral("items")).toLongLong();
        m_itemCountField->setText(QStringLiteral("%1 %2").arg(
            HumanReadableString::stringWithReadableInteger(long(items)),
            items == 1 ? QStringLiteral("item") : QStringLiteral("items")));
    }
    if (present(QStringLiteral("rate"))) {
        m_rateField->setText(HumanReadableString::stringWithReadableSize(
                                 progress.value(QStringLiteral("rate")).toULongLong()) +
                             QStringLiteral("/min"));
    }
}
