#pragma once

#include <QString>
#include <optional>

// Whether a script could have been written by someone other than the user: the monitor runs
// scripts with the user's rights, so one that another user could change is not run.
class ScriptTrust
{
public:
    // Why the script must not run, or none when it may.
    static std::optional<QString> reasonNotToRun(const QString& path);
};
