#include "statuswindow/ArchiveStatusSizeView.h"

#include "foundation/HumanReadableString.h"
#include "status/RepositoryStatus.h"
#include "statuswindow/SizeViewModeAnimation.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <algorithm>
#include <cmath>

namespace {
constexpr double kFocusMargin = 3; // room above the bar for the focus ring
constexpr double kBarHeight = 12;
constexpr double kBarRadius = 3;
constexpr int kLabelGap = 4;
constexpr int kLineSpacing = 2;
constexpr int kBottomMargin = 2;
constexpr int kSwatchSide = 8;
constexpr int kSwatchGap = 4;
constexpr int kLabelSpacing = 12;
constexpr int kPreferredWidth = 320;
constexpr int kMinimumWidth = 80;

bool known(qint64 bytes)
{
    return bytes >= 0;
}

qint64 knownOrZero(qint64 bytes)
{
    return known(bytes) ? bytes : 0;
}

QString readable(qint64 bytes)
{
    return HumanReadableString::stringWithReadableSize(static_cast<quint64>(bytes));
}

// A translucent palette colour as it shows over the window, so the segments never let the
// background through.
QColor opaqueOver(QColor colour, const QColor& window)
{
    const double alpha = colour.alphaF();
    const auto over = [alpha](double top, double bottom) {
        return float(top * alpha + bottom * (1 - alpha));
    };
    return QColor::fromRgbF(over(colour.redF(), window.redF()),
                            over(colour.greenF(), window.greenF()),
                            over(colour.blueF(), window.blueF()));
}
} // namespace

ArchiveStatusSizeView::ArchiveStatusSizeView(QWidget* parent)
    : QWidget(parent)
    , m_animation(new SizeViewModeAnimation(this, this))
{
    QSizePolicy policy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    policy.setHeightForWidth(true);
    setSizePolicy(policy);
    setFocusPolicy(Qt::StrongFocus);
    setAccessibleName(tr("Archive size"));
    sizesChanged();
}

ArchiveStatusSizeView::~ArchiveStatusSizeView() = default;

void ArchiveStatusSizeView::setRepositorySize(qint64 bytes)
{
    if (bytes != m_repositorySize) {
        m_repositorySize = bytes;
        sizesChanged();
    }
}

void ArchiveStatusSizeView::setRepositoryUnused(qint64 bytes)
{
    if (bytes != m_repositoryUnused) {
        m_repositoryUnused = bytes;
        sizesChanged();
    }
}

void ArchiveStatusSizeView::setVolumeSize(qint64 bytes)
{
    if (bytes != m_volumeSize) {
        m_volumeSize = bytes;
        sizesChanged();
    }
}

void ArchiveStatusSizeView::setVolumeFree(qint64 bytes)
{
    if (bytes != m_volumeFree) {
        m_volumeFree = bytes;
        sizesChanged();
    }
}

void ArchiveStatusSizeView::setPropertiesFromStatus(RepositoryStatus& status)
{
    const auto has = [&status](const QString& key) {
        return status.propertyForKey(key).isValid();
    };
    m_repositorySize = has(RepositoryStatus::kRepositorySize) ? status.repositorySize() : kUnknown;
    m_repositoryUnused =
        has(RepositoryStatus::kRepositoryFree) ? status.repositoryFree() : kUnknown;
    const qint64 volumeSize = status.bestVolumeSize();
    m_volumeSize = volumeSize > 0 ? volumeSize : kUnknown;
    // A recorded zero is a full volume, not a missing one.
    const qint64 volumeFree = status.bestVolumeFree();
    m_volumeFree = volumeFree > 0 || has(RepositoryStatus::kVolumeFree) ? volumeFree : kUnknown;
    sizesChanged();
}

void ArchiveStatusSizeView::sizesChanged()
{
    const QString summary = title();
    setToolTip(summary);
    setAccessibleDescription(summary);
    updateGeometry(); // labels may need another line
    update();
}

void ArchiveStatusSizeView::setViewMode(unsigned mode, bool animated)
{
    if (mode > 2) {
        return;
    }
    const double toFree = mode >= 1 ? 1.0 : 0.0;
    const double toSize = mode == 2 ? 1.0 : 0.0;
    const bool changed = mode != m_viewMode;
    m_viewMode = mode;
    // A mode chosen mid-way sets off from where the segments are now.
    m_animation->stop();
    if (animated && (toFree != m_showVolumeFree || toSize != m_showVolumeSize)) {
        m_animation->setShowFree(m_showVolumeFree, toFree);
        m_animation->setShowSize(m_showVolumeSize, toSize);
        m_animation->start();
    } else {
        changeShowFree(toFree, toSize);
    }
    if (changed) {
        Q_EMIT viewModeChanged(mode);
    }
}

void ArchiveStatusSizeView::changeShowFree(double showFree, double showSize)
{
    showFree = std::clamp(showFree, 0.0, 1.0);
    showSize = std::clamp(showSize, 0.0, 1.0);
    if (showFree != m_showVolumeFree || showSize != m_showVolumeSize) {
        m_showVolumeFree = showFree;
        m_showVolumeSize = showSize;
        update();
    }
}

