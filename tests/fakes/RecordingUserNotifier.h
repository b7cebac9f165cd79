#pragma once

#include "tracking/UserNotifier.h"

#include <QList>

// Keeps every user notification it is asked to deliver.
class RecordingUserNotifier final : public UserNotifier
{
public:
    struct Notice
    {
        int type;
        QString title;
        QString details;
        QString identifier;
        QVariantMap info;
    };

    void notifyUser(int type, const QString& title, const QString& details,
                    const QString& identifier, const QVariantMap& info) override
    {
        m_notices.append({type, title, details, identifier, info});
    }

    const QList<Notice>& notices() const { return m_notices; }

private:
    QList<Notice> m_notices;
};
