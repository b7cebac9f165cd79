#include "activity/WindowPlacement.h"

#include "logging/LogFileLogger.h"
#include "logging/Logger.h"

#include <QDir>
#include <QEvent>
#include <QFile>
#include <QFileInfo>
#include <QGuiApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>
#include <QScreen>
#include <QWidget>

namespace {
const QString kX = QStringLiteral("x");
const QString kY = QStringLiteral("y");
} // namespace

WindowPlacement::WindowPlacement(QWidget* window, QString path)
    : QObject(window)
    , m_window(window)
    , m_path(std::move(path))
{
    m_saved = savedPosition();
    if (m_saved && QGuiApplication::screenAt(*m_saved)) {
        m_window->move(*m_saved);
    }
    m_window->installEventFilter(this);
}

QString WindowPlacement::defaultPath(const QString& name)
{
    return QDir(LogFileLogger::logFolder()).filePath(name + QStringLiteral(".window"));
}

std::optional<QPoint> WindowPlacement::savedPosition() const
{
    QFile file(m_path);
    if (!file.open(QIODevice::ReadOnly)) {
        return std::nullopt;
    }
    const QJsonObject stored = QJsonDocument::fromJson(file.read(4096)).object();
    if (!stored.value(kX).isDouble() || !stored.value(kY).isDouble()) {
        Logger::log(4, QStringLiteral("window position in %1 is unreadable").arg(m_path));
        return std::nullopt;
    }
    return QPoint(stored.value(kX).toInt(), stored.value(kY).toInt());
}

void WindowPlacement::save()
{
    const QPoint position = m_window->pos();
    if (m_saved == position) {
        return;
    }
    QDir().mkpath(QFileInfo(m_path).path());
    QSaveFile file(m_path);
    if (!file.open(QIODevice::WriteOnly) ||
        file.write(QJsonDocument(QJsonObject{{kX, position.x()}, {kY, position.y()}})
                       .toJson(QJsonDocument::Compact)) < 0 ||
        !file.commit()) {
        Logger::log(4, QStringLiteral("cannot keep the window position in %1: %2")
                           .arg(m_path, file.errorString()));
        return;
    }
    m_saved = position;
}

bool WindowPlacement::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == m_window && event->type() == QEvent::Hide) {
        save();
    }
    return QObject::eventFilter(watched, event);
}