void ArchiveStatusSizeView::setSizeBarInset(double inset)
{
    if (inset != m_sizeBarInset) {
        m_sizeBarInset = inset;
        updateGeometry();
        update();
    }
}

QRectF ArchiveStatusSizeView::barRect() const
{
    return {m_sizeBarInset, kFocusMargin, std::max(0.0, width() - 2 * m_sizeBarInset), kBarHeight};
}

ArchiveStatusSizeView::SegmentValues ArchiveStatusSizeView::segmentValues() const
{
    SegmentValues values;
    if (known(m_repositorySize)) {
        values[kUsed].bytes =
            std::max<qint64>(0, m_repositorySize - knownOrZero(m_repositoryUnused));
    }
    values[kUnused].bytes = known(m_repositoryUnused) ? m_repositoryUnused : kUnknown;
    values[kFree] = {known(m_volumeFree) ? m_volumeFree : kUnknown, m_showVolumeFree};
    // What is not known is left in the rest, so the widest mode always spans the whole volume.
    if (known(m_volumeSize)) {
        values[kOther].bytes = std::max<qint64>(0, m_volumeSize - knownOrZero(m_volumeFree) -
                                                       knownOrZero(m_repositorySize));
    }
    values[kOther].shown = m_showVolumeSize;
    return values;
}

QString ArchiveStatusSizeView::segmentLabel(std::size_t segment, const SegmentValue& value) const
{
    static const char* const kNames[] = {QT_TR_NOOP("used"), QT_TR_NOOP("unused"),
                                         QT_TR_NOOP("free"), QT_TR_NOOP("other")};
    const QString name = tr(kNames[segment]);
    return known(value.bytes) ? tr("%1 %2").arg(readable(value.bytes), name)
                              : tr("unknown %1").arg(name);
}

QStringList ArchiveStatusSizeView::segmentLabels() const
{
    QStringList labels;
    const auto values = segmentValues();
    for (std::size_t segment = 0; segment < kSegmentCount; ++segment) {
        if (values[segment].shown > 0) {
            labels << segmentLabel(segment, values[segment]);
        }
    }
    return labels;
}

QString ArchiveStatusSizeView::title() const
{
    QStringList parts;
    if (known(m_repositorySize)) {
        parts << tr("%1 used").arg(readable(segmentValues()[kUsed].bytes));
        if (m_repositoryUnused > 0) {
            parts << tr("%1 unused").arg(readable(m_repositoryUnused));
        }
    } else {
        parts << tr("archive size unknown");
    }
    if (known(m_volumeFree) && known(m_volumeSize)) {
        parts << tr("%1 free of %2").arg(readable(m_volumeFree), readable(m_volumeSize));
    } else if (known(m_volumeFree)) {
        parts << tr("%1 free, volume size unknown").arg(readable(m_volumeFree));
    } else if (known(m_volumeSize)) {
        parts << tr("free space unknown, %1 volume").arg(readable(m_volumeSize));
    } else {
        parts << tr("free space and volume size unknown");
    }
    QString line = parts.join(QStringLiteral(", "));
    line[0] = line[0].toUpper();
    return line;
}

QFont ArchiveStatusSizeView::labelFont() const
{
    QFont small = font();
    small.setPointSizeF(8);
    return small;
}

// Labels run left to right under the bar and wrap to another line rather than overlap.
std::vector<ArchiveStatusSizeView::LabelPlace>
ArchiveStatusSizeView::labelPlaces(int width, const SegmentValues& values) const
{
    const QFontMetrics metrics(labelFont());
    const int left = int(std::ceil(m_sizeBarInset));
    const int right = std::max(left + kSwatchSide + kSwatchGap + 1, width - left);
    const int lineHeight = metrics.height();
    const int textRoom = right - left - kSwatchSide - kSwatchGap;
    int x = left;
    int y = int(std::ceil(kFocusMargin + kBarHeight)) + kLabelGap;
    std::vector<LabelPlace> places;
    for (std::size_t segment = 0; segment < kSegmentCount; ++segment) {
        if (values[segment].shown <= 0) {
            continue;
        }
        const QString text =
            metrics.elidedText(segmentLabel(segment, values[segment]), Qt::ElideRight, textRoom);
        const int textWidth = metrics.horizontalAdvance(text);
        if (x > left && x + kSwatchSide + kSwatchGap + textWidth > right) {
            x = left;
            y += lineHeight + kLineSpacing;
        }
        LabelPlace place{segment, text, {}, {}};
        place.swatch = QRect(x, y + (lineHeight - kSwatchSide) / 2, kSwatchSide, kSwatchSide);
        place.textRect = QRect(x + kSwatchSide + kSwatchGap, y, textWidth, lineHeight);
        x = place.textRect.right() + 1 + kLabelSpacing;
        places.push_back(std::move(place));
    }
    return places;
}

int ArchiveStatusSizeView::heightForWidth(int width) const
{
    // Laid out with every label shown, so changing modes never changes the row's height.
    auto values = segmentValues();
    for (SegmentValue& value : values) {
        value.shown = 1;
    }
    return labelPlaces(width, values).back().textRect.bottom() + 1 + kBottomMargin;
}

