#include "activity/LogViewerWindow.h"

#include "logging/LogFileLogger.h"

#include <QFile>
#include <QFileInfo>
#include <QFileSystemWatcher>
#include <QFontDatabase>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QScrollBar>
#include <QShortcut>
#include <QTextBlock>
#include <QVBoxLayout>
#include <sys/stat.h>

LogViewerWindow::LogViewerWindow(QWidget* parent)
    : QWidget(parent, Qt::Window)
    , m_path(LogFileLogger::currentLogFilePath())
{
    setWindowTitle(tr("Kestrom Log"));
    setAccessibleName(tr("Kestrom Log"));
    resize(820, 520);
    m_text = new QPlainTextEdit(this);
    m_text->setReadOnly(true);
    m_text->setLineWrapMode(QPlainTextEdit::NoWrap);
    m_text->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    m_text->setAccessibleName(tr("Log"));
    m_findField = new QLineEdit(this);
    m_findField->setPlaceholderText(tr("Find"));
    m_findField->setAccessibleName(tr("Find"));
    m_findField->setClearButtonEnabled(true);
    auto* previous = new QPushButton(tr("Previous"), this);
    auto* next = new QPushButton(tr("Next"), this);
    previous->setAccessibleName(tr("Find previous"));
    next->setAccessibleName(tr("Find next"));
    m_status = new QLabel(this);
    auto* findBar = new QHBoxLayout;
    findBar->addWidget(m_findField, 1);
    findBar->addWidget(previous);
    findBar->addWidget(next);
    findBar->addWidget(m_status);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(findBar);
    layout->addWidget(m_text, 1);
    const auto findNext = [this] {
        find(m_findField->text());
    };
    connect(m_findField, &QLineEdit::returnPressed, this, findNext);
    connect(next, &QPushButton::clicked, this, findNext);
    connect(previous, &QPushButton::clicked, this, [this] { find(m_findField->text(), true); });
    auto* focusFind = new QShortcut(QKeySequence::Find, this);
    connect(focusFind, &QShortcut::activated, this, [this] {
        m_findField->setFocus(Qt::ShortcutFocusReason);
        m_findField->selectAll();
    });
    m_watcher = new QFileSystemWatcher(this);
    connect(m_watcher, &QFileSystemWatcher::fileChanged, this, &LogViewerWindow::followFile);
    // A rotation renames the file away and makes a new one: only its folder tells.
    connect(m_watcher, &QFileSystemWatcher::directoryChanged, this, &LogViewerWindow::followFile);
}

LogViewerWindow::~LogViewerWindow() = default;

LogViewerWindow& LogViewerWindow::sharedViewer()
{
    static QPointer<LogViewerWindow> viewer; // main thread only; closed windows are kept
    if (!viewer) {
        viewer = new LogViewerWindow;
        viewer->setAttribute(Qt::WA_QuitOnClose, false);
    }
    return *viewer;
}

void LogViewerWindow::setLogFilePath(const QString& path)
{
    if (!m_watcher->files().isEmpty()) {
        m_watcher->removePaths(m_watcher->files());
    }
    if (!m_watcher->directories().isEmpty()) {
        m_watcher->removePaths(m_watcher->directories());
    }
    m_path = path;
    m_readOffset = 0;
    m_inode = 0;
    m_text->clear();
}

void LogViewerWindow::showLogLine(const LogLine& line)
{
    reload();
    m_lineShown = line ? line->description() : QString();
    highlight(m_lineShown, true);
    show();
    raise();
    activateWindow();
}

void LogViewerWindow::reload()
{
    m_text->clear();
    m_readOffset = 0;
    m_inode = 0;
    followFile();
}

void LogViewerWindow::watch()
{
    // Watched afresh: after a rotation the watch on the path still follows the old file.
    if (m_watcher->files().contains(m_path)) {
        m_watcher->removePath(m_path);
    }
    if (QFile::exists(m_path)) {
        m_watcher->addPath(m_path);
    }
    const QString folder = QFileInfo(m_path).absolutePath();
    if (!m_watcher->directories().contains(folder) && QFileInfo(folder).isDir()) {
        m_watcher->addPath(folder);
    }
}

