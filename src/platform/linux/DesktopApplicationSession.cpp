#include "platform/linux/DesktopApplicationSession.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QGuiApplication>
#include <QSessionManager>
#include <QWindow>

DesktopApplicationSession::DesktopApplicationSession(QObject* parent)
    : QObject(parent)
{}

void DesktopApplicationSession::disableRelaunchOnLogin()
{
    auto* application = qobject_cast<QGuiApplication*>(QCoreApplication::instance());
    if (application == nullptr) {
        return;
    }
    // The session manager asks for the hint every time it saves the session.
    const auto never = [](QSessionManager& manager) {
        manager.setRestartHint(QSessionManager::RestartNever);
    };
    connect(application, &QGuiApplication::saveStateRequest, this, never);
    connect(application, &QGuiApplication::commitDataRequest, this, never);
}

bool DesktopApplicationSession::hasVisiblePanel() const
{
    if (qobject_cast<QGuiApplication*>(QCoreApplication::instance()) == nullptr) {
        return false;
    }
    // Alerts, sheets and other dialogs are the panels of this desktop.
    const auto windows = QGuiApplication::topLevelWindows();
    return std::any_of(windows.cbegin(), windows.cend(), [](const QWindow* window) {
        return window->isVisible() && (window->type() == Qt::Dialog || window->type() == Qt::Sheet);
    });
}

void DesktopApplicationSession::activateApplication(const QString& identifier)
{
    if (identifier.isEmpty()) {
        return;
    }
    QDBusMessage call = QDBusMessage::createMethodCall(
        identifier, objectPathForIdentifier(identifier),
        QStringLiteral("org.freedesktop.Application"), QStringLiteral("Activate"));
    call << QVariantMap();
    // Nobody waits for the answer: an application that is gone simply keeps no focus.
    QDBusConnection::connectToBus(QDBusConnection::SessionBus,
                                  QStringLiteral("kestrom-application-session"))
        .call(call, QDBus::NoBlock);
}

QString DesktopApplicationSession::objectPathForIdentifier(const QString& identifier)
{
    QString path = QLatin1Char('/') + identifier;
    path.replace(QLatin1Char('.'), QLatin1Char('/'));
    path.replace(QLatin1Char('-'), QLatin1Char('_'));
    return path;
}
