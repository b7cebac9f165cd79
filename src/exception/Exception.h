#pragma once

#include <QByteArray>
#include <QList>
#include <QMetaType>
#include <QString>
#include <QVariantMap>
#include <atomic>
#include <exception>
#include <memory>

class KSException;

// The platform exception: a name (the category), a reason and a user info dictionary. Every
// failure of this product is a KSException; a plain Exception stands for one raised by a peer
// or a library that knows nothing of KSException, so it can still cross a process boundary.
class Exception : public std::exception
{
public:
    Exception() = default;
    Exception(QString name, QString reason, QVariantMap userInfo = {});
    Exception(const Exception&) = default;
    Exception& operator=(const Exception&) = default;
    Exception(Exception&&) noexcept = default;
    Exception& operator=(Exception&&) noexcept = default;
    ~Exception() override;

    const QString& name() const { return m_name; }
    const QString& reason() const { return m_reason; }
    const QVariantMap& userInfo() const { return m_userInfo; }
    // Unique in the process to each exception made (or decoded); its copies keep it, so a
    // logger can tell "the one logged last" from a new one made at the same address.
    quint64 identity() const { return m_identity; }
    // Where the exception was raised: empty until then, so one that is only logged costs no
    // stack walk; the thrown copy carries them.
    const QList<quintptr>& callStackReturnAddresses() const { return m_callStack; }
    void setCallStackReturnAddresses(QList<quintptr> addresses);

    // The name the keyed archive knows this class by.
    virtual QString className() const;
    virtual QString description() const;
    const char* what() const noexcept override;

    virtual std::unique_ptr<Exception> clone() const;
    [[noreturn]] virtual void raise() const;
    QVariant toVariant() const;

    const KSException* asKSException() const;
    const KSException* asSoftException() const;

    // An exception held in a QVariant (as in a "Cause" detail), or none.
    static std::unique_ptr<Exception> fromVariant(const QVariant& value);

    // Raises, unless the process has chosen to persist past failures: then the failure is
    // logged and the call returns.
    void raiseOrPersist() const;
    static void setPersistFailures(bool persist);
    static bool persistFailures();

protected:
    // The return addresses of the caller's stack, innermost first.
    static QList<quintptr> captureCallStack();

    QVariantMap m_userInfo;

private:
    static quint64 nextIdentity();

    QString m_name;
    QString m_reason;
    QList<quintptr> m_callStack;
    quint64 m_identity = nextIdentity();
    mutable QByteArray m_what;
    static std::atomic<bool> s_persistFailures;
};

Q_DECLARE_METATYPE(Exception)
