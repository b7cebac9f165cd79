#pragma once

#include <QObject>

// Tells when the desktop's colours or theme change. Qt delivers that as an event to the
// application object, so this filters the application's events without taking any.
class ThemeChangeObserver : public QObject
{
    Q_OBJECT
public:
    explicit ThemeChangeObserver(QObject* parent = nullptr);

Q_SIGNALS:
    void themeChanged();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
};
