#include "tracking/IconUtilities.h"

#include "tracking/ProgressServices.h"

#include <cstring>
#include <limits>
#include <stdexcept>

namespace {
constexpr qsizetype kBytesPerPixel = 4;

int sideForLength(qsizetype length)
{
    for (const int side : {16, 32, 64, 128}) {
        if (length == side * side * kBytesPerPixel) {
            return side;
        }
    }
    return 0;
}

bool isNumber(const QVariant& value)
{
    switch (value.typeId()) {
    case QMetaType::Bool:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Double:
        return true;
    default:
        return false;
    }
}
} // namespace

QImage IconUtilities::imageFromRGBAData(const QByteArray& data)
{
    const int side = sideForLength(data.size());
    if (side == 0) {
        throw std::logic_error(QStringLiteral("invalid icon data object length (%1 bytes)")
                                   .arg(data.size())
                                   .toStdString());
    }
    // The bytes go with the image: a QImage over foreign memory would outlive the dictionary.
    QImage image(side, side, QImage::Format_RGBA8888);
    if (image.isNull()) {
        throw std::logic_error("failed to create NSBitmapImageRep");
    }
    const auto rowBytes = static_cast<qsizetype>(side) * kBytesPerPixel;
    for (int row = 0; row < side; ++row) {
        std::memcpy(image.scanLine(row), data.constData() + row * rowBytes,
                    static_cast<size_t>(rowBytes));
    }
    return image;
}

bool IconUtilities::isRGBAData(const QByteArray& data)
{
    return sideForLength(data.size()) != 0;
}

qint64 IconUtilities::systemIconIndexForCode(qint64 code)
{
    return (code == 0 ? kDefaultSystemIconCode : code) + kSystemIconIndexOffset;
}

QImage IconUtilities::imageForIconValue(const QVariant& value)
{
    if (value.typeId() == QMetaType::QByteArray) {
        const QByteArray data = value.toByteArray();
        return isRGBAData(data) ? imageFromRGBAData(data) : QImage();
    }
    if (!isNumber(value)) {
        return {};
    }
    const qint64 index = systemIconIndexForCode(value.toLongLong());
    if (index < 0 || index > std::numeric_limits<int>::max()) {
        return {};
    }
    return ProgressServices::systemIcon(static_cast<int>(index));
}
