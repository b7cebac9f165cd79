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
    // Where the exception was made (and so, by habit, raised); empty for one decoded from data.
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
    QVariantMap m_userInfo;

private:
    QString m_name;
    QString m_reason;
    QList<quintptr> m_callStack;
    mutable QByteArray m_what;
    static std::atomic<bool> s_persistFailures;
};

Q_DECLARE_METATYPE(Exception)
