#include "core/UnavailableStatusWindow.h"

void UnavailableStatusWindow::showStatusWindowInFront(bool)
{
    m_notice.say(QStringLiteral("The archive status window"));
}
