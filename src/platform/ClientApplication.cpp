#include "platform/ClientApplication.h"

#include "platform/linux/DBusClientApplication.h"

#include <atomic>

namespace {
std::atomic<ClientApplication*> s_chosen{nullptr};
} // namespace

ClientApplication::~ClientApplication() = default;

ClientApplication& ClientApplication::defaultClient()
{
    if (ClientApplication* chosen = s_chosen.load()) {
        return *chosen;
    }
    static DBusClientApplication sessionClient;
    return sessionClient;
}

void ClientApplication::setDefaultClient(ClientApplication* client)
{
    s_chosen.store(client);
}
