#pragma once

#include "messaging/KSConnection.h"

// A connection to a service known by a fixed name: a well-known bus name and object path.
class KSMachServiceConnection : public KSConnection
{
public:
    KSMachServiceConnection(QString serviceName, QString path, quint64 options, QString protocol);

    // The live connection's service name, else the configured one.
    QString machServiceName() const;
    const QString& configuredServiceName() const { return m_configuredServiceName; }
    const QString& servicePath() const { return m_path; }

protected:
    Candidate makeConnection() override;
    Candidate makeConnectionTo(const QString& serviceName, quint64 options) const;

private:
    QString m_configuredServiceName;
    QString m_path;
};
