#include "activity/ActivityWindowHost.h"

#include "preferences/ImpermanentValues.h"
#include "preferences/MonitorDefaults.h"
#include "references/RepositoryReference.h"
#include "tracking/CommandListener.h"

namespace {
ImpermanentValues& impermanentValues()
{
    static ImpermanentValues values(MonitorDefaults::standardUserDefaults()); // main thread only
    return values;
}
} // namespace

ActivityWindowHost::~ActivityWindowHost() = default;

std::shared_ptr<CommandListener> ActivityWindowHost::monitorRunningCommand(const QString&,
                                                                           const QVariantMap&)
{
    return nullptr;
}

void ActivityWindowHost::setDockActivityPaneCount(int) {}

void ActivityWindowHost::showStatusItemStates(bool, quint64) {}

bool ActivityWindowHost::viewLogLine(const LogLine&)
{
    return false;
}

void ActivityWindowHost::openRepository(const QString&, qint32) {}

void ActivityWindowHost::launchClient() {}

bool ActivityWindowHost::updateAvailable() const
{
    return false;
}

QString ActivityWindowHost::readableVersionAvailable() const
{
    return {};
}

void ActivityWindowHost::setClientAppRunning(bool) {}

std::optional<QVariantMap> ActivityWindowHost::queryNextScheduledActionInfo()
{
    return std::nullopt;
}

bool ActivityWindowHost::setActionToExecuteAt(const QString&, double)
{
    return false;
}

void ActivityWindowHost::runRescheduleSheet(const QString&) {}

void ActivityWindowHost::runShutdownSheet(quint32) {}

QString ActivityWindowHost::repositoryPath(const QByteArray& reference) const
{
    if (reference.isEmpty()) {
        return {};
    }
    const std::shared_ptr<RepositoryReference> repository =
        RepositoryReference::fromArchivedData(reference);
    return repository ? repository->path() : QString();
}

QVariant ActivityWindowHost::impermanentValue(const QString& key, const QString& identifier)
{
    return impermanentValues().impermanentValueForKey(key, identifier);
}

void ActivityWindowHost::setImpermanentValue(const QVariant& value, const QString& key,
                                             const QString& identifier)
{
    impermanentValues().setImpermanentValue(value, key, identifier);
}
