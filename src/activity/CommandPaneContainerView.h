#pragma once

#include "activity/MonitorStackedContainerView.h"

#include <QLabel>
#include <QList>
#include <QPointer>

// A pane whose wrapped texts take the height they need at the pane's current width.
class CommandPaneContainerView : public MonitorStackedContainerView
{
    Q_OBJECT

public:
    explicit CommandPaneContainerView(QWidget* parent = nullptr);

    void setMultilineTextFields(const QList<QLabel*>& fields);

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    void measureMultilineTextFields();

    QList<QPointer<QLabel>> m_multilineTextFields;
};
