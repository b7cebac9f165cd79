#pragma once

#include "exception/Exception.h"
#include "tracking/ActivityProgressManager.h"
#include "tracking/ProgressPane.h"

#include <QStringList>
#include <functional>
#include <memory>

// Stands in for a command's pane: it records every call its progress manager makes, in order,
// and what the manager showed at that moment, so a test sees the pane's view of a command.
class RecordingProgressPane final : public ProgressPane
{
public:
    // What the manager showed when the pane was told something.
    struct Update
    {
        QVariantMap progress;
        QString primaryDescription;
        QString displayRunTime;
    };

    void setProgressManager(ActivityProgressManager* manager) override
    {
        m_manager = manager;
        record(manager != nullptr ? QStringLiteral("setProgressManager")
                                  : QStringLiteral("setProgressManager:none"));
    }
    void setActionID(const QString& actionID) override
    {
        m_actionID = actionID;
        record(QStringLiteral("setActionID:") + actionID);
    }
    void didBeginStatus() override { record(QStringLiteral("didBeginStatus")); }
    void updateStatus(const QVariantMap& progress) override
    {
        m_updates.append({progress,
                          m_manager != nullptr ? m_manager->primaryDescription() : QString(),
                          m_manager != nullptr ? m_manager->displayRunTime() : QString()});
        record(QStringLiteral("updateStatus"));
    }
    void didEndStatusWithException(const Exception* exception) override
    {
        m_endException =
            exception != nullptr ? std::shared_ptr<Exception>(exception->clone()) : nullptr;
        m_endDescription = m_manager != nullptr ? m_manager->primaryDescription() : QString();
        record(QStringLiteral("didEndStatusWithException:") +
               (exception != nullptr ? exception->name() : QStringLiteral("none")));
    }
    void holdManagerUntilResigned(std::shared_ptr<ActivityProgressManager> manager) override
    {
        m_held = std::move(manager);
    }
    void resign() override
    {
        record(QStringLiteral("resign"));
        m_held.reset();
    }

    const QStringList& calls() const { return m_calls; }
    ActivityProgressManager* manager() const { return m_manager; }
    const QString& actionID() const { return m_actionID; }
    const QList<Update>& updates() const { return m_updates; }
    const std::shared_ptr<Exception>& endException() const { return m_endException; }
    const QString& endDescription() const { return m_endDescription; }

    // Every call also goes here, so a test can interleave it with other observations.
    std::function<void(const QString& call)> onCall;

private:
    void record(const QString& call)
    {
        m_calls.append(call);
        if (onCall) {
            onCall(call);
        }
    }

    ActivityProgressManager* m_manager = nullptr;
    std::shared_ptr<ActivityProgressManager> m_held;
    QString m_actionID;
    QStringList m_calls;
    QList<Update> m_updates;
    std::shared_ptr<Exception> m_endException;
    QString m_endDescription;
};
