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
#include <QTimer>
#include <QWidget>

namespace {
const QString kX = QStringLiteral("x");
const QString kY = QStringLiteral("y");
const QString kWidth = QStringLiteral("width");
// Long enough that a drag writes once, short enough that a quit right after finds it kept.
constexpr int kSaveDelayMs = 500;
} // namespace

WindowPlacement::WindowPlacement(QWidget* window, QString path)
    : QObject(window)
    , m_window(window)
    , m_path(std::move(path))
{
    m_writer.setMaxThreadCount(1); // writes land in the order asked
    m_saved = saved();
    if (m_saved && QGuiApplication::screenAt(m_saved->position)) {
        m_window->move(m_saved->position);
        if (m_saved->width && *m_saved->width >= m_window->minimumWidth()) {
            m_window->resize(*m_saved->width, m_window->height());
        }
    }
    m_saveTimer = new QTimer(this);
    m_saveTimer->setSingleShot(true);
    m_saveTimer->setInterval(kSaveDelayMs);
    connect(m_saveTimer, &QTimer::timeout, this, &WindowPlacement::save);
    m_window->installEventFilter(this);
}

WindowPlacement::~WindowPlacement()
{
    waitForWrites();
}

QString WindowPlacement::defaultPath(const QString& name)
{
    return QDir(LogFileLogger::logFolder()).filePath(name + QStringLiteral(".window"));
}

std::optional<WindowPlacement::Placement> WindowPlacement::saved() const
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
    Placement placement{QPoint(stored.value(kX).toInt(), stored.value(kY).toInt()), {}};
    if (stored.value(kWidth).isDouble() && stored.value(kWidth).toInt() > 0) {
        placement.width = stored.value(kWidth).toInt();
    }
    return placement;
}

std::optional<QPoint> WindowPlacement::savedPosition() const
{
    const auto placement = saved();
    return placement ? std::optional<QPoint>(placement->position) : std::nullopt;
}

void WindowPlacement::save()
{
    m_saveTimer->stop();
    const Placement placement{m_window->pos(), m_window->width()};
    if (m_saved == placement) {
        return;
    }
    m_saved = placement;
    const QByteArray contents = QJsonDocument(QJsonObject{{kX, placement.position.x()},
                                                          {kY, placement.position.y()},
                                                          {kWidth, *placement.width}})
                                    .toJson(QJsonDocument::Compact);
    // A write may wait on the disk: never on the main thread.
    m_writer.start([path = m_path, contents] {
        QDir().mkpath(QFileInfo(path).path());
        QSaveFile file(path);
        if (!file.open(QIODevice::WriteOnly) || file.write(contents) < 0 || !file.commit()) {
            Logger::log(4, QStringLiteral("cannot keep the window position in %1: %2")
                               .arg(path, file.errorString()));
        }
    });
}

void WindowPlacement::waitForWrites()
{
    m_writer.waitForDone();
}

bool WindowPlacement::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == m_window) {
        switch (event->type()) {
        case QEvent::Hide:
            save();
            break;
        case QEvent::Move:
        case QEvent::Resize:
            if (m_window->isVisible()) {
                m_saveTimer->start();
            }
            break;
        default:
            break;
        }
    }
    return QObject::eventFilter(watched, event);
}
