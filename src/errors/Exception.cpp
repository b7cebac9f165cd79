#include "errors/Exception.h"

#include "errors/KSException.h"
#include "foundation/KeyedArchive.h"
#include "foundation/KeyedDecoder.h"
#include "foundation/LogHook.h"

#include <execinfo.h>

std::atomic<bool> Exception::s_persistFailures{false};

namespace {
constexpr int kMaxFrames = 64;

QList<quintptr> captureCallStack()
{
    void* frames[kMaxFrames];
    const int count = backtrace(frames, kMaxFrames);
    QList<quintptr> addresses;
    addresses.reserve(count);
    // The first frame is this function; the caller's constructor frame stays, it is the site.
    for (int i = 1; i < count; ++i) {
        addresses.append(reinterpret_cast<quintptr>(frames[i]));
    }
    return addresses;
}
} // namespace

Exception::Exception(QString name, QString reason, QVariantMap userInfo)
    : m_userInfo(std::move(userInfo))
    , m_name(std::move(name))
    , m_reason(std::move(reason))
    , m_callStack(captureCallStack())
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
    throw *this;
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

QByteArray Exception::dataForException() const
{
    return KeyedArchive::archivedData(toVariant());
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

std::unique_ptr<Exception> Exception::exceptionFromData(const QByteArray& data)
{
    if (data.isEmpty()) {
        return nullptr;
    }
    const QVariant root = KeyedArchive::unarchiveObjectWithData(data);
    auto decoded = fromVariant(root);
    if (!decoded) {
        const QString className = KeyedArchive::classNameOf(root);
        LogHook::logMessage(
            9, QStringLiteral("%1 exception object was actually a %2")
                   .arg(QStringLiteral("+[Exception exceptionFromData:]"),
                        className.isEmpty() ? QString::fromLatin1(root.typeName()) : className));
    }
    return decoded;
}

void Exception::raiseOrPersist() const
{
    if (!persistFailures()) {
        raise();
    }
    LogHook::logPlaceholder(4, QStringLiteral("Ignored failures"), QStringLiteral("ShePersisted"));
    LogHook::logException(5, *this);
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
QVariantMap encodeException(const Exception& exception)
{
    return {{QStringLiteral("name"), exception.name()},
            {QStringLiteral("reason"), exception.reason()},
            {QStringLiteral("userInfo"), exception.userInfo()}};
}

template <typename T> QVariant decodeException(const KeyedDecoder& coder)
{
    // A user info may hold anything a detail setter stores: property-list values, errors and
    // other exceptions (a "Cause").
    auto allowed = KeyedArchive::propertyListClasses();
    allowed << QStringLiteral("Exception") << QStringLiteral("KSException")
            << QStringLiteral("Error");
    T exception(coder.decodeStringObject(QStringLiteral("name")).value_or(QString()),
                coder.decodeStringObject(QStringLiteral("reason")).value_or(QString()),
                coder.decodeObject(QStringLiteral("userInfo"), allowed).toMap());
    // Addresses of this process's decoder say nothing about where the peer failed.
    exception.setCallStackReturnAddresses({});
    return QVariant::fromValue(exception);
}
} // namespace

void Exception::registerArchivableClass()
{
    KeyedArchive::registerClass<Exception>(
        QStringLiteral("Exception"),
        [](const QVariant& object) { return encodeException(object.value<Exception>()); },
        decodeException<Exception>);
    QMetaType::registerConverter<Exception, QString>(&Exception::description);
}

void KSException::registerArchivableClass()
{
    KeyedArchive::registerClass<KSException>(
        QStringLiteral("KSException"),
        [](const QVariant& object) { return encodeException(object.value<KSException>()); },
        decodeException<KSException>);
    QMetaType::registerConverter<KSException, QString>(&KSException::description);
}

namespace {
// Registered as soon as this file is linked in: anything that can raise can also decode.
[[maybe_unused]] const bool s_registered =
    (Exception::registerArchivableClass(), KSException::registerArchivableClass(), true);
} // namespace
