#pragma once

#include <QString>

// A build number as people read it ("2.2.5(18)"). Exceptions record the version of the
// component that raised them, so this sits with them, below the readable formatting.
class BuildVersion
{
public:
    static QString readableString(quint32 version);
};