QSize ArchiveStatusSizeView::sizeHint() const
{
    return {kPreferredWidth, heightForWidth(kPreferredWidth)};
}

QSize ArchiveStatusSizeView::minimumSizeHint() const
{
    return {kMinimumWidth, heightForWidth(kMinimumWidth)};
}

QColor ArchiveStatusSizeView::segmentColor(std::size_t segment, bool isKnown) const
{
    const QPalette& colours = palette();
    const QColor window = colours.color(QPalette::Window);
    const bool dark = window.lightnessF() < 0.5;
    if (!isKnown) {
        return dark ? QColor(0xb8, 0xb8, 0xb8) : QColor(0xcc, 0xcc, 0xcc);
    }
    switch (segment) {
    case kUsed:
        return dark ? QColor(0xb0, 0x86, 0xe8) : QColor(0x86, 0x4c, 0xc4);
    case kUnused:
        return dark ? QColor(0x5c, 0xc8, 0x7c) : QColor(0x3b, 0xa0, 0x5c);
    case kFree:
        return opaqueOver(colours.color(QPalette::Inactive, QPalette::Highlight), window);
    default:
        return opaqueOver(colours.color(QPalette::PlaceholderText), window);
    }
}

void ArchiveStatusSizeView::paintBar(QPainter& painter, const SegmentValues& values) const
{
    const QRectF bar = barRect();
    QPainterPath barPath;
    barPath.addRoundedRect(bar, kBarRadius, kBarRadius);
    double total = 0;
    for (const SegmentValue& value : values) {
        total += static_cast<double>(knownOrZero(value.bytes)) * value.shown;
    }
    painter.setPen(Qt::NoPen);
    if (total <= 0) {
        painter.fillPath(barPath, segmentColor(kUsed, false));
        return;
    }
    // Edges on whole pixels, so neighbouring segments meet without a seam.
    double sum = 0;
    for (std::size_t segment = 0; segment < kSegmentCount; ++segment) {
        const double weight =
            static_cast<double>(knownOrZero(values[segment].bytes)) * values[segment].shown;
        if (weight <= 0) {
            continue;
        }
        const double from = std::round(bar.left() + bar.width() * sum / total);
        sum += weight;
        const double to = std::round(bar.left() + bar.width() * sum / total);
        if (to <= from) {
            continue;
        }
        QPainterPath piece;
        piece.addRect(QRectF(from, bar.top(), to - from, bar.height()));
        painter.fillPath(barPath.intersected(piece), segmentColor(segment, true));
    }
}

void ArchiveStatusSizeView::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const auto values = segmentValues();
    paintBar(painter, values);
    if (hasFocus()) {
        painter.setPen(QPen(palette().color(QPalette::Highlight), 2));
        painter.setBrush(Qt::NoBrush);
        painter.drawRoundedRect(barRect().adjusted(-1.5, -1.5, 1.5, 1.5), kBarRadius + 1.5,
                                kBarRadius + 1.5);
    }
    painter.setFont(labelFont());
    for (const LabelPlace& place : labelPlaces(width(), values)) {
        const SegmentValue& value = values[place.segment];
        // Labels of the optional segments fade in and out with them.
        painter.setOpacity(value.shown);
        painter.fillRect(place.swatch, segmentColor(place.segment, known(value.bytes)));
        painter.setPen(palette().color(QPalette::WindowText));
        painter.drawText(place.textRect, Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine,
                         place.text);
    }
}

void ArchiveStatusSizeView::selectNextMode()
{
    const unsigned mode = nextMode();
    setViewMode(mode);
    Q_EMIT viewModeSelected(mode);
}

void ArchiveStatusSizeView::mousePressEvent(QMouseEvent* event)
{
    if (event->button() == Qt::LeftButton && barRect().contains(event->position())) {
        m_pressedInBar = true;
        event->accept();
        return;
    }
    QWidget::mousePressEvent(event);
}

void ArchiveStatusSizeView::mouseReleaseEvent(QMouseEvent* event)
{
    if (event->button() != Qt::LeftButton) {
        QWidget::mouseReleaseEvent(event);
        return;
    }
    // A press that leaves the bar before its release is taken back.
    const bool click = m_pressedInBar && barRect().contains(event->position());
    m_pressedInBar = false;
    if (click) {
        selectNextMode();
    }
    event->accept();
}

void ArchiveStatusSizeView::keyPressEvent(QKeyEvent* event)
{
    switch (event->key()) {
    case Qt::Key_Space:
    case Qt::Key_Return:
    case Qt::Key_Enter:
        selectNextMode();
        event->accept();
        return;
    default:
        QWidget::keyPressEvent(event);
    }
}

void ArchiveStatusSizeView::changeEvent(QEvent* event)
{
    if (event->type() == QEvent::FontChange) {
        updateGeometry();
    }
    if (event->type() == QEvent::PaletteChange || event->type() == QEvent::FontChange) {
        update();
    }
    QWidget::changeEvent(event);
}
