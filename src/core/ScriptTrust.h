#pragma once

#include <QString>
#include <optional>

// Whether a script could have been written by someone other than the user: the monitor runs
// scripts with the user's rights, so one that another user could change or replace is not run.
class ScriptTrust
{
public:
    // Walks the path from the root one name at a time, following links itself: every folder
    // and link on the way, and the file, must belong to the user or the super-user, and no
    // folder may be writable by group or others unless it is sticky. Then only those two can
    // change what the path leads to until the script starts. Why it must not run, or none.
    static std::optional<QString> reasonNotToRun(const QString& path);
};
