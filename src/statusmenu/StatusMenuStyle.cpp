#include "statusmenu/StatusMenuStyle.h"

#include <QApplication>
#include <QFontMetricsF>
#include <QPainter>
#include <QStyleOptionMenuItem>
#include <cmath>

namespace {
constexpr double kSecondaryScale = 0.75;
// How much of the text's colour the grey keeps; the rest is the background's.
constexpr double kTextShare = 0.6;

QColor mixed(const QColor& text, const QColor& background, double textShare)
{
    const auto mix = [textShare](double a, double b) {
        return a * textShare + b * (1.0 - textShare);
    };
    return QColor::fromRgbF(float(mix(text.redF(), background.redF())),
                            float(mix(text.greenF(), background.greenF())),
                            float(mix(text.blueF(), background.blueF())));
}

// Down by this much, the smaller text stands on the same baseline as the title, both being
// centred in the item.
qreal baselineShift(const QFont& title, const QFont& secondary)
{
    const QFontMetricsF large(title);
    const QFontMetricsF small(secondary);
    return ((large.ascent() - large.descent()) - (small.ascent() - small.descent())) / 2.0;
}
} // namespace

StatusMenuStyle::StatusMenuStyle()
    // By name: a base style given by pointer would be owned, and the application's is not ours.
    : QProxyStyle(QApplication::style() != nullptr ? QApplication::style()->name() : QString())
{}

QFont StatusMenuStyle::secondaryFont(const QFont& font)
{
    QFont secondary = font;
    const double size = font.pointSizeF();
    if (size > 0) {
        secondary.setPointSizeF(
            std::max(std::floor(size * kSecondaryScale), kMinimumSecondaryPointSize));
    } else {
        secondary.setPixelSize(std::max(1, int(std::floor(font.pixelSize() * kSecondaryScale))));
    }
    return secondary;
}

QColor StatusMenuStyle::secondaryColor(const QPalette& palette, bool selected)
{
    if (selected) {
        return mixed(palette.color(QPalette::HighlightedText), palette.color(QPalette::Highlight),
                     0.8);
    }
    return mixed(palette.color(QPalette::Text), palette.color(QPalette::Base), kTextShare);
}

void StatusMenuStyle::drawControl(ControlElement element, const QStyleOption* option,
                                  QPainter* painter, const QWidget* widget) const
{
    const auto* item = qstyleoption_cast<const QStyleOptionMenuItem*>(option);
    const qsizetype tab =
        element == CE_MenuItem && item != nullptr ? item->text.indexOf(QLatin1Char('\t')) : -1;
    if (tab < 0) {
        QProxyStyle::drawControl(element, option, painter, widget);
        return;
    }
    QStyleOptionMenuItem title(*item);
    title.text = item->text.left(tab);
    QProxyStyle::drawControl(element, &title, painter, widget);

    // Drawn again as an item with nothing but a shortcut, the base style puts the secondary
    // text in its column; unselected, it does not paint the highlight over the title.
    QStyleOptionMenuItem secondary(*item);
    secondary.text = QLatin1Char('\t') + item->text.mid(tab + 1);
    secondary.state &= ~State_Selected;
    secondary.icon = QIcon();
    secondary.menuItemType = QStyleOptionMenuItem::Normal;
    secondary.checkType = QStyleOptionMenuItem::NotCheckable;
    secondary.checked = false;
    secondary.font = secondaryFont(item->font);
    const bool enabled = item->state & State_Enabled;
    // A disabled item's text is grey already.
    if (enabled) {
        const QColor grey = secondaryColor(item->palette, item->state & State_Selected);
        for (const QPalette::ColorRole role : {QPalette::Text, QPalette::WindowText,
                                               QPalette::ButtonText, QPalette::HighlightedText}) {
            secondary.palette.setColor(role, grey);
        }
    }
    painter->save();
    painter->setFont(secondary.font);
    painter->translate(0, baselineShift(item->font, secondary.font));
    QProxyStyle::drawControl(element, &secondary, painter, widget);
    painter->restore();
}
