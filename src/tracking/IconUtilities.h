#pragma once

#include <QByteArray>
#include <QImage>
#include <QVariant>

// Icons that commands send in their progress: raw RGBA pixels of a square, or a system icon
// code.
class IconUtilities
{
public:
    // The code that 0 stands for, and the offset of a code into the system icon table.
    static constexpr qint64 kDefaultSystemIconCode = -250;
    static constexpr qint64 kSystemIconIndexOffset = 254;

    // 16, 32, 64 or 128 pixels square, 4 bytes per pixel. Any other length is a programming
    // error of the sender: std::logic_error.
    static QImage imageFromRGBAData(const QByteArray& data);
    // Whether a peer's data has one of those lengths; anything else is refused where it arrives.
    static bool isRGBAData(const QByteArray& data);
    static qint64 systemIconIndexForCode(qint64 code);
    // Data or a number as received under "icon"; a null image for anything else, data of a
    // wrong length included.
    static QImage imageForIconValue(const QVariant& value);
};
