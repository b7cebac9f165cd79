#pragma once

#include <QList>
#include <QString>
#include <initializer_list>
#include <set>
#include <span>

// The buttons an alert offers, as a set of action codes. A set, not a list: however a template
// orders its actions, the buttons come out in code order.
class AlertActionSet
{
public:
    enum Action : qint32
    {
        kNoAction = 0,
        kOK = 1,
        kClose = 2,
        kReindex = 3,
        kRepair = 4,
        kOpenLog = 5,
        kRecoverKey = 6,
        kImportKey = 7,
    };
    // The codes that become buttons, in the order the buttons appear.
    static constexpr qint32 kFirstButtonAction = kOK;
    static constexpr qint32 kLastButtonAction = kImportKey;

    AlertActionSet() = default;
    // The list ends at its first 0, as a zero-terminated list does.
    static AlertActionSet alertActionSetWithActions(std::initializer_list<qint32> actions);
    AlertActionSet(std::initializer_list<qint32> actions);
    // Every code of the array; zeros are skipped.
    explicit AlertActionSet(std::span<const qint32> actions);

    qsizetype count() const { return static_cast<qsizetype>(m_actions.size()); }
    bool includesAction(qint32 action) const;
    // Code 0 (and any negative code, which an index set cannot hold) is ignored.
    void includeAction(qint32 action);
    void includeSet(const AlertActionSet& other);
    void excludeAction(qint32 action);
    void excludeSet(const AlertActionSet& other);
    // Keeps only the codes that are also in the other set.
    void limitToSet(const AlertActionSet& other);

    // The codes that have buttons, in increasing order.
    QList<qint32> buttonActions() const;
    // The button title of a code; empty for 0 and for codes without a button.
    static QString descriptionForAction(qint32 action);
    // Class name, identity and a compact list of the codes: "AlertActionSet<0x...>(1-2,5)".
    QString description() const;

    bool operator==(const AlertActionSet& other) const = default;

private:
    std::set<qint32> m_actions;
};
