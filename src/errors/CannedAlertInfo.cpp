#include "errors/CannedAlertInfo.h"

#include <stdexcept>

CannedAlertInfo::CannedAlertInfo(const AlertTemplate& alertTemplate)
    : AlertInfo(AlertActionSet(std::span<const qint32>(alertTemplate.actions)))
    , m_template(&alertTemplate)
{}

std::unique_ptr<CannedAlertInfo>
CannedAlertInfo::withAlertTemplate(const AlertTemplate* alertTemplate)
{
    if (alertTemplate == nullptr) {
        return nullptr;
    }
    return std::make_unique<CannedAlertInfo>(*alertTemplate);
}

std::unique_ptr<CannedAlertInfo>
CannedAlertInfo::withAlertTemplateIn(std::span<const AlertAssociation> alertList,
                                     const QString& key)
{
    return withAlertTemplate(templateIn(alertList, key));
}

const AlertTemplate* CannedAlertInfo::templateIn(std::span<const AlertAssociation> alertList,
                                                 const QString& key)
{
    if (alertList.data() == nullptr) {
        throw std::logic_error("alertList!=NULL");
    }
    if (key.isNull()) {
        return nullptr;
    }
    for (const AlertAssociation& association : alertList) {
        // An empty key ends a table.
        if (association.key.isEmpty()) {
            break;
        }
        if (association.key == key) {
            return association.alertTemplate;
        }
    }
    return nullptr;
}

std::unique_ptr<AlertInfo> CannedAlertInfo::clone() const
{
    return std::unique_ptr<AlertInfo>(new CannedAlertInfo(*this));
}

quint64 CannedAlertInfo::alertStyle() const
{
    return m_template->alertStyle;
}

QString CannedAlertInfo::message() const
{
    return m_template->message.isNull() ? AlertInfo::message() : m_template->message.toString();
}

QString CannedAlertInfo::informativeText() const
{
    return m_template->informativeText.isNull() ? AlertInfo::informativeText()
                                                : m_template->informativeText.toString();
}

QString CannedAlertInfo::helpTag() const
{
    return m_template->helpTag.toString();
}
