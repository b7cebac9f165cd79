#include "ArchiveVerbs.h"

#include "foundation/RelativeDate.h"
#include "messaging/ClientIdentifier.h"
#include "messaging/KSConnection.h"
#include "messaging/KSSwitchboardConnection.h"
#include "preferences/ImpermanentValues.h"
#include "preferences/MonitorDefaults.h"
#include "status/RecentCaptures.h"
#include "status/RepositoryGrade.h"
#include "status/RepositoryStatus.h"

#include <QCommandLineParser>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <cstdio>

namespace {

void print(const QString& line)
{
    std::fprintf(stdout, "%s\n", line.toLocal8Bit().constData());
}

int complain(const QString& line, int status)
{
    std::fprintf(stderr, "kestromctl archive: %s\n", line.toLocal8Bit().constData());
    return status;
}

QString lights(const StatusIndicators& indicator)
{
    QStringList lit;
    if (indicator.OKLight) {
        lit.append(QStringLiteral("ok"));
    }
    if (indicator.warningLight) {
        lit.append(QStringLiteral("warning"));
    }
    if (indicator.criticalLight) {
        lit.append(QStringLiteral("critical"));
    }
    return lit.isEmpty() ? QStringLiteral("-") : lit.join(QLatin1Char('+'));
}

QDateTime daysAgo(const QString& days)
{
    return RelativeDate::now().toUTC().addSecs(qint64(days.toDouble() * 86400));
}

bool writeDataFiles(const QString& archive, int count, qint64 size)
{
    for (int i = 0; i < count; ++i) {
        QFile file(QDir(archive).filePath(QStringLiteral("data.%1").arg(i)));
        if (!file.open(QIODevice::WriteOnly) || !file.resize(size)) {
            return false;
        }
    }
    return true;
}

int create(const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.addPositionalArgument(QStringLiteral("path"), QStringLiteral("the .stromi folder"));
    const QCommandLineOption files(QStringLiteral("files"), QStringLiteral("data files"),
                                   QStringLiteral("n"), QStringLiteral("3"));
    const QCommandLineOption fileSize(QStringLiteral("file-size"), QStringLiteral("bytes each"),
                                      QStringLiteral("bytes"), QStringLiteral("4096"));
    const QCommandLineOption captured(QStringLiteral("captured-days-ago"),
                                      QStringLiteral("last capture (absent: never)"),
                                      QStringLiteral("days"));
    const QCommandLineOption verified(QStringLiteral("verified-days-ago"),
                                      QStringLiteral("last verify (absent: never)"),
                                      QStringLiteral("days"));
    const QCommandLineOption mean(QStringLiteral("mean-interval"),
                                  QStringLiteral("mean capture interval"), QStringLiteral("s"));
    const QCommandLineOption captureWarning(QStringLiteral("capture-warning"),
                                            QStringLiteral("the last capture logged issues"));
    const QCommandLineOption verifyWarning(QStringLiteral("verify-warning"),
                                           QStringLiteral("the last verify logged issues"));
    const QCommandLineOption needsRepair(QStringLiteral("needs-repair"),
                                         QStringLiteral("the archive needs repair"));
    const QCommandLineOption size(QStringLiteral("size"),
                                  QStringLiteral("recorded archive size instead of the files'"),
                                  QStringLiteral("bytes"));
    const QCommandLineOption unused(QStringLiteral("free"),
                                    QStringLiteral("unused bytes inside the archive"),
                                    QStringLiteral("bytes"));
    const QCommandLineOption outline(QStringLiteral("outline"),
                                     QStringLiteral("an item the archive holds (repeatable)"),
                                     QStringLiteral("path"));
    const QCommandLineOption noHistory(QStringLiteral("no-history"),
                                       QStringLiteral("leave no Recent Captures entry"));
    parser.addOptions({files, fileSize, captured, verified, mean, captureWarning, verifyWarning,
                       needsRepair, size, unused, outline, noHistory});
    if (!parser.parse(arguments) || parser.positionalArguments().size() != 1) {
        return complain(parser.errorText().isEmpty() ? QStringLiteral("create needs one path")
                                                     : parser.errorText(),
                        2);
    }
    const QString path = QFileInfo(parser.positionalArguments().first()).absoluteFilePath();
    if (!path.endsWith(QStringLiteral(".stromi"))) {
        return complain(QStringLiteral("an archive's name ends in .stromi"), 2);
    }
    if (!QDir().mkpath(path) ||
        !writeDataFiles(path, parser.value(files).toInt(), parser.value(fileSize).toLongLong())) {
        return complain(QStringLiteral("cannot write %1").arg(path), 1);
    }
    const auto status = RepositoryStatus::statusForRepository(path);
    if (!status) {
        return complain(QStringLiteral("the archive's status cannot be read"), 1);
    }
    const auto setIf = [&](const QCommandLineOption& option, const QVariant& value,
                           const QString& key) {
        if (parser.isSet(option)) {
            status->setProperty(value, key);
        }
    };
    status->updateSizes();
    setIf(captured, daysAgo(QLatin1Char('-') + parser.value(captured)),
          RepositoryStatus::kLastCaptureDate);
    setIf(verified, daysAgo(QLatin1Char('-') + parser.value(verified)),
          RepositoryStatus::kLastVerifyDate);
    setIf(mean, parser.value(mean).toDouble(), RepositoryStatus::kMeanCaptureInterval);
    setIf(captureWarning, true, RepositoryStatus::kCaptureWarning);
    setIf(verifyWarning, true, RepositoryStatus::kVerifyWarning);
    status->setProperty(parser.isSet(needsRepair), RepositoryStatus::kNeedsRepair);
    setIf(size, parser.value(size).toLongLong(), RepositoryStatus::kRepositorySize);
    setIf(unused, parser.value(unused).toLongLong(), RepositoryStatus::kRepositoryFree);
    status->save();

    QList<FQIdentifier> items;
    const ClientIdentifier owner(QStringLiteral("kestromctl"), 1);
    for (const QString& item : parser.values(outline)) {
        if (auto identifier = FullyQualifiedIdentifier::fullyQualifiedIdentifierWithPath(
                QFileInfo(item).absoluteFilePath(), owner)) {
            items.append(std::move(identifier));
        }
    }
    QString failure = RecentCaptures::writeOutline(path, items);
    if (failure.isEmpty() && !parser.isSet(noHistory)) {
        failure = RecentCaptures::recordCapture(path);
    }
    if (!failure.isEmpty()) {
        return complain(failure, 1);
    }
    // The barrier proves the hub has the status notice before this process goes; without a
    // hub there was no one to tell, and it fails at once.
    KSConnection::switchboardConnection()->ping();
    print(QStringLiteral("uuid %1").arg(status->repositoryUUID()));
    print(QStringLiteral("mirror %1").arg(status->mirrorStatusPath()));
    return 0;
}

int showStatus(const QStringList& arguments)
{
    if (arguments.size() != 1) {
        return complain(QStringLiteral("status needs one path"), 2);
    }
    // A status record is made up for any folder it is asked about: say first whether the
    // archive is there at all.
    if (!QFileInfo(arguments.first()).isDir()) {
        return complain(QStringLiteral("archive not found: %1").arg(arguments.first()), 1);
    }
    const auto status = RepositoryStatus::statusForRepository(arguments.first());
    if (!status) {
        return complain(QStringLiteral("no readable status in %1").arg(arguments.first()), 1);
    }
    MonitorDefaults& defaults = MonitorDefaults::standardUserDefaults();
    ImpermanentValues ignores(defaults);
    const RepositoryGrade grade = RepositoryGrade::gradeStatus(*status, defaults, &ignores);
    print(QStringLiteral("archive %1 (%2)").arg(status->displayName(), status->repositoryUUID()));
    print(QStringLiteral("grade %1")
              .arg(grade.isCritical()  ? QStringLiteral("critical")
                   : grade.isWarning() ? QStringLiteral("warning")
                                       : QStringLiteral("ok")));
    if (grade.needsRepair) {
        print(QStringLiteral("repair %1 [%2]").arg(grade.repairText, lights(grade.summary)));
        return 0;
    }
    print(QStringLiteral("capture %1 [%2]").arg(grade.capture.title, lights(grade.capture)));
    print(QStringLiteral("verify %1 [%2]").arg(grade.verify.title, lights(grade.verify)));
    print(QStringLiteral("space %1% used [%2]")
              .arg(qRound(grade.usedFraction * 100))
              .arg(lights(grade.space)));
    return 0;
}

} // namespace

bool ArchiveVerbs::handles(const QString& verb)
{
    return verb == QStringLiteral("archive");
}

int ArchiveVerbs::run(const QStringList& arguments)
{
    const QString action = arguments.value(0);
    if (action == QStringLiteral("create")) {
        return create(arguments);
    }
    if (action == QStringLiteral("status")) {
        return showStatus(arguments.mid(1));
    }
    return complain(QStringLiteral("unknown action '%1'\n%2").arg(action, usage()), 2);
}

QString ArchiveVerbs::usage()
{
    return QStringLiteral(
        "  archive create PATH.stromi [--files N] [--file-size B] [--captured-days-ago D]\n"
        "         [--verified-days-ago D] [--mean-interval S] [--capture-warning]\n"
        "         [--verify-warning] [--needs-repair] [--size B] [--free B] [--outline ITEM]...\n"
        "         [--no-history]\n"
        "  archive status PATH.stromi\n");
}
