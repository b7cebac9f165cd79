#pragma once

#include "messaging/KSConnectionVendor.h"

class QObject;

// A vendor of one server object, served with its exported interfaces (the adaptors it carries)
// to every peer that connects; no peer is refused.
class KSConnectionServiceSingleton : public KSConnectionVendor
{
public:
    explicit KSConnectionServiceSingleton(QObject* server);

    QObject* serverObject() const;
};
