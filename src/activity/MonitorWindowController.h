#pragma once

#include "activity/FadingWindowController.h"

#include <QLabel>
#include <QPointer>
#include <QString>

// The monitor's fading, self-sizing windows, with the one-time hint that a click on a pane
// shows its details: shown when the mouse enters until the user first toggles a pane.
// Main thread only.
class MonitorWindowController : public FadingWindowController
{
    Q_OBJECT

public:
    explicit MonitorWindowController(QObject* parent = nullptr);
    ~MonitorWindowController() override;

    // A boolean preference: "KSVer21DetailsHint." and the controller's class name.
    QString detailsHintShownKey() const;
    // The view the hint points at; none shows no hint.
    virtual QWidget* detailsHintPopoverView() { return nullptr; }
    bool detailsHintShown() const;
    void closeDetailsHint();
    void didToggleDetails();

protected:
    void mouseEntered() override;
    void mouseExited() override;

private:
    QPointer<QLabel> m_detailsHintPopover;
};
