#pragma once

#include "activity/NextActionDateFormatter.h"
#include "activity/WTLegacyViewController.h"

#include <QLabel>
#include <QPointer>

// The pane at the bottom of the activity window that names the next scheduled action.
class ActivityIdleViewController : public WTLegacyViewController
{
    Q_OBJECT

public:
    explicit ActivityIdleViewController(
        NextActionDateFormatter formatter = NextActionDateFormatter(), QObject* parent = nullptr);

    void setNextAction(const QString& title, const QDateTime& time);
    QLabel* titleField() const { return m_titleField; }
    QLabel* timeField() const { return m_timeField; }

protected:
    QWidget* loadView() override;

private:
    NextActionDateFormatter m_formatter;
    QPointer<QLabel> m_titleField;
    QPointer<QLabel> m_timeField;
};
