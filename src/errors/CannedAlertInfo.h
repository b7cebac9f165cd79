#pragma once

#include "errors/AlertInfo.h"
#include "errors/AlertTemplate.h"

#include <span>

// An alert taken whole from one constant template.
class CannedAlertInfo : public AlertInfo
{
public:
    explicit CannedAlertInfo(const AlertTemplate& alertTemplate);

    // None for no template.
    static std::unique_ptr<CannedAlertInfo> withAlertTemplate(const AlertTemplate* alertTemplate);
    // None when the key is null or not in the table.
    static std::unique_ptr<CannedAlertInfo>
    withAlertTemplateIn(std::span<const AlertAssociation> alertList, const QString& key);
    // The template of the first row whose key equals the key exactly, or none. A table that
    // is not there (a null span) is a programming error: std::logic_error.
    static const AlertTemplate* templateIn(std::span<const AlertAssociation> alertList,
                                           const QString& key);

    std::unique_ptr<AlertInfo> clone() const override;

    const AlertTemplate& alertTemplate() const { return *m_template; }
    quint64 alertStyle() const override;
    QString message() const override;
    QString informativeText() const override;
    QString helpTag() const override;

protected:
    CannedAlertInfo(const CannedAlertInfo&) = default;
    CannedAlertInfo& operator=(const CannedAlertInfo&) = default;

private:
    // Templates are constant data that outlive every alert.
    const AlertTemplate* m_template;
};
