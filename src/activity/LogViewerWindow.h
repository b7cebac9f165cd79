#pragma once

#include "logging/LogLineIdentifier.h"

#include <QPointer>
#include <QString>
#include <QWidget>

class QFileSystemWatcher;
class QLabel;
class QLineEdit;
class QPlainTextEdit;

// The monitor's own read-only view of the log, for when the main application cannot show it:
// it opens at a line, highlights that line and the lines nested under it, finds text, and
// follows the file as it grows, and the new file once the log is rotated. It goes to the line
// once, when asked; after that it scrolls only to follow the end, and only while the user is
// at the end, so that reading and Find are never taken away. Main thread only.
class LogViewerWindow : public QWidget
{
    Q_OBJECT

public:
    explicit LogViewerWindow(QWidget* parent = nullptr);
    ~LogViewerWindow() override;

    static LogViewerWindow& sharedViewer();

    // Defaults to the log file the logger writes.
    void setLogFilePath(const QString& path);
    const QString& logFilePath() const { return m_path; }

    // Shows the window at the line; none shows the end of the log.
    void showLogLine(const LogLine& line);
    // Reads what was appended since the last read, or the new file after a rotation.
    void followFile();
    // Finds the next (or previous) occurrence after the cursor, wrapping around.
    bool find(const QString& text, bool backwards = false);

    QPlainTextEdit* textView() const { return m_text; }
    // The block numbers highlighted for the line shown.
    QList<int> highlightedBlocks() const;
    int currentBlock() const;

private:
    void reload();
    // Marks the line and those nested under it; moves there only when asked.
    void highlight(const QString& identifier, bool moveThere);
    void watch();
    static QString identifierOfLine(const QString& line);

    QString m_path;
    QString m_lineShown;
    qint64 m_readOffset = 0;
    // The file read, by inode: a rotation puts another file at the path.
    quint64 m_inode = 0;
    QPlainTextEdit* m_text = nullptr;
    QLineEdit* m_findField = nullptr;
    QLabel* m_status = nullptr;
    QFileSystemWatcher* m_watcher = nullptr;
};
