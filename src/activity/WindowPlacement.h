#pragma once

#include <QObject>
#include <QPoint>
#include <QString>
#include <optional>

class QWidget;

// Brings a window back where the user left it: its position is kept in a small file when the
// window hides (and when its owner saves it before the window goes), and applied at once unless no
// screen holds that place any more. Where the window manager places windows itself (and on Wayland,
// where a program cannot), the request is simply not honoured. Main thread only.
class WindowPlacement final : public QObject
{
public:
    // A child of the window.
    WindowPlacement(QWidget* window, QString path);

    // The file for a named window in the product's state folder.
    static QString defaultPath(const QString& name);
    // The position stored in the file; none when there is none or it cannot be read.
    std::optional<QPoint> savedPosition() const;
    void save();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    QWidget* m_window;
    QString m_path;
    // What the file holds, so that a hide in the same place writes nothing.
    std::optional<QPoint> m_saved;
};
