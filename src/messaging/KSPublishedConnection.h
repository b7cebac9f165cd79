#pragma once

#include "messaging/Endpoint.h"
#include "messaging/KSConnection.h"

// A connection to whatever endpoint is published on the switchboard under a name.
class KSPublishedConnection : public KSConnection
{
public:
    KSPublishedConnection(QString publishedName, quint64 options, QString protocol);

    const QString& publishedName() const { return m_publishedName; }
    // Asks the switchboard, waiting for the answer; none when nothing is published.
    static std::optional<Endpoint> lookUpEndpoint(const QString& publishedName);

protected:
    Candidate makeConnection() override;
    Candidate connectionTo(const Endpoint& endpoint) const;

private:
    QString m_publishedName;
};
