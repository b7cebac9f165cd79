#include "exception/BuildVersion.h"

namespace {
constexpr quint32 kUnknownBuildVersion = 1677721;
constexpr quint32 kBuildVersionLimit = 0x100000;
} // namespace

QString BuildVersion::readableString(quint32 version)
{
    if (version == kUnknownBuildVersion) {
        return QStringLiteral("unknown");
    }
    if (version >= kBuildVersionLimit) {
        return QStringLiteral("invalid(%1)").arg(QString::number(version, 16).toUpper());
    }
    QString text = QStringLiteral("%1.%2.%3")
                       .arg((version >> 16) & 0xF)
                       .arg((version >> 12) & 0xF)
                       .arg((version >> 8) & 0xF);
    if (const quint32 build = version & 0xFF; build != 0) {
        text += QStringLiteral("(%1)").arg(build);
    }
    return text;
}
