#pragma once

#include <QStringList>

// kestromctl plays a command that asks the session for something: an archive's path, a
// keyring password, a script run, a script's cancel. Every answer is printed as it comes,
// keep-alives included; the exit status is the final answer's.
class RequestVerbs
{
public:
    static bool handles(const QString& verb);
    // Returns the process's exit status: 0 success, 1 a negative answer or no hub, 2 a usage
    // error, 3 no final answer within the time-out.
    static int run(const QStringList& arguments);
    static QString usage();
};
