#include "exception/ValueDescription.h"

#include <QDateTime>
#include <QStringList>
#include <QTimeZone>

namespace {
constexpr qsizetype kMaxDataBytesShown = 64;

QString indentation(int level)
{
    return QString(level * 4, QLatin1Char(' '));
}

QString describeData(const QByteArray& data)
{
    QString hex;
    const qsizetype shown = std::min(data.size(), kMaxDataBytesShown);
    for (qsizetype i = 0; i < shown; ++i) {
        if (i > 0 && i % 4 == 0) {
            hex += QLatin1Char(' ');
        }
        hex += QString::fromLatin1(data.mid(i, 1).toHex());
    }
    if (shown < data.size()) {
        return QStringLiteral("{length = %1, bytes = <%2 ...>}").arg(data.size()).arg(hex);
    }
    return QStringLiteral("<%1>").arg(hex);
}

QString describeDate(const QDateTime& date)
{
    return date.toTimeZone(QTimeZone::utc()).toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")) +
           QStringLiteral(" +0000");
}
} // namespace

QString ValueDescription::propertyListKind(const QVariant& value)
{
    if (!value.isValid()) {
        return {};
    }
    switch (value.metaType().id()) {
    case QMetaType::Nullptr:
        return kNull;
    case QMetaType::Bool:
    case QMetaType::Int:
    case QMetaType::Long:
    case QMetaType::LongLong:
    case QMetaType::Short:
    case QMetaType::SChar:
    case QMetaType::Char:
    case QMetaType::UInt:
    case QMetaType::ULong:
    case QMetaType::ULongLong:
    case QMetaType::UShort:
    case QMetaType::UChar:
    case QMetaType::Double:
    case QMetaType::Float:
        return kNumber;
    case QMetaType::QString:
        return kString;
    case QMetaType::QByteArray:
        return kData;
    case QMetaType::QDateTime:
        return kDate;
    case QMetaType::QVariantList:
    case QMetaType::QStringList:
        return kArray;
    case QMetaType::QVariantMap:
    case QMetaType::QVariantHash:
        return kDictionary;
    default:
        return {};
    }
}

QString ValueDescription::classNameOf(const QVariant& value)
{
    const QString kind = propertyListKind(value);
    return kind.isEmpty() ? QString::fromLatin1(value.typeName()) : kind;
}

QString ValueDescription::describe(const QVariant& value)
{
    return describe(value, 0);
}

QString ValueDescription::describe(const QVariant& value, int indent)
{
    if (!value.isValid()) {
        return QStringLiteral("(null)");
    }
    switch (value.metaType().id()) {
    case QMetaType::Nullptr:
        return QStringLiteral("<null>");
    case QMetaType::Bool:
        return value.toBool() ? QStringLiteral("1") : QStringLiteral("0");
    case QMetaType::Double:
    case QMetaType::Float:
        return QString::number(value.toDouble(), 'g', QLocale::FloatingPointShortest);
    case QMetaType::QByteArray:
        return describeData(value.toByteArray());
    case QMetaType::QDateTime:
        return describeDate(value.toDateTime());
    case QMetaType::QVariantList:
    case QMetaType::QStringList: {
        QStringList items;
        for (const QVariant& item : value.toList()) {
            items << indentation(indent + 1) + describe(item, indent + 1);
        }
        return QStringLiteral("(\n%1\n%2)")
            .arg(items.join(QStringLiteral(",\n")), indentation(indent));
    }
    case QMetaType::QVariantMap:
    case QMetaType::QVariantHash: {
        const QVariantMap map = value.toMap();
        QString text = QStringLiteral("{\n");
        for (auto it = map.cbegin(); it != map.cend(); ++it) {
            text += QStringLiteral("%1%2 = %3;\n")
                        .arg(indentation(indent + 1), it.key(), describe(it.value(), indent + 1));
        }
        return text + indentation(indent) + QLatin1Char('}');
    }
    default:
        break;
    }
    if (value.metaType().id() < QMetaType::User ||
        QMetaType::hasRegisteredConverterFunction(value.metaType(),
                                                  QMetaType::fromType<QString>())) {
        const QString text = value.toString();
        if (!text.isNull() || value.metaType() == QMetaType::fromType<QString>()) {
            return text;
        }
    }
    return QStringLiteral("<%1>").arg(QString::fromLatin1(value.typeName()));
}
