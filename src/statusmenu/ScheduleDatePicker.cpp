#include "statusmenu/ScheduleDatePicker.h"

#include <QRegularExpression>

ScheduleDatePicker::ScheduleDatePicker(QWidget* parent)
    : QDateTimeEdit(parent)
{
    setDisplayFormat(displayFormatFor(locale()));
    setCalendarPopup(true);
}

QString ScheduleDatePicker::displayFormatFor(const QLocale& locale)
{
    QString format = locale.dateTimeFormat(QLocale::ShortFormat);
    static const QRegularExpression kShortYear(QStringLiteral("(?<!y)yy(?!y)"));
    format.replace(kShortYear, QStringLiteral("yyyy"));
    return format;
}
