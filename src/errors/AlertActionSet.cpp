#include "errors/AlertActionSet.h"

#include <QStringList>

AlertActionSet AlertActionSet::alertActionSetWithActions(std::initializer_list<qint32> actions)
{
    return AlertActionSet(actions);
}

AlertActionSet::AlertActionSet(std::initializer_list<qint32> actions)
{
    for (const qint32 action : actions) {
        if (action == kNoAction) {
            break;
        }
        includeAction(action);
    }
}

AlertActionSet::AlertActionSet(std::span<const qint32> actions)
{
    for (const qint32 action : actions) {
        includeAction(action);
    }
}

bool AlertActionSet::includesAction(qint32 action) const
{
    return m_actions.contains(action);
}

void AlertActionSet::includeAction(qint32 action)
{
    if (action > kNoAction) {
        m_actions.insert(action);
    }
}

void AlertActionSet::includeSet(const AlertActionSet& other)
{
    m_actions.insert(other.m_actions.cbegin(), other.m_actions.cend());
}

void AlertActionSet::excludeAction(qint32 action)
{
    m_actions.erase(action);
}

void AlertActionSet::excludeSet(const AlertActionSet& other)
{
    for (const qint32 action : other.m_actions) {
        m_actions.erase(action);
    }
}

void AlertActionSet::limitToSet(const AlertActionSet& other)
{
    std::erase_if(m_actions, [&other](qint32 action) { return !other.includesAction(action); });
}

QList<qint32> AlertActionSet::buttonActions() const
{
    QList<qint32> actions;
    for (qint32 action = kFirstButtonAction; action <= kLastButtonAction; ++action) {
        if (includesAction(action)) {
            actions.append(action);
        }
    }
    return actions;
}

QString AlertActionSet::descriptionForAction(qint32 action)
{
    switch (action) {
    case kOK:
        return QStringLiteral("OK");
    case kClose:
        return QStringLiteral("Close");
    case kReindex:
        return QStringLiteral("Reindex");
    case kRepair:
        return QStringLiteral("Repair");
    case kOpenLog:
        return QStringLiteral("Open Log");
    case kRecoverKey:
        return QStringLiteral("Recover Key");
    case kImportKey:
        return QStringLiteral("Import Key");
    default:
        return {};
    }
}

QString AlertActionSet::description() const
{
    // Runs of consecutive codes are written as ranges, as an index set describes itself.
    QStringList ranges;
    for (auto it = m_actions.cbegin(); it != m_actions.cend();) {
        const qint32 first = *it;
        qint32 last = first;
        for (++it; it != m_actions.cend() && *it == last + 1; ++it) {
            last = *it;
        }
        ranges << (first == last ? QString::number(first)
                                 : QStringLiteral("%1-%2").arg(first).arg(last));
    }
    return QStringLiteral("AlertActionSet<%1>(%2)")
        .arg(QString::asprintf("%p", static_cast<const void*>(this)),
             ranges.join(QLatin1Char(',')));
}
