#pragma once

#include <QColor>
#include <QIcon>
#include <QImage>
#include <QString>

// The status item's icon for the state bits: 1 commands run (wins over 2), 2 schedules held;
// with the archive status shown, a badge for 8 critical (wins over 4) or 4 warning. Drawn from
// SVG at every size a panel asks for, in a glyph colour that reads on the panel.
class StatusItemImage
{
public:
    static constexpr quint64 kActive = 1;
    static constexpr quint64 kHeld = 2;
    static constexpr quint64 kWarning = 4;
    static constexpr quint64 kCritical = 8;

    // The base image's name: "MenuBarIconActive", "MenuBarIconHeld" or "MenuBarIcon".
    static QString baseImageName(quint64 state);
    // "StatusUnavailable", "StatusPartiallyAvailable", or empty for no badge.
    static QString badgeImageName(quint64 state, bool showStatus);
    // What the icon shows, as "base" or "base+badge". A badged icon on a dark desktop is the
    // plain active image: a badge on the light glyph would not read there.
    static QString imageName(quint64 state, bool showStatus, bool darkStyle);

    // One named image at a size, its glyph in `glyph`.
    static QImage namedImage(const QString& name, int size, const QColor& glyph);
    static QIcon icon(quint64 state, bool showStatus, bool darkStyle);
    // The tool tip: the product's name, then what the icon says.
    static QString toolTip(quint64 state, bool showStatus);
};
