#pragma once

#include "messaging/KSPublishedConnection.h"

#include <QMutex>

// A published connection that first tries an endpoint it was given (once), then the one the
// switchboard knows now, so a stale endpoint costs one failed verification and nothing more.
class KSPublishedEndpointConnection : public KSPublishedConnection
{
public:
    KSPublishedEndpointConnection(const Endpoint& knownEndpoint, QString publishedName,
                                  quint64 options, QString protocol);

protected:
    std::vector<Candidate> makeConnections() override;

private:
    QMutex m_mutex;
    std::optional<Endpoint> m_knownEndpoint;
};
