#pragma once

#include "messaging/Endpoint.h"

#include <QPointer>
#include <memory>

class QObject;

// Serves one object at a fresh object path on this process's messaging connection; peers reach
// it through its endpoint. The object is moved to the messaging thread, where its calls arrive,
// and is destroyed there with the listener.
class AnonymousListener
{
public:
    // An empty path picks a fresh one.
    explicit AnonymousListener(QObject* served, const QString& path = {});
    ~AnonymousListener();
    AnonymousListener(const AnonymousListener&) = delete;
    AnonymousListener& operator=(const AnonymousListener&) = delete;

    Endpoint endpoint() const;
    QObject* servedObject() const { return m_served.data(); }
    bool resume();
    void invalidate();

private:
    QPointer<QObject> m_served;
    QString m_path;
    bool m_registered = false;
};
