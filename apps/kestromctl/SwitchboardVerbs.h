#pragma once

#include <QStringList>

// kestromctl's conversations with the hub: post, watch, lookup, ping, serve.
class SwitchboardVerbs
{
public:
    static bool handles(const QString& verb);
    // Returns the process's exit status; 2 for a usage error.
    static int run(const QString& verb, const QStringList& arguments);
    static QString usage();
};
