#pragma once

#include "platform/ClientApplication.h"

// The client as a freedesktop application on the session bus: org.freedesktop.Application at
// /com/kestrom/client, started by the bus through its desktop entry when not running.
class DBusClientApplication final : public ClientApplication
{
public:
    static inline const QString kObjectPath = QStringLiteral("/com/kestrom/client");

    int locate() override;
    int activateAction(const QString& action, const QVariantList& parameters) override;
    int launch() override;

private:
    static int send(const QString& member, const QVariantList& arguments);
};
