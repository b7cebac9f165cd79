#include "core/ThemeChangeObserver.h"

#include <QCoreApplication>
#include <QEvent>

ThemeChangeObserver::ThemeChangeObserver(QObject* parent)
    : QObject(parent)
{
    if (QCoreApplication* application = QCoreApplication::instance()) {
        application->installEventFilter(this);
    }
}

bool ThemeChangeObserver::eventFilter(QObject* watched, QEvent* event)
{
    // Both arrive for one change of scheme on some desktops; a second redraw costs nothing.
    if (watched == QCoreApplication::instance() &&
        (event->type() == QEvent::ApplicationPaletteChange ||
         event->type() == QEvent::ThemeChange)) {
        Q_EMIT themeChanged();
    }
    return false;
}
