#pragma once

#include <QDateTime>
#include <QString>

class QWidget;

// Whoever asked for the run-at sheet: it sends each action's new time to the scheduler and
// names the window the sheet belongs to. Main thread only.
class RunActionsControllerDelegate
{
public:
    virtual ~RunActionsControllerDelegate();

    // May throw for one action; the sheet goes on with the others.
    virtual void runAction(const QString& actionID, const QDateTime& at) = 0;
    // The window the sheet attaches to; none runs the sheet as a modal window of its own.
    virtual QWidget* window() = 0;
};
