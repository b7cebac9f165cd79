#include "Gallery.h"

#include <QApplication>
#include <QImage>
#include <QLocale>
#include <QWidget>
#include <cstdio>
#include <cstdlib>

void Gallery::prepare()
{
    if (qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")) {
        setenv("QT_QPA_PLATFORM", "offscreen", 0);
    }
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext&, const QString& message) {
        if (!message.startsWith(QLatin1String("This plugin does not support"))) {
            std::fprintf(stderr, "%s%s\n", type >= QtWarningMsg ? "warning: " : "",
                         qPrintable(message));
        }
    });
}

std::optional<QDir> Gallery::folder(const char* program, int& status)
{
    if (QLocale::system().language() == QLocale::C) {
        QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    }
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() != 2) {
        std::fprintf(stderr, "usage: %s FOLDER\n", program);
        status = 2;
        return std::nullopt;
    }
    const QDir folder(arguments.at(1));
    if (!QDir().mkpath(folder.path())) {
        std::fprintf(stderr, "cannot make %s\n", qPrintable(folder.path()));
        status = 1;
        return std::nullopt;
    }
    status = 0;
    return folder;
}

QPalette Gallery::darkPalette()
{
    QPalette dark(QColor(0x35, 0x35, 0x35), QColor(0x2a, 0x2a, 0x2a));
    dark.setColor(QPalette::Highlight, QColor(0x3d, 0x8e, 0xe6));
    return dark;
}

bool Gallery::save(const QImage& image, const QDir& folder, const QString& name,
                   const QString& what)
{
    const QString path = folder.filePath(name + QStringLiteral(".png"));
    if (image.isNull() || !image.save(path)) {
        std::fprintf(stderr, "cannot write %s\n", qPrintable(path));
        return false;
    }
    std::printf("%s  %s\n", qPrintable(path), qPrintable(what));
    return true;
}

bool Gallery::save(QWidget* widget, const QDir& folder, const QString& name, const QString& what)
{
    return save(widget->grab().toImage(), folder, name, what);
}
