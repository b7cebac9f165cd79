#include "messaging/ServedObject.h"

#include "KSComponentMessagingAdaptor.h"

ServedObject::ServedObject(QObject* parent)
    : QObject(parent)
{
    new KSComponentMessagingAdaptor(this);
}
