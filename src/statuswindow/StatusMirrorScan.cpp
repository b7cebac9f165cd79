#include "statuswindow/StatusMirrorScan.h"

#include "logging/Logger.h"
#include "status/RepositoryStatus.h"

#include <QCollator>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>
#include <algorithm>

QString StatusMirrorScan::Entry::uuid() const
{
    return status ? status->repositoryUUID() : QFileInfo(mirrorPath).completeBaseName();
}

QDateTime StatusMirrorScan::cutoffDate(const QDateTime& now, double retirementDays)
{
    const double seconds =
        retirementDays > 0 ? retirementDays * 86400 : double(kDefaultRetirementSeconds);
    return now.addMSecs(-qint64(seconds * 1000));
}

namespace {

QList<StatusMirrorScan::Entry> readMirrors(const QString& folder)
{
    QList<StatusMirrorScan::Entry> entries;
    const QDir directory(folder);
    const QStringList names =
        directory.entryList({QStringLiteral("*.plist")},
                            QDir::Files | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System);
    for (const QString& name : names) {
        StatusMirrorScan::Entry entry;
        entry.mirrorPath = directory.filePath(name);
        entry.status = RepositoryStatus::statusFromMirrorPath(entry.mirrorPath, &entry.problem);
        if (!entry.status && !QFile::exists(entry.mirrorPath)) {
            continue; // deleted while the folder was read
        }
        entry.modified = entry.status ? entry.status->lastModified()
                                      : QFileInfo(entry.mirrorPath).lastModified().toUTC();
        if (entry.status) {
            // Read here so that grading on the main thread finds the volume's sizes cached.
            entry.status->volumeAttributes();
        }
        entries.append(std::move(entry));
    }
    return entries;
}

} // namespace

bool StatusMirrorScan::retire(const Entry& entry)
{
    if (entry.status) {
        return entry.status->retire();
    }
    QFile mirror(entry.mirrorPath);
    if (!mirror.remove()) {
        const LogLine line =
            Logger::log(3, QStringLiteral("Unable to forget the unreadable archive status %1")
                               .arg(entry.mirrorPath));
        Logger::log(7, line, QStringLiteral("Error"), mirror.errorString());
        return false;
    }
    Logger::log(4, QStringLiteral("Forgot the old unreadable archive status %1 (%2)")
                       .arg(entry.mirrorPath, entry.problem));
    return true;
}

QList<StatusMirrorScan::Entry> StatusMirrorScan::collect(const QString& folder,
                                                         const QDateTime& cutoff)
{
    QList<Entry> entries = readMirrors(folder);
    std::stable_sort(entries.begin(), entries.end(),
                     [](const Entry& a, const Entry& b) { return a.modified > b.modified; });
    QList<Entry> survivors;
    QSet<QString> paths;
    for (Entry& entry : entries) {
        if (entry.modified < cutoff && retire(entry)) {
            continue;
        }
        if (entry.status) {
            const QString path = entry.status->repositoryPath();
            if (!path.isEmpty() && paths.contains(path)) {
                continue;
            }
            paths.insert(path);
        }
        survivors.append(std::move(entry));
    }
    QCollator collator;
    collator.setNumericMode(true);
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    std::stable_sort(survivors.begin(), survivors.end(),
                     [&collator](const Entry& a, const Entry& b) {
                         if (bool(a.status) != bool(b.status)) {
                             return bool(a.status);
                         }
                         if (a.status) {
                             return a.status->compareName(*b.status) < 0;
                         }
                         return collator.compare(a.mirrorPath, b.mirrorPath) < 0;
                     });
    return survivors;
}
