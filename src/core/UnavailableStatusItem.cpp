#include "core/UnavailableStatusItem.h"

#include "logging/Logger.h"

#include <QStringList>

void UnavailableStatusItem::installStatusItem()
{
    m_notice.say(QStringLiteral("The status item in the panel"));
}

void UnavailableStatusItem::loadStatusItemIcon(quint64 state)
{
    static const std::pair<quint64, const char*> kNames[] = {
        {1, "active"}, {2, "schedules held"}, {4, "archive warning"}, {8, "archive critical"}};
    QStringList shown;
    for (const auto& [bit, name] : kNames) {
        if (state & bit) {
            shown.append(QString::fromLatin1(name));
        }
    }
    Logger::log(
        9, QStringLiteral("status item state %1 (%2)")
               .arg(state)
               .arg(shown.isEmpty() ? QStringLiteral("idle") : shown.join(QStringLiteral(", "))));
}
