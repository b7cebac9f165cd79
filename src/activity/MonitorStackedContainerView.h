#pragma once

#include "activity/StackedPartView.h"

// The container of a command pane: a click anywhere in it that no control takes toggles the
// pane's details; with Control held it opens the pane's menu instead. From the keyboard it is
// a stop of the Tab chain: Space or Return toggles the details, the menu key or Shift+F10
// opens the menu.
class MonitorStackedContainerView : public StackedPartView
{
    Q_OBJECT

public:
    explicit MonitorStackedContainerView(QWidget* parent = nullptr);

    QList<QColor> gradientColors() const override;

protected:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void paintEvent(QPaintEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;

private:
    void toggleDetails();
};
