#pragma once

#include <QDir>
#include <QPalette>
#include <QString>
#include <optional>

class QImage;
class QWidget;

// What every gallery program does around its pictures: where and how it renders, which
// palettes it shows, and how a picture is written and reported.
class Gallery
{
public:
    // Before the application object: offscreen where no display is, and quiet about the window
    // calls that platform ignores, none of which matters for a picture.
    static void prepare();
    // After it: an English reader's locale where none is chosen, and the folder the command
    // line names, made. None after saying why; `status` then holds the exit status.
    static std::optional<QDir> folder(const char* program, int& status);

    static QPalette darkPalette();

    static bool save(const QImage& image, const QDir& folder, const QString& name,
                     const QString& what);
    static bool save(QWidget* widget, const QDir& folder, const QString& name, const QString& what);
};
