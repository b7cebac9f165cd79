#pragma once

#include <QDateTime>
#include <QMetaType>
#include <QString>
#include <optional>

class QDataStream;

// What the scheduler tells about one of its actions that is under way: when it started and,
// when it is held back, why. An action the scheduler reports at all is running, so running is
// always true; held only says whether a hold reason came with it.
class ActionRunSummary
{
public:
    ActionRunSummary() = default;
    explicit ActionRunSummary(QDateTime startTime, std::optional<QString> holdReason = {});

    bool isRunning() const { return true; }
    bool isHeld() const { return m_holdReason.has_value(); }
    const QDateTime& startTime() const { return m_startTime; }
    const std::optional<QString>& holdReason() const { return m_holdReason; }
    void setHoldReason(std::optional<QString> holdReason);

    QString description() const;
    bool operator==(const ActionRunSummary& other) const = default;

    static void registerArchivableClass();

private:
    std::optional<QString> m_holdReason;
    QDateTime m_startTime;
};

// The non-keyed form: the hold reason, then the start time.
QDataStream& operator<<(QDataStream& stream, const ActionRunSummary& summary);
QDataStream& operator>>(QDataStream& stream, ActionRunSummary& summary);

Q_DECLARE_METATYPE(ActionRunSummary)
