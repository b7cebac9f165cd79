#pragma once

#include "exception/Exception.h"

#include <QHash>
#include <QObject>

class Error;
class QFileInfo;

// The one exception class of the product. Its details are its user info: whatever is set here
// is seen by whoever reads the user info, in this process or, after the wire form, in another.
class KSException : public Exception
{
public:
    KSException() = default;
    KSException(QString name, QString reason, QVariantMap details = {});

    static KSException exceptionWithName(const QString& name, const QString& reason);
    static KSException error(const Error& error, const QString& name, const QString& reason);
    // Both read errno of the calling thread, so call them right after the failing call.
    static KSException errnoWithName(const QString& name, const QString& reason);
    static KSException ioErrnoWithReason(const QString& reason);

    static int preferredLogClassForName(const QString& name);
    static int preferredLogClassForException(const std::exception& exception);
    static QString getNameForPackageType(int type);
    // Detail key -> the log class at or above which the logger prints that detail.
    static const QHash<QString, int>& userInfoLogClassifications();

    QString className() const override;
    QString description() const override;
    std::unique_ptr<Exception> clone() const override;
    [[noreturn]] void raise() const final;

    const QVariantMap& details() const { return m_userInfo; }

    KSException& setDetail(const QVariant& value, const QString& key);
    KSException& setHexDetail(quint64 value, const QString& key);
    KSException& setLongLongHexDetail(quint64 value, const QString& key);
    KSException& setDecimalDetail(qint64 value, const QString& key);
    KSException& setLongLongDetail(qint64 value, const QString& key);
    KSException& setPOSIXErr(int err);
    KSException& setPOSIXErr(int err, const QString& api);
    KSException& setAPI(const QString& api);
    KSException& setError(const Error& error);
    KSException& setFileInfo(const QString& name, const QString& path, int type);
    KSException& setFile(const QVariant& file);
    KSException& setFolder(const QVariant& folder);
    KSException& setObject(const QVariant& object);
    KSException& setPathObject(const QFileInfo& path);
    KSException& setStrPath(const QString& path);
    KSException& setCPath(const char* path);
    KSException& setPackageInfo(quint32 number, int type);
    KSException& setPackageType(int type);
    KSException& setPackageNumber(quint32 number);
    KSException& setFilePosition(qint64 position);
    KSException& setExpected(const QVariant& expected);
    KSException& setClass(const QString& className);
    KSException& setClassOf(const QVariant& object);
    KSException& setClassOf(const QObject& object);
    KSException& setMessage(const char* selector);
    KSException& setMessage(const char* selector, const QObject& object);
    KSException& setVersion(quint32 buildNumber);
    KSException& setCause(const QVariant& cause);
    KSException& setCause(const std::exception& cause);
    KSException& setLength(quint64 length);
    KSException& setPreferredLogClass(int logClass);
    KSException& setExplanation(const QString& explanation);
    KSException& setSoft(bool soft);
    KSException& setFlag(const QString& key);
    KSException& clearFlag(const QString& key);

    int preferredLogClass() const;
    // A flag is set whenever its key is present, whatever its value: clearing a flag that was
    // once set leaves it reading as set. Peers rely on this, so it stays.
    bool hasFlag(const QString& key) const;
    bool isSoft() const;
    bool isHard() const { return !isSoft(); }
};

Q_DECLARE_METATYPE(KSException)
