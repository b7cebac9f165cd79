#include "platform/linux/FreedesktopFileViewer.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QUrl>

namespace {
const QString kService = QStringLiteral("org.freedesktop.FileManager1");
const QString kPath = QStringLiteral("/org/freedesktop/FileManager1");
} // namespace

FreedesktopFileViewer::FreedesktopFileViewer(QObject* parent)
    : QObject(parent)
{}

void FreedesktopFileViewer::showItems(const QStringList& paths, FailureHandler failed)
{
    QStringList uris;
    for (const QString& path : paths) {
        uris.append(QUrl::fromLocalFile(path).toString(QUrl::FullyEncoded));
    }
    QDBusMessage call =
        QDBusMessage::createMethodCall(kService, kPath, kService, QStringLiteral("ShowItems"));
    // No start-up notification identifier: the file manager raises its window as it likes.
    call << uris << QString();
    const QDBusPendingCall pending = QDBusConnection::sessionBus().asyncCall(call);
    auto* watcher = new QDBusPendingCallWatcher(pending, this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [failed = std::move(failed)](QDBusPendingCallWatcher* finished) {
                const QDBusPendingReply<> reply = *finished;
                if (reply.isError() && failed) {
                    failed(reply.error().name() + QStringLiteral(": ") + reply.error().message());
                }
                finished->deleteLater();
            });
}
