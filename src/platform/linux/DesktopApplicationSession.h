#pragma once

#include "platform/ApplicationSession.h"

#include <QObject>

// The session as a Qt desktop application sees it: the session manager's restart hint, the
// application's own windows, and other applications reached by their desktop identifier over
// org.freedesktop.Application.
class DesktopApplicationSession : public QObject, public ApplicationSession
{
    Q_OBJECT
public:
    explicit DesktopApplicationSession(QObject* parent = nullptr);

    void disableRelaunchOnLogin() override;
    bool hasVisiblePanel() const override;
    void activateApplication(const QString& identifier) override;

    // The object path of a desktop identifier under the freedesktop application rules.
    static QString objectPathForIdentifier(const QString& identifier);
};
