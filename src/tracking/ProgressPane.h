#pragma once

#include <QString>
#include <QVariantMap>
#include <memory>
#include <optional>

class ActivityProgressManager;
class Exception;

// What a progress manager asks of the pane that shows its command. The activity window's pane
// controller implements it. The manager owns its pane; the pane refers back weakly, except
// from the command's stop until the pane resigns: a message that arrives then still finds the
// manager, which discards it as a post-mortem.
// Main thread only.
class ProgressPane
{
public:
    // The detailed form of a command's pane, chosen by command name.
    enum class Kind
    {
        File,
        Details,
        Compact,
        Index,
    };

    virtual ~ProgressPane();

    // None for a command that gets no pane (and so no progress manager).
    static std::optional<Kind> umbrellaControllerForCommand(const QString& commandName);

    virtual void setProgressManager(ActivityProgressManager* manager) = 0;
    // Empty when the command belongs to no scheduled action.
    virtual void setActionID(const QString& actionID) = 0;
    virtual void didBeginStatus() = 0;
    virtual void updateStatus(const QVariantMap& progress) = 0;
    // Null when the command ended well.
    virtual void didEndStatusWithException(const Exception* exception) = 0;
    // Keeps the stopped command's manager until resign(); none lets it go at once.
    virtual void holdManagerUntilResigned(std::shared_ptr<ActivityProgressManager> manager) = 0;
    virtual void resign() = 0;
};
