#pragma once

#include "tracking/CommandListenerServiceDelegate.h"

#include <QString>
#include <QVariantMap>
#include <functional>
#include <memory>

class ActivityWindowController;

// The seam of the activity window. Until the window exists, this default makes a manager for
// every command straight from the factory and shows nothing; the composition root installs
// the real window in its place.
class ActivityWindow : public CommandListenerServiceDelegate
{
public:
    using Factory = std::function<std::shared_ptr<CommandListener>(const QString& identifier,
                                                                   const QVariantMap& info)>;
    explicit ActivityWindow(Factory factory);

    // Until the window exists, a new command gets its manager straight from the factory.
    std::shared_ptr<CommandListener> listenerForCommandIdentifier(const QString& identifier,
                                                                  const QVariantMap& info) override;
    virtual void showActivityWindowInFront(bool front);
    virtual bool isVisible() const;
    // Whether the quit must wait: some registered command still runs.
    virtual bool waitForRunningCommandsBecause(quint32 reason);
    // The real window's controller, for the status menu; none in this default.
    virtual ActivityWindowController* windowController() const { return nullptr; }

private:
    Factory m_factory;
};
