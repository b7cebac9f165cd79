#include "messaging/KSPublishedEndpointConnection.h"

KSPublishedEndpointConnection::KSPublishedEndpointConnection(const Endpoint& knownEndpoint,
                                                             QString publishedName, quint64 options,
                                                             QString protocol)
    : KSPublishedConnection(std::move(publishedName), options, std::move(protocol))
    , m_knownEndpoint(knownEndpoint.isNone() ? std::nullopt : std::optional(knownEndpoint))
{}

std::vector<KSConnection::Candidate> KSPublishedEndpointConnection::makeConnections()
{
    std::vector<Candidate> candidates;
    {
        QMutexLocker locker(&m_mutex);
        if (m_knownEndpoint) {
            candidates.push_back(connectionTo(*std::exchange(m_knownEndpoint, std::nullopt)));
        }
    }
    if (Candidate published = makeConnection()) {
        candidates.push_back(std::move(published));
    }
    return candidates;
}
