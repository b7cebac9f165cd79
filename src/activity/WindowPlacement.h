#pragma once

#include <QObject>
#include <QPoint>
#include <QString>
#include <QThreadPool>
#include <optional>

class QTimer;
class QWidget;

// Brings a window back where the user left it, as wide as they left it: its position and width
// are kept in a small file half a second after the user moves or resizes it (and when it hides),
// so that a quit of any kind, a signal or a log-out too, finds them kept. They are applied at
// once unless no screen holds that place any more. Where the window manager places windows
// itself (and on Wayland, where a program cannot), the request is simply not honoured. The file
// is written on a thread of its own. Main thread only.
class WindowPlacement final : public QObject
{
public:
    struct Placement
    {
        QPoint position;
        // None in files written before widths were kept.
        std::optional<int> width;
        bool operator==(const Placement&) const = default;
    };

    // A child of the window.
    WindowPlacement(QWidget* window, QString path);
    // Waits for the last write.
    ~WindowPlacement() override;

    // The file for a named window in the product's state folder.
    static QString defaultPath(const QString& name);
    // The placement stored in the file; none when there is none or it cannot be read.
    std::optional<Placement> saved() const;
    std::optional<QPoint> savedPosition() const;
    // Keeps the window's placement now (the write itself may still be under way).
    void save();
    // Returns once every write asked for has ended.
    void waitForWrites();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    QWidget* m_window;
    QString m_path;
    QTimer* m_saveTimer = nullptr;
    QThreadPool m_writer;
    // What the file holds, so that a hide in the same place writes nothing.
    std::optional<Placement> m_saved;
};
