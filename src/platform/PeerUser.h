#pragma once

#include <QString>
#include <functional>
#include <optional>

class QDBusConnection;

// Who may call this process over the bus: a peer working as the same user, or the super-user
// that the product's privileged commands run as. The bus daemon vouches for a peer's uid.
class PeerUser
{
public:
    // The uid the bus knows for a connection's unique name; none when the bus cannot say.
    using Lookup =
        std::function<std::optional<uint>(const QDBusConnection& bus, const QString& sender)>;

    static bool allowsUid(uint uid);
    // Any thread. A peer's answer is kept for the life of its unique name, which the bus never
    // gives out twice.
    static std::optional<uint> uidOf(const QDBusConnection& bus, const QString& sender);

    // Tests play peers of other users; an empty lookup restores the bus's.
    static void setLookup(Lookup lookup);
};
