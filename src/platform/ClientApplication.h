#pragma once

#include <QString>
#include <QVariantList>

// The product's main application, reached to show an archive or the log at a line.
class ClientApplication
{
public:
    static inline const QString kClientIdentifier = QStringLiteral("com.kestrom.client");
    static constexpr int kNoError = 0;
    static constexpr int kApplicationNotFound = -10814;
    static constexpr int kRequestFailed = -10810;

    virtual ~ClientApplication();

    // kNoError when the application runs or can be started on demand.
    virtual int locate() = 0;
    virtual int activateAction(const QString& action, const QVariantList& parameters) = 0;
    // Starts the application, or brings it forward when it runs.
    virtual int launch() = 0;

    static ClientApplication& defaultClient();
    static void setDefaultClient(ClientApplication* client);
};
