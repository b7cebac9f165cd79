#include "statusmenu/StatusItemImage.h"

#include <QBuffer>
#include <QFile>
#include <QImageReader>
#include <QPainter>
#include <QStringList>

namespace {
// A panel asks for one of these; drawn from the SVG, each is crisp.
constexpr int kSizes[] = {16, 22, 24, 32, 44, 48, 64};
// The image is designed on a 22-point grid; the badge sits here on it.
constexpr double kGrid = 22.0;
const QRectF kBadgeRect(4, 5, 13, 13);

QColor glyphColor(bool darkStyle)
{
    return darkStyle ? QColor(0xf2, 0xf2, 0xf2) : QColor(0x2e, 0x2e, 0x2e);
}
} // namespace

QString StatusItemImage::baseImageName(quint64 state)
{
    if (state & kActive) {
        return QStringLiteral("MenuBarIconActive");
    }
    return (state & kHeld) ? QStringLiteral("MenuBarIconHeld") : QStringLiteral("MenuBarIcon");
}

QString StatusItemImage::badgeImageName(quint64 state, bool showStatus)
{
    if (!showStatus) {
        return {};
    }
    if (state & kCritical) {
        return QStringLiteral("StatusUnavailable");
    }
    return (state & kWarning) ? QStringLiteral("StatusPartiallyAvailable") : QString();
}

QString StatusItemImage::imageName(quint64 state, bool showStatus, bool darkStyle)
{
    const QString badge = badgeImageName(state, showStatus);
    if (badge.isEmpty()) {
        return baseImageName(state);
    }
    if (darkStyle) {
        return QStringLiteral("MenuBarIconActive");
    }
    return baseImageName(state) + QLatin1Char('+') + badge;
}

QImage StatusItemImage::namedImage(const QString& name, int size, const QColor& glyph)
{
    QFile file(QStringLiteral(":/statusmenu/images/%1.svg").arg(name));
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    QByteArray svg = file.readAll();
    svg.replace("currentColor", glyph.name().toLatin1());
    QBuffer buffer(&svg);
    QImageReader reader(&buffer, "svg");
    reader.setScaledSize(QSize(size, size));
    return reader.read();
}

QIcon StatusItemImage::icon(quint64 state, bool showStatus, bool darkStyle)
{
    const QStringList parts = imageName(state, showStatus, darkStyle).split(QLatin1Char('+'));
    const QColor glyph = glyphColor(darkStyle);
    QIcon icon;
    for (const int size : kSizes) {
        QImage image = namedImage(parts.first(), size, glyph);
        if (image.isNull()) {
            continue;
        }
        if (parts.size() > 1) {
            const double scale = size / kGrid;
            const QRectF place(kBadgeRect.x() * scale, kBadgeRect.y() * scale,
                               kBadgeRect.width() * scale, kBadgeRect.height() * scale);
            const QImage badge = namedImage(parts.at(1), qRound(place.width()), glyph);
            QPainter painter(&image);
            painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
            painter.drawImage(place, badge);
        }
        icon.addPixmap(QPixmap::fromImage(image));
    }
    return icon;
}

QString StatusItemImage::toolTip(quint64 state, bool showStatus)
{
    QStringList lines{QStringLiteral("Kestrom Activity Monitor")};
    if (state & kActive) {
        lines.append(QStringLiteral("Commands are running"));
    }
    if (state & kHeld) {
        lines.append(QStringLiteral("Schedules are held"));
    }
    if (showStatus && (state & kCritical)) {
        lines.append(QStringLiteral("An archive needs attention now"));
    } else if (showStatus && (state & kWarning)) {
        lines.append(QStringLiteral("An archive needs attention soon"));
    }
    return lines.join(QLatin1Char('\n'));
}
