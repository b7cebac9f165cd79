#include "activity/IndexCommandProgressViewController.h"

#include "errors/AlertInfo.h"
#include "exception/KSException.h"
#include "foundation/HumanReadableString.h"
#include "ui_IndexCommandProgressViewController.h"

#include <QLabel>
#include <QVBoxLayout>

void IndexCommandProgressViewController::loadCounters(QWidget* host)
{
    auto* counters = new QWidget;
    Ui::IndexCommandProgressViewController form;
    form.setupUi(counters);
    (new QVBoxLayout(host))->addWidget(counters);
    host->layout()->setContentsMargins(0, 0, 0, 0);
    m_amountField = form.amountField;
    m_stromCountField = form.stromCountField;
    m_layerCountField = form.layerCountField;
    m_fileCountField = form.fileCountField;
    m_folderCountField = form.folderCountField;
}

std::unique_ptr<AlertInfo>
IndexCommandProgressViewController::adjustAlert(std::unique_ptr<AlertInfo> alert,
                                                const Exception& exception) const
{
    alert = CommandDetailsViewController::adjustAlert(std::move(alert), exception);
    const KSException* soft = exception.asSoftException();
    if (alert && soft != nullptr &&
        soft->userInfo().value(QStringLiteral(".Command")).toString() ==
            QStringLiteral("reindex") &&
        alert->actionSet().includesAction(AlertActionSet::kReindex)) {
        alert->actionSet().includeAction(AlertActionSet::kRepair);
    }
    return alert;
}

void IndexCommandProgressViewController::updateStatus(const QVariantMap& progress)
{
    CommandDetailsViewController::updateStatus(progress);
    const auto show = [&progress](const QString& key, QLabel* field, bool size) {
        const QVariant value = progress.value(key);
        if (!value.isValid() || value.typeId() == QMetaType::Nullptr) {
            return;
        }
        field->setText(size ? HumanReadableString::stringWithReadableSize(value.toULongLong())
                            : HumanReadableString::stringWithReadableLongLong(value.toLongLong()));
    };
    show(QStringLiteral("bytes"), m_amountField, true);
    show(QStringLiteral("stromi"), m_stromCountField, false);
    show(QStringLiteral("layers"), m_layerCountField, false);
    show(QStringLiteral("files"), m_fileCountField, false);
    show(QStringLiteral("folders"), m_folderCountField, false);
}
