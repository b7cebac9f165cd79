#include "core/ScriptTrust.h"

#include <QFileInfo>
#include <sys/stat.h>
#include <unistd.h>

namespace {
bool ownedByUserOrSuperUser(const struct stat& status)
{
    return status.st_uid == geteuid() || status.st_uid == 0;
}
} // namespace

std::optional<QString> ScriptTrust::reasonNotToRun(const QString& path)
{
    // The file a link leads to is what runs, and its folder is where it can be replaced.
    const QString target = QFileInfo(path).canonicalFilePath();
    struct stat file = {};
    if (target.isEmpty() || ::stat(target.toLocal8Bit().constData(), &file) != 0) {
        return QStringLiteral("no script at %1").arg(path);
    }
    if (!ownedByUserOrSuperUser(file)) {
        return QStringLiteral("%1 belongs to uid %2, not to this user")
            .arg(target)
            .arg(file.st_uid);
    }
    if ((file.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        return QStringLiteral("%1 is writable by group or others").arg(target);
    }
    const QString folder = QFileInfo(target).absolutePath();
    struct stat directory = {};
    if (::stat(folder.toLocal8Bit().constData(), &directory) != 0) {
        return QStringLiteral("the folder of %1 cannot be examined").arg(target);
    }
    // In a sticky folder others may write, but not replace what is ours.
    if ((directory.st_mode & S_IWOTH) != 0 && (directory.st_mode & S_ISVTX) == 0) {
        return QStringLiteral("%1 is in %2, which others can write to").arg(target, folder);
    }
    return std::nullopt;
}
