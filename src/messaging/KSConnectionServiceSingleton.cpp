#include "messaging/KSConnectionServiceSingleton.h"

KSConnectionServiceSingleton::KSConnectionServiceSingleton(QObject* server)
    : KSConnectionVendor(std::make_unique<AnonymousListener>(server))
{
    listener()->resume();
}

QObject* KSConnectionServiceSingleton::serverObject() const
{
    return listener() != nullptr ? listener()->servedObject() : nullptr;
}
