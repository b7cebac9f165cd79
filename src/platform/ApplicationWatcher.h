#pragma once

#include <QStringList>
#include <functional>

// Desktop applications starting and quitting, named by their desktop identifiers
// (reverse-DNS). Handlers run on the main thread.
class ApplicationWatcher
{
public:
    using Handler = std::function<void(const QString& identifier)>;

    virtual ~ApplicationWatcher() = default;
    virtual void startWatching(Handler launched, Handler terminated) = 0;
    // The applications running now, in the session's order.
    virtual QStringList runningApplications() const = 0;
};
