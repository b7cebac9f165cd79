#pragma once

#include <QSet>
#include <QString>

// Says once, in the log, that a feature is not in this build, so that a stand-in for a
// subsystem is seen, not silent.
class UnavailableNotice
{
public:
    void say(const QString& feature);

private:
    QSet<QString> m_said;
};
