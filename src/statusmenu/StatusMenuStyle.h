#pragma once

#include <QProxyStyle>

// The status menu's look over the application's style: what follows a tab in an item's text (a
// command's run time, the next action's date) is secondary, drawn smaller and in grey in the
// column where shortcuts stand. The menu has no shortcuts, so nothing else is drawn there.
class StatusMenuStyle : public QProxyStyle
{
    Q_OBJECT

public:
    // The secondary text's size: three quarters of the menu's, but never below this, since a
    // desktop menu font is already small.
    static constexpr double kMinimumSecondaryPointSize = 7.0;

    StatusMenuStyle();

    static QFont secondaryFont(const QFont& font);
    // Grey between the item's text and its background, so it reads in light and dark palettes
    // and on the highlight.
    static QColor secondaryColor(const QPalette& palette, bool selected);

    void drawControl(ControlElement element, const QStyleOption* option, QPainter* painter,
                     const QWidget* widget = nullptr) const override;
};
