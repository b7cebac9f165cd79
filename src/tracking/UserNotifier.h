#pragma once

#include <QString>
#include <QVariantMap>

// The user notifications a command's life raises: type 0 started, 1 complete, 2 incomplete,
// 3 needs repair. The application delegate delivers them (or not, by the user's choice).
class UserNotifier
{
public:
    enum Type : int
    {
        kActionStarted = 0,
        kActionCompleted = 1,
        kActionIncomplete = 2,
        kNeedsRepair = 3,
    };

    virtual ~UserNotifier();

    virtual void notifyUser(int type, const QString& title, const QString& details,
                            const QString& identifier, const QVariantMap& info) = 0;
};
