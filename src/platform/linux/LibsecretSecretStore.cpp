#include "platform/linux/LibsecretSecretStore.h"

#include <libsecret/secret.h>

namespace {
const SecretSchema* genericSchema()
{
    // Not matching the schema name finds items that other tools stored under the same
    // attributes, as a user who adds the password by hand expects.
    static const SecretSchema schema = {"com.kestrom.GenericPassword",
                                        SECRET_SCHEMA_DONT_MATCH_NAME,
                                        {{"service", SECRET_SCHEMA_ATTRIBUTE_STRING},
                                         {"account", SECRET_SCHEMA_ATTRIBUTE_STRING},
                                         {nullptr, SECRET_SCHEMA_ATTRIBUTE_STRING}},
                                        0,
                                        nullptr,
                                        nullptr,
                                        nullptr,
                                        nullptr,
                                        nullptr,
                                        nullptr,
                                        nullptr};
    return &schema;
}
} // namespace

SecretStore::Lookup LibsecretSecretStore::genericPassword(const QString& service,
                                                          const QString& account)
{
    const QByteArray serviceText = service.toUtf8();
    const QByteArray accountText = account.toUtf8();
    GError* error = nullptr;
    SecretValue* value = secret_password_lookup_binary_sync(
        genericSchema(), nullptr, &error, "service", serviceText.constData(), "account",
        accountText.constData(), nullptr);
    Lookup lookup;
    if (error) {
        lookup.status = error->code;
        lookup.message = QString::fromUtf8(error->message);
        g_error_free(error);
    } else if (!value) {
        lookup.status = kNotFound;
        lookup.message = QStringLiteral("no such item in the keyring");
    } else {
        gsize length = 0;
        const gchar* bytes = secret_value_get(value, &length);
        lookup.secret = QByteArray(bytes, qsizetype(length));
    }
    if (value) {
        secret_value_unref(value);
    }
    return lookup;
}
