#pragma once

#include <QColor>
#include <QRect>
#include <QStringList>
#include <QWidget>
#include <array>
#include <vector>

class RepositoryStatus;
class SizeViewModeAnimation;

// The bar of an archive's size within its volume: what the archive uses, what it holds unused,
// the volume's free space and, in the widest mode, the rest of the volume, each labelled below
// the bar. A click or Space/Return moves to the next mode with a short animation; the row keeps
// the user's choice per archive, so the view only reports it. Main thread only.
class ArchiveStatusSizeView : public QWidget
{
    Q_OBJECT
    Q_PROPERTY(unsigned viewMode READ viewMode WRITE setViewMode NOTIFY viewModeChanged)

public:
    // A byte count that is not known.
    static constexpr qint64 kUnknown = -1;

    explicit ArchiveStatusSizeView(QWidget* parent = nullptr);
    ~ArchiveStatusSizeView() override;

    qint64 repositorySize() const { return m_repositorySize; }
    void setRepositorySize(qint64 bytes);
    qint64 repositoryUnused() const { return m_repositoryUnused; }
    void setRepositoryUnused(qint64 bytes);
    qint64 volumeSize() const { return m_volumeSize; }
    void setVolumeSize(qint64 bytes);
    qint64 volumeFree() const { return m_volumeFree; }
    void setVolumeFree(qint64 bytes);
    // Reads the four sizes; a size the status does not have becomes kUnknown.
    void setPropertiesFromStatus(RepositoryStatus& status);

    // 0 the archive only, 1 with the volume's free space, 2 with the rest of the volume too.
    unsigned viewMode() const { return m_viewMode; }
    unsigned nextMode() const { return (m_viewMode + 1) % 3; }
    // Ignores a mode above 2.
    void setViewMode(unsigned mode, bool animated = true);
    // How much of the free and of the rest-of-volume segments shows, each 0..1.
    double showVolumeFree() const { return m_showVolumeFree; }
    double showVolumeSize() const { return m_showVolumeSize; }
    void changeShowFree(double showFree, double showSize);
    // The one that moves between modes; stopped when the view is not changing.
    SizeViewModeAnimation* modeAnimation() const { return m_animation; }

    // The bar's distance from the left and right edges, so rows can align it with their text.
    double sizeBarInset() const { return m_sizeBarInset; }
    void setSizeBarInset(double inset);
    QRectF barRect() const;

    // The labels below the bar, in order, and the one-line summary (tooltip, description).
    QStringList segmentLabels() const;
    QString title() const;

    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override;
    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

Q_SIGNALS:
    // Only for a mode the user chose.
    void viewModeSelected(unsigned mode);
    // For every change of mode, the program's own included.
    void viewModeChanged(unsigned mode);

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    enum Segment : std::size_t
    {
        kUsed,
        kUnused,
        kFree,
        kOther,
        kSegmentCount,
    };
    struct SegmentValue
    {
        qint64 bytes = kUnknown;
        double shown = 1; // 0 is hidden by the mode
    };
    using SegmentValues = std::array<SegmentValue, kSegmentCount>;
    struct LabelPlace
    {
        std::size_t segment = 0;
        QString text; // elided where it had to be
        QRect swatch;
        QRect textRect;
    };

    SegmentValues segmentValues() const;
    QString segmentLabel(std::size_t segment, const SegmentValue& value) const;
    std::vector<LabelPlace> labelPlaces(int width, const SegmentValues& values) const;
    QFont labelFont() const;
    QColor segmentColor(std::size_t segment, bool known) const;
    void paintBar(QPainter& painter, const SegmentValues& values) const;
    void selectNextMode();
    void sizesChanged();

    qint64 m_repositorySize = kUnknown;
    qint64 m_repositoryUnused = kUnknown;
    qint64 m_volumeSize = kUnknown;
    qint64 m_volumeFree = kUnknown;
    unsigned m_viewMode = 1;
    double m_showVolumeFree = 1.0;
    double m_showVolumeSize = 0.0;
    double m_sizeBarInset = 3.0;
    bool m_pressedInBar = false;
    SizeViewModeAnimation* m_animation = nullptr; // a child
};
