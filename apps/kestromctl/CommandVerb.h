#pragma once

#include <QStringList>

// kestromctl command: plays one command process from start to stop.
class CommandVerb
{
public:
    static int run(const QStringList& arguments);
    static QString usage();
};
