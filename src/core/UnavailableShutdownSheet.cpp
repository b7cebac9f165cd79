#include "core/UnavailableShutdownSheet.h"

void UnavailableShutdownSheet::runShutdownSheet(quint32, Reply reply)
{
    // Nobody can be asked whether to wait: the quit goes on rather than never ending.
    m_notice.say(QStringLiteral("Waiting for commands at log-out or shut-down"));
    reply(true);
}
