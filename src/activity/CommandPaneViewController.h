#pragma once

#include "activity/WTLegacyViewController.h"

#include <QPointer>
#include <QVariantMap>

class ActivityProgressManager;
class CommandUmbrellaViewController;
class Exception;

// The base of a pane's forms: every action of a form (stop, pause, resume, reschedule, toggle
// details) goes to the pane's umbrella controller first. Main thread only.
class CommandPaneViewController : public WTLegacyViewController
{
    Q_OBJECT

public:
    explicit CommandPaneViewController(QObject* parent = nullptr);

    CommandUmbrellaViewController* umbrellaController() const;
    void setUmbrellaController(CommandUmbrellaViewController* controller);
    ActivityProgressManager* progressManager() const;

    bool tryToPerform(const char* action, QObject* sender) override;

    virtual void willBeginStatus() {}
    virtual void didBeginStatus() {}
    virtual void updateStatus(const QVariantMap& /*progress*/) {}
    virtual void didEndStatusWithException(const Exception* /*exception*/) {}

private:
    QPointer<CommandUmbrellaViewController> m_umbrellaController;
};
