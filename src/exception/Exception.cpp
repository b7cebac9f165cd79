#include "exception/Exception.h"

#include "exception/KSException.h"
#include "exception/LogHook.h"

#include <execinfo.h>

std::atomic<bool> Exception::s_persistFailures{false};

namespace {
constexpr int kMaxFrames = 64;
} // namespace

__attribute__((noinline)) QList<quintptr> Exception::captureCallStack()
{
    void* frames[kMaxFrames];
    const int count = backtrace(frames, kMaxFrames);
    QList<quintptr> addresses;
    addresses.reserve(count);
    // The first frame is this function; the caller's raise frame stays, it is the site.
    for (int i = 1; i < count; ++i) {
        addresses.append(reinterpret_cast<quintptr>(frames[i]));
    }
    return addresses;
}

quint64 Exception::nextIdentity()
{
    static std::atomic<quint64> s_last{0};
    return s_last.fetch_add(1, std::memory_order_relaxed) + 1;
}

Exception::Exception(QString name, QString reason, QVariantMap userInfo)
    : m_userInfo(std::move(userInfo))
    , m_name(std::move(name))
    , m_reason(std::move(reason))
{}

void Exception::setCallStackReturnAddresses(QList<quintptr> addresses)
{
    m_callStack = std::move(addresses);
}

Exception::~Exception() = default;

QString Exception::className() const
{
    return QStringLiteral("Exception");
}

QString Exception::description() const
{
    return m_reason;
}

const char* Exception::what() const noexcept
{
    try {
        m_what = description().toUtf8();
    } catch (const std::exception&) {
        return "Exception";
    }
    return m_what.constData();
}

std::unique_ptr<Exception> Exception::clone() const
{
    return std::make_unique<Exception>(*this);
}

void Exception::raise() const
{
    Exception raised(*this);
    raised.m_callStack = captureCallStack();
    throw raised;
}

QVariant Exception::toVariant() const
{
    if (const auto* ks = asKSException()) {
        return QVariant::fromValue(*ks);
    }
    return QVariant::fromValue(*this);
}

const KSException* Exception::asKSException() const
{
    return dynamic_cast<const KSException*>(this);
}

const KSException* Exception::asSoftException() const
{
    const auto* ks = asKSException();
    return ks != nullptr && ks->isSoft() ? ks : nullptr;
}

std::unique_ptr<Exception> Exception::fromVariant(const QVariant& value)
{
    if (value.metaType() == QMetaType::fromType<KSException>()) {
        return std::make_unique<KSException>(value.value<KSException>());
    }
    if (value.metaType() == QMetaType::fromType<Exception>()) {
        return std::make_unique<Exception>(value.value<Exception>());
    }
    return nullptr;
}

void Exception::raiseOrPersist() const
{
    if (!persistFailures()) {
        raise();
    }
    // Persisting stands in for raising, so the log shows where it happened.
    const std::unique_ptr<Exception> persisted = clone();
    persisted->m_callStack = captureCallStack();
    LogHook::logPlaceholder(4, QStringLiteral("Ignored failures"), QStringLiteral("ShePersisted"));
    LogHook::logException(5, *persisted);
}

void Exception::setPersistFailures(bool persist)
{
    s_persistFailures.store(persist);
}

bool Exception::persistFailures()
{
    return s_persistFailures.load();
}

namespace {
// A "Cause" detail reads as the description of the exception it holds.
[[maybe_unused]] const bool s_describable =
    QMetaType::registerConverter<Exception, QString>(&Exception::description) &&
    QMetaType::registerConverter<KSException, QString>(&KSException::description);
} // namespace
