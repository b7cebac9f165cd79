#pragma once

#include <QDateTimeEdit>
#include <QLocale>

// The date and time picker of the schedule dialogs: the desktop's short date and time, but with
// the year in full, so that a date chosen for next year cannot be read as one a century away.
class ScheduleDatePicker : public QDateTimeEdit
{
    Q_OBJECT

public:
    explicit ScheduleDatePicker(QWidget* parent = nullptr);

    static QString displayFormatFor(const QLocale& locale);
};
