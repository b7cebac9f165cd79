#include "activity/CompactCommandProgressViewController.h"

#include "foundation/HumanReadableString.h"
#include "ui_CompactCommandProgressViewController.h"

#include <QLabel>
#include <QVBoxLayout>

void CompactCommandProgressViewController::loadCounters(QWidget* host)
{
    auto* counters = new QWidget;
    Ui::CompactCommandProgressViewController form;
    form.setupUi(counters);
    (new QVBoxLayout(host))->addWidget(counters);
    host->layout()->setContentsMargins(0, 0, 0, 0);
    m_movedField = form.movedField;
    m_recoveredField = form.recoveredField;
}

void CompactCommandProgressViewController::updateStatus(const QVariantMap& progress)
{
    CommandDetailsViewController::updateStatus(progress);
    const auto show = [&progress](const QString& key, QLabel* field) {
        const QVariant value = progress.value(key);
        if (value.isValid() && value.typeId() != QMetaType::Nullptr) {
            field->setText(HumanReadableString::stringWithReadableSize(value.toULongLong()));
        }
    };
    show(QStringLiteral("bytes"), m_movedField);
    show(QStringLiteral("saved"), m_recoveredField);
}
