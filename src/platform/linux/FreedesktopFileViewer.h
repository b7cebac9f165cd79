#pragma once

#include "platform/FileViewer.h"

#include <QObject>

// The file manager behind org.freedesktop.FileManager1 on the session bus (started on demand
// by the bus when one is installed).
class FreedesktopFileViewer final : public QObject, public FileViewer
{
public:
    explicit FreedesktopFileViewer(QObject* parent = nullptr);

    void showItems(const QStringList& paths, FailureHandler failed) override;
};
