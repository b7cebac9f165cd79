#include "messaging/ActionRunSummary.h"

#include "exception/ValueDescription.h"
#include "foundation/KeyedArchive.h"
#include "foundation/KeyedDecoder.h"

#include <QDataStream>

namespace {
const QString kHoldKey = QStringLiteral("hold");
const QString kStartKey = QStringLiteral("start");
} // namespace

ActionRunSummary::ActionRunSummary(QDateTime startTime, std::optional<QString> holdReason)
    : m_holdReason(std::move(holdReason))
    , m_startTime(std::move(startTime))
{}

void ActionRunSummary::setHoldReason(std::optional<QString> holdReason)
{
    m_holdReason = std::move(holdReason);
}

QString ActionRunSummary::description() const
{
    return QStringLiteral("<ActionRunSummary start=%1 hold=%2>")
        .arg(ValueDescription::describe(m_startTime),
             m_holdReason ? *m_holdReason : QStringLiteral("(null)"));
}

QDataStream& operator<<(QDataStream& stream, const ActionRunSummary& summary)
{
    // A null string stands for "no hold reason"; QDataStream keeps null and empty apart, so a
    // reason that happens to be a null string is written as an empty one.
    QString hold;
    if (summary.holdReason()) {
        hold = summary.holdReason()->isNull() ? QString(0, QChar()) : *summary.holdReason();
    }
    return stream << hold << summary.startTime();
}

QDataStream& operator>>(QDataStream& stream, ActionRunSummary& summary)
{
    QString hold;
    QDateTime start;
    stream >> hold >> start;
    summary = ActionRunSummary(start, hold.isNull() ? std::nullopt : std::optional(hold));
    return stream;
}

void ActionRunSummary::registerArchivableClass()
{
    KeyedArchive::registerClass<ActionRunSummary>(
        QStringLiteral("ActionRunSummary"),
        [](const QVariant& object) {
            const auto summary = object.value<ActionRunSummary>();
            // Absent fields are left out, as a peer leaves out a nil object.
            QVariantMap fields;
            if (summary.holdReason()) {
                fields.insert(kHoldKey, *summary.holdReason());
            }
            if (summary.startTime().isValid()) {
                fields.insert(kStartKey, summary.startTime());
            }
            return fields;
        },
        [](const KeyedDecoder& coder) {
            return QVariant::fromValue(
                ActionRunSummary(coder.decodeDateObject(kStartKey).value_or(QDateTime()),
                                 coder.decodeStringObject(kHoldKey)));
        });
    if (!QMetaType::hasRegisteredConverterFunction<ActionRunSummary, QString>()) {
        QMetaType::registerConverter<ActionRunSummary, QString>(&ActionRunSummary::description);
    }
}

namespace {
// Registered as soon as this file is linked in: the scheduler's run summaries hold these.
[[maybe_unused]] const bool s_registered = (ActionRunSummary::registerArchivableClass(), true);
} // namespace
