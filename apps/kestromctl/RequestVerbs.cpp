#include "RequestVerbs.h"

#include "messaging/KSSwitchboardConnection.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>
#include <QTimer>
#include <cstdio>
#include <functional>

namespace {
const QString kMonitorSource = QStringLiteral("com.kestrom.monitor");
const QString kCommandSource = QStringLiteral("Command");
const QString kCommandID = QStringLiteral("CommandID");

void print(const QString& line)
{
    std::fprintf(stdout, "%s\n", line.toLocal8Bit().constData());
    std::fflush(stdout);
}

int complain(const QString& line, int status)
{
    std::fprintf(stderr, "kestromctl request: %s\n", line.toLocal8Bit().constData());
    return status;
}

// Reads one answer; returns the exit status when it is the final one.
using Reader = std::function<std::optional<int>(const QVariantMap& info)>;

struct Request
{
    QString answerName;
    QString answerSource;
    QString requestName;
    QVariantMap requestInfo;
    Reader read;
};

// Observes first and proves the hub has the observer before asking, so no answer is missed.
int ask(const Request& request, int timeoutSeconds)
{
    const auto switchboard = KSConnection::switchboardConnection();
    const QString identifier = request.requestInfo.value(kCommandID).toString();
    switchboard->addObserver(QString(), request.answerName, request.answerSource,
                             [request, identifier](const QString&, const QVariantMap& info) {
                                 if (info.value(kCommandID, identifier).toString() != identifier) {
                                     return;
                                 }
                                 if (const std::optional<int> status = request.read(info)) {
                                     QMetaObject::invokeMethod(
                                         qApp, [code = *status] { QCoreApplication::exit(code); },
                                         Qt::QueuedConnection);
                                 }
                             });
    if (!switchboard->ping()) {
        return complain(QStringLiteral("the switchboard did not answer (absent, or it refused "
                                       "this user)"),
                        1);
    }
    switchboard->postNotification(request.requestName, kCommandSource, request.requestInfo);
    QTimer::singleShot(std::chrono::seconds(timeoutSeconds), qApp, [] {
        complain(QStringLiteral("no final answer in time"), 3);
        QCoreApplication::exit(3);
    });
    return QCoreApplication::exec();
}

Request repository(const QString& identifier, const QByteArray& bookmark)
{
    return {QStringLiteral("RepositoryRequestResolved"),
            kMonitorSource,
            QStringLiteral("CommandRequestsRepository"),
            {{kCommandID, identifier}, {QStringLiteral("RepositoryBookmark"), bookmark}},
            [](const QVariantMap& info) -> std::optional<int> {
                const quint64 status = info.value(QStringLiteral("ResolutionStatus")).toULongLong();
                const QVariant path = info.value(QStringLiteral("RepositoryPath"));
                print(QStringLiteral("resolution status %1%2")
                          .arg(status)
                          .arg(path.isValid() ? QStringLiteral(" path ") + path.toString()
                                              : QString()));
                if (status == 2) {
                    return std::nullopt;
                }
                return status == 0 ? 0 : 1;
            }};
}

Request password(const QString& identifier, const QString& account)
{
    // The answer is the password itself: printed for the caller, never logged.
    return {QStringLiteral("KeychainPasswordResponse"),
            identifier,
            QStringLiteral("CommandRequestsKeychainPassword"),
            {{kCommandID, identifier}, {QStringLiteral("Account"), account}},
            [](const QVariantMap& info) -> std::optional<int> {
                const QVariant password = info.value(QStringLiteral("Account"));
                if (!password.isValid()) {
                    print(QStringLiteral("no password"));
                    return 1;
                }
                print(QStringLiteral("password %1").arg(password.toString()));
                return 0;
            }};
}

Request script(const QString& identifier, quint32 type, const QString& path,
               const QVariantMap& environment)
{
    return {QStringLiteral("CommandScriptStatus"),
            kMonitorSource,
            QStringLiteral("RunCommandScript"),
            {{kCommandID, identifier},
             {QStringLiteral("ScriptType"), QVariant::fromValue(type)},
             {QStringLiteral("ScriptPath"), path},
             {QStringLiteral("ScriptEnvironment"), environment}},
            [](const QVariantMap& info) -> std::optional<int> {
                const QVariant success = info.value(QStringLiteral("ScriptSuccess"));
                if (!success.isValid()) {
                    print(QStringLiteral("script still running"));
                    return std::nullopt;
                }
                print(QStringLiteral("script success %1")
                          .arg(success.toBool() ? QStringLiteral("YES") : QStringLiteral("NO")));
                return success.toBool() ? 0 : 1;
            }};
}

int cancel(const QString& identifier)
{
    const auto switchboard = KSConnection::switchboardConnection();
    switchboard->postNotification(QStringLiteral("CancelCommandScript"), kCommandSource,
                                  {{kCommandID, identifier}});
    if (!switchboard->ping()) {
        return complain(QStringLiteral("the switchboard did not answer"), 1);
    }
    print(QStringLiteral("cancel sent for %1").arg(identifier));
    return 0;
}
} // namespace