void LogViewerWindow::followFile()
{
    QFile file(m_path);
    struct stat status = {};
    if (!file.open(QIODevice::ReadOnly) || ::fstat(file.handle(), &status) != 0) {
        m_status->setText(tr("The log cannot be read."));
        return;
    }
    QScrollBar* scroll = m_text->verticalScrollBar();
    const bool atEnd = scroll->value() == scroll->maximum();
    if (quint64(status.st_ino) != m_inode || file.size() < m_readOffset) {
        // Rotated: a fresh file holds the log from here on.
        const bool first = m_inode == 0;
        m_inode = quint64(status.st_ino);
        m_readOffset = 0;
        m_text->clear();
        watch();
        if (!first) {
            m_status->setText(tr("The log was rotated; showing the new file."));
        }
    }
    file.seek(m_readOffset);
    QByteArray added = file.readAll();
    // Only whole lines: the writer may be in the middle of one.
    const qsizetype end = added.lastIndexOf('\n');
    if (end < 0) {
        return;
    }
    added.truncate(end);
    m_readOffset += end + 1;
    // Appending moves neither the user's cursor nor a Find selection.
    const QTextCursor cursor = m_text->textCursor();
    const int value = scroll->value();
    m_text->appendPlainText(QString::fromUtf8(added));
    m_text->setTextCursor(cursor);
    if (!m_lineShown.isEmpty()) {
        highlight(m_lineShown, false);
    }
    scroll->setValue(atEnd ? scroll->maximum() : value);
}

QString LogViewerWindow::identifierOfLine(const QString& line)
{
    static const QRegularExpression kIdentifier(QStringLiteral("\\[([0-9.]+)\\]\\s*$"));
    const QRegularExpressionMatch match = kIdentifier.match(line);
    return match.hasMatch() ? match.captured(1) : QString();
}

void LogViewerWindow::highlight(const QString& identifier, bool moveThere)
{
    QList<QTextEdit::ExtraSelection> selections;
    QTextBlock first;
    const QString nested = identifier + QLatin1Char('.');
    QColor mark = palette().color(QPalette::Highlight);
    mark.setAlphaF(0.3f);
    for (QTextBlock block = m_text->document()->begin(); block.isValid(); block = block.next()) {
        const QString id = identifierOfLine(block.text());
        if (identifier.isEmpty() || (id != identifier && !id.startsWith(nested))) {
            continue;
        }
        QTextEdit::ExtraSelection selection;
        selection.cursor = QTextCursor(block);
        selection.format.setBackground(mark);
        selection.format.setProperty(QTextFormat::FullWidthSelection, true);
        selections.append(selection);
        if (!first.isValid()) {
            first = block;
        }
    }
    m_text->setExtraSelections(selections);
    if (!moveThere) {
        return;
    }
    if (first.isValid()) {
        m_text->setTextCursor(QTextCursor(first));
        m_text->centerCursor();
        m_status->setText(tr("Line %1").arg(identifier));
    } else {
        m_text->moveCursor(QTextCursor::End);
        m_status->setText(identifier.isEmpty() ? QString()
                                               : tr("Line %1 is not in this log.").arg(identifier));
    }
}

QList<int> LogViewerWindow::highlightedBlocks() const
{
    QList<int> blocks;
    const QList<QTextEdit::ExtraSelection> selections = m_text->extraSelections();
    for (const auto& selection : selections) {
        blocks.append(selection.cursor.blockNumber());
    }
    return blocks;
}

int LogViewerWindow::currentBlock() const
{
    return m_text->textCursor().blockNumber();
}

bool LogViewerWindow::find(const QString& text, bool backwards)
{
    if (text.isEmpty()) {
        return false;
    }
    const QTextDocument::FindFlags flags =
        backwards ? QTextDocument::FindBackward : QTextDocument::FindFlags();
    if (m_text->find(text, flags)) {
        m_status->clear();
        return true;
    }
    const QTextCursor saved = m_text->textCursor();
    m_text->moveCursor(backwards ? QTextCursor::End : QTextCursor::Start);
    if (m_text->find(text, flags)) {
        m_status->setText(tr("Wrapped around"));
        return true;
    }
    m_text->setTextCursor(saved);
    m_status->setText(tr("Not found"));
    return false;
}
