#pragma once

#include <QColor>
#include <QList>
#include <QPalette>
#include <QWidget>

// The container of every part of a stacked window: it fills itself with its background and,
// unless it is the first part, draws a one-pixel divider along its top edge that fades out at
// both ends. Colours follow the palette, so dark and light desktops both read well.
class StackedPartView : public QWidget
{
    Q_OBJECT
    Q_PROPERTY(QString backgroundColorSemanticList READ backgroundColorSemanticList WRITE
                   setBackgroundColorSemanticList)
    Q_PROPERTY(bool hideDivider READ hideDivider WRITE setHideDivider)

public:
    // A part nearer than this to the top of its stack is the first one and has no divider.
    static constexpr int kDividerOffset = 4;

    explicit StackedPartView(QWidget* parent = nullptr);

    QColor backgroundColor() const;
    void setBackgroundColor(const QColor& color);
    // A comma-separated list of palette role names ("base", "window", "alternateBase", ...);
    // the first known one becomes the background.
    QString backgroundColorSemanticList() const { return QStringLiteral("backgroundColor"); }
    void setBackgroundColorSemanticList(const QString& list);
    bool hideDivider() const { return m_hideDivider; }
    void setHideDivider(bool hide);
    bool drawsDivider() const;

    virtual QList<QColor> gradientColors() const;

protected:
    void paintEvent(QPaintEvent* event) override;
    void moveEvent(QMoveEvent* event) override;

private:
    QColor m_backgroundColor;
    QPalette::ColorRole m_backgroundRole = QPalette::Window;
    bool m_hideDivider = false;
    bool m_drewDivider = false;
};