bool RequestVerbs::handles(const QString& verb)
{
    return verb == QStringLiteral("request");
}

int RequestVerbs::run(const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Asks the session as a command would."));
    parser.addPositionalArgument(QStringLiteral("what"),
                                 QStringLiteral("repository, password, script or cancel."));
    const QCommandLineOption help(QStringList{QStringLiteral("h"), QStringLiteral("help")},
                                  QStringLiteral("Shows this help."));
    const QCommandLineOption id(QStringLiteral("id"), QStringLiteral("The command identifier."),
                                QStringLiteral("id"));
    const QCommandLineOption bookmark(QStringLiteral("bookmark-file"),
                                      QStringLiteral("A file holding the archive's bookmark."),
                                      QStringLiteral("file"));
    const QCommandLineOption account(QStringLiteral("account"), QStringLiteral("Account name."),
                                     QStringLiteral("account"));
    const QCommandLineOption path(QStringLiteral("path"), QStringLiteral("Script path."),
                                  QStringLiteral("path"));
    const QCommandLineOption type(QStringLiteral("type"),
                                  QStringLiteral("Script type: 0 prolog, 1 epilog."),
                                  QStringLiteral("type"), QStringLiteral("0"));
    const QCommandLineOption env(QStringLiteral("env"),
                                 QStringLiteral("A script environment entry, KEY=VALUE; "
                                                "repeatable."),
                                 QStringLiteral("key=value"));
    const QCommandLineOption timeout(QStringLiteral("timeout"),
                                     QStringLiteral("Seconds to wait for the final answer."),
                                     QStringLiteral("seconds"), QStringLiteral("600"));
    parser.addOptions({help, id, bookmark, account, path, type, env, timeout});
    if (!parser.parse(QStringList{QStringLiteral("kestromctl request")} + arguments)) {
        return complain(parser.errorText(), 2);
    }
    if (parser.isSet(help)) {
        print(parser.helpText());
        return 0;
    }
    const QString what = parser.positionalArguments().value(0);
    const QString identifier = parser.value(id);
    if (parser.positionalArguments().size() != 1 || identifier.isEmpty()) {
        return complain(QStringLiteral("needs one of repository, password, script, cancel and "
                                       "--id"),
                        2);
    }
    const int seconds = parser.value(timeout).toInt();
    if (what == QStringLiteral("repository")) {
        QFile file(parser.value(bookmark));
        if (!file.open(QIODevice::ReadOnly)) {
            return complain(QStringLiteral("cannot read the bookmark file"), 2);
        }
        return ask(repository(identifier, file.readAll()), seconds);
    }
    if (what == QStringLiteral("password") && parser.isSet(account)) {
        return ask(password(identifier, parser.value(account)), seconds);
    }
    if (what == QStringLiteral("script") && parser.isSet(path)) {
        QVariantMap environment;
        for (const QString& entry : parser.values(env)) {
            const qsizetype equals = entry.indexOf(QLatin1Char('='));
            if (equals <= 0) {
                return complain(QStringLiteral("--env wants KEY=VALUE, not '%1'").arg(entry), 2);
            }
            environment.insert(entry.left(equals), entry.mid(equals + 1));
        }
        return ask(script(identifier, parser.value(type).toUInt(), parser.value(path), environment),
                   seconds);
    }
    if (what == QStringLiteral("cancel")) {
        return cancel(identifier);
    }
    return complain(QStringLiteral("'%1' is missing what it needs; see --help").arg(what), 2);
}

QString RequestVerbs::usage()
{
    return QStringLiteral(
        "  request repository --id ID --bookmark-file F  resolve an archive's bookmark\n"
        "  request password --id ID --account A          fetch a keyring password\n"
        "  request script --id ID --path P [--type T] [--env K=V ...]  run a script\n"
        "  request cancel --id ID                        cancel that command's script\n");
}
