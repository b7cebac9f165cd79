#include "core/UnavailableNotice.h"

#include "logging/Logger.h"

void UnavailableNotice::say(const QString& feature)
{
    if (!m_said.contains(feature)) {
        m_said.insert(feature);
        Logger::log(4, QStringLiteral("%1 is not available in this build").arg(feature));
    }
}
