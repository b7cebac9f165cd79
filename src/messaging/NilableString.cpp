#include "messaging/NilableString.h"

#include "exception/KSException.h"
#include "foundation/KeyedArchive.h"

QByteArray NilableString::archived(const QString& text)
{
    return KeyedArchive::archivedData(text.isNull() ? QVariant::fromValue(nullptr)
                                                    : QVariant(text));
}

QString NilableString::unarchived(const QByteArray& data)
{
    const QVariant value = KeyedArchive::unarchivedObject(data, allowedClasses());
    if (value.typeId() == QMetaType::Nullptr) {
        return {};
    }
    if (value.typeId() != QMetaType::QString) {
        KSException::exceptionWithName(QStringLiteral("Archive"),
                                       QStringLiteral("no string or null in archive"))
            .raise();
    }
    // An empty text must not come back as nil.
    const QString text = value.toString();
    return text.isNull() ? QStringLiteral("") : text;
}

QSet<QString> NilableString::allowedClasses()
{
    return {KeyedArchive::kString, KeyedArchive::kNull};
}
