#pragma once

#include <QString>
#include <QStringList>
#include <functional>

// The desktop's file manager, asked to show files selected in their folders. Main thread only.
class FileViewer
{
public:
    // Why the file manager did not take the request.
    using FailureHandler = std::function<void(const QString& error)>;

    virtual ~FileViewer() = default;

    // Never waits for the file manager; `failed` hears later when it refused or was not there.
    virtual void showItems(const QStringList& paths, FailureHandler failed) = 0;
};
