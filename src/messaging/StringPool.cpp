#include "messaging/StringPool.h"

#include "exception/KSException.h"

#include <mutex>
#include <new>

namespace {
constexpr qsizetype kInitialCapacity = 0x4000;
} // namespace

StringPool::StringPool()
{
    try {
        m_strings.reserve(kInitialCapacity);
    } catch (const std::bad_alloc&) {
        KSException::exceptionWithName(QStringLiteral("Memory"),
                                       QStringLiteral("cannot create string pool hash"))
            .raise();
    }
}

StringPool& StringPool::sharedPool()
{
    // Never destroyed: pooled strings may be handed out until the very end of the process.
    static StringPool* pool = new StringPool;
    return *pool;
}

QString StringPool::stringWithString(const QString& string)
{
    return sharedPool().insertString(string);
}

QString StringPool::stringWithUTF8Bytes(const char* bytes, qsizetype length)
{
    return sharedPool().stringWithBytes(bytes, length);
}

QString StringPool::insertString(const QString& string)
{
    const void* identity = string.constData();
    std::lock_guard locker(m_spinLock);
    const auto found = m_strings.constFind(identity);
    if (found != m_strings.cend()) {
        return *found;
    }
    m_strings.insert(identity, string);
    return string;
}

QString StringPool::stringWithBytes(const char* bytes, qsizetype length)
{
    return insertString(QString::fromUtf8(bytes, length));
}

qsizetype StringPool::count() const
{
    std::lock_guard locker(m_spinLock);
    return m_strings.size();
}
