#include "core/UnavailableStatusItem.h"

void UnavailableStatusItem::installStatusItem()
{
    m_notice.say(QStringLiteral("The status item in the panel"));
}
