#include "errors/ExceptionArchive.h"
#include "exception/KSException.h"
#include "foundation/KeyedArchive.h"
#include "messaging/SerializableDictionaryAdditions.h"

#include <cstddef>
#include <cstdint>

// Any bytes a peer might send: decoding either gives a value or raises a KSException, and what
// decodes must encode again.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    const QByteArray data(reinterpret_cast<const char*>(bytes), static_cast<qsizetype>(size));
    try {
        const QVariant value = KeyedArchive::unarchiveObjectWithData(data);
        KeyedArchive::archivedData(value);
        if (value.metaType() == QMetaType::fromType<QVariantMap>()) {
            SerializableDictionaryAdditions::dictionaryDecodingSerializableObjects(value.toMap());
        }
    } catch (const KSException&) {
    }
    try {
        if (const auto exception = ExceptionArchive::exceptionFromData(data)) {
            exception->description();
            ExceptionArchive::exceptionFromData(ExceptionArchive::dataForException(*exception));
        }
    } catch (const KSException&) {
    }
    return 0;
}
