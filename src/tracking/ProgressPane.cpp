#include "tracking/ProgressPane.h"

#include <QHash>

ProgressPane::~ProgressPane() = default;

std::optional<ProgressPane::Kind>
ProgressPane::umbrellaControllerForCommand(const QString& commandName)
{
    static const QHash<QString, Kind> kKinds = {
        {QStringLiteral("capture"), Kind::File},    {QStringLiteral("recall"), Kind::File},
        {QStringLiteral("restore"), Kind::File},    {QStringLiteral("merge"), Kind::Details},
        {QStringLiteral("combine"), Kind::Details}, {QStringLiteral("delete"), Kind::Details},
        {QStringLiteral("erase"), Kind::Details},   {QStringLiteral("compact"), Kind::Compact},
        {QStringLiteral("verify"), Kind::Index},    {QStringLiteral("reindex"), Kind::Index},
        {QStringLiteral("repair"), Kind::Index},
    };
    const auto found = kKinds.constFind(commandName);
    if (found == kKinds.constEnd()) {
        return std::nullopt;
    }
    return *found;
}
