#pragma once

#include "activity/StackedPartView.h"

// The container of a command pane: a click anywhere in it that no control takes toggles the
// pane's details; with Control held it opens the pane's menu instead.
class MonitorStackedContainerView : public StackedPartView
{
    Q_OBJECT

public:
    explicit MonitorStackedContainerView(QWidget* parent = nullptr);

    QList<QColor> gradientColors() const override;

protected:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
};
