#include "exception/KSException.h"

#include "exception/BuildVersion.h"
#include "exception/Error.h"
#include "exception/ValueDescription.h"

#include <QFile>
#include <QFileInfo>
#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {
const QString kPOSIXErr = QStringLiteral("POSIXErr");
const QString kErrDescription = QStringLiteral("ErrDescription");
const QString kAPI = QStringLiteral("API");
const QString kPath = QStringLiteral("Path");
const QString kPkgNumber = QStringLiteral("PkgNumber");
const QString kPkgType = QStringLiteral("PkgType");
const QString kLogClass = QStringLiteral(".LogClass");
const QString kSoftError = QStringLiteral(".SoftError");
constexpr qsizetype kMaxCPathBytes = 1024;

QString posixErrorText(int err)
{
    // strerror_r keeps concurrent raisers from overwriting each other's text.
    char buffer[256] = {};
    return QString::fromLocal8Bit(strerror_r(err, buffer, sizeof buffer));
}

bool containsWhitespace(const QString& text)
{
    return std::any_of(text.cbegin(), text.cend(), [](QChar c) { return c.isSpace(); });
}
} // namespace

KSException::KSException(QString name, QString reason, QVariantMap details)
    : Exception(std::move(name), std::move(reason), std::move(details))
{}

KSException KSException::exceptionWithName(const QString& name, const QString& reason)
{
    return KSException(name, reason);
}

KSException KSException::error(const Error& error, const QString& name, const QString& reason)
{
    KSException raised(name, reason);
    raised.setError(error);
    return raised;
}

KSException KSException::errnoWithName(const QString& name, const QString& reason)
{
    const int err = errno;
    KSException raised(name, reason);
    raised.setPOSIXErr(err);
    return raised;
}

KSException KSException::ioErrnoWithReason(const QString& reason)
{
    const int err = errno;
    KSException raised(QStringLiteral("IO"), reason);
    raised.setPOSIXErr(err);
    return raised;
}

int KSException::preferredLogClassForName(const QString& name)
{
    static const QHash<QString, int> classes{{QStringLiteral("Info"), 0},
                                             {QStringLiteral("Cancel"), 3},
                                             {QStringLiteral("Security"), 4},
                                             {QStringLiteral("Bug"), 9}};
    return classes.value(name, 5);
}

int KSException::preferredLogClassForException(const std::exception& exception)
{
    const auto* ks = dynamic_cast<const KSException*>(&exception);
    return ks != nullptr ? ks->preferredLogClass() : 5;
}

QString KSException::getNameForPackageType(int type)
{
    static const QStringList names{QStringLiteral("Invalid"),   QStringLiteral("Data"),
                                   QStringLiteral("List"),      QStringLiteral("File"),
                                   QStringLiteral("Directory"), QStringLiteral("DeltaDirectory"),
                                   QStringLiteral("Session")};
    if (type >= 0 && type < names.size()) {
        return names.at(type);
    }
    return QStringLiteral("Unknown(%1)").arg(type);
}

const QHash<QString, int>& KSException::userInfoLogClassifications()
{
    static const QHash<QString, int> classifications{{kPOSIXErr, 6},
                                                     {QStringLiteral("OSErr"), 6},
                                                     {QStringLiteral("OSErrName"), 6},
                                                     {kPath, 6},
                                                     {kAPI, 9},
                                                     {QStringLiteral("Object"), 9},
                                                     {kPkgType, 9},
                                                     {kPkgNumber, 9},
                                                     {QStringLiteral("Class"), 9},
                                                     {QStringLiteral("Cause"), 9}};
    return classifications;
}

QString KSException::className() const
{
    return QStringLiteral("KSException");
}

QString KSException::description() const
{
    QString text = QStringLiteral("<%1> %2").arg(name(), reason());
    if (m_userInfo.isEmpty()) {
        return text;
    }
    bool first = true;
    for (auto it = m_userInfo.cbegin(); it != m_userInfo.cend(); ++it) {
        text += first ? QStringLiteral(" { ") : QStringLiteral(", ");
        first = false;
        const QString value = ValueDescription::describe(it.value());
        text += it.key();
        text += containsWhitespace(value) ? QStringLiteral("='%1'").arg(value)
                                          : QStringLiteral("=%1").arg(value);
    }
    return text + QStringLiteral(" }");
}

std::unique_ptr<Exception> KSException::clone() const
{
    return std::make_unique<KSException>(*this);
}

void KSException::raise() const
{
    KSException raised(*this);
    raised.setCallStackReturnAddresses(captureCallStack());
    throw raised;
}

KSException& KSException::setDetail(const QVariant& value, const QString& key)
{
    m_userInfo.insert(key, value.isValid() ? value : QVariant(QStringLiteral("(nil)")));
    return *this;
}

KSException& KSException::setHexDetail(quint64 value, const QString& key)
{
    const int width = value < 65536 ? 4 : 8;
    return setDetail(QStringLiteral("0x%1").arg(value, width, 16, QLatin1Char('0')), key);
}

KSException& KSException::setLongLongHexDetail(quint64 value, const QString& key)
{
    return setDetail(QStringLiteral("0x%1").arg(value, 16, 16, QLatin1Char('0')), key);
}

KSException& KSException::setDecimalDetail(qint64 value, const QString& key)
{
    return setDetail(value, key);
}

KSException& KSException::setLongLongDetail(qint64 value, const QString& key)
{
    return setDetail(value, key);
}

KSException& KSException::setPOSIXErr(int err)
{
    setDetail(err, kPOSIXErr);
    return setDetail(posixErrorText(err), kErrDescription);
}

KSException& KSException::setPOSIXErr(int err, const QString& api)
{
    setPOSIXErr(err);
    return setAPI(api);
}

KSException& KSException::setAPI(const QString& api)
{
    return setDetail(api, kAPI);
}

KSException& KSException::setError(const Error& error)
{
    setDetail(QVariant::fromValue(error), QStringLiteral(".Error"));
    if (error.domain() == Error::kPOSIXDomain) {
        setPOSIXErr(static_cast<int>(error.code()));
    } else if (error.domain() == Error::kOSStatusDomain) {
        setDetail(error.code(), QStringLiteral("OSErr"));
    } else if (error.domain() == Error::kURLDomain && !error.failingURLString().isEmpty()) {
        setStrPath(error.failingURLString());
    }
    if (!error.localizedDescription().isEmpty()) {
        setDetail(error.localizedDescription(), QStringLiteral("Description"));
    }
    if (!error.localizedFailureReason().isEmpty()) {
        setDetail(error.localizedFailureReason(), QStringLiteral("Error"));
    }
    return *this;
}

KSException& KSException::setFileInfo(const QString& name, const QString& path, int type)
{
    setDetail(name, QStringLiteral("Name"));
    setStrPath(path);
    static const QHash<int, QString> typeNames{{1, QStringLiteral("regular file")},
                                               {2, QStringLiteral("directory")},
                                               {5, QStringLiteral("symblic link")}};
    if (typeNames.contains(type)) {
        setDetail(typeNames.value(type), QStringLiteral("Type"));
    } else if (type != 0) {
        setDetail(type, QStringLiteral("Type"));
    }
    return *this;
}

KSException& KSException::setFile(const QVariant& file)
{
    return setDetail(file, QStringLiteral("File"));
}

KSException& KSException::setFolder(const QVariant& folder)
{
    return setDetail(folder, QStringLiteral("Folder"));
}

KSException& KSException::setObject(const QVariant& object)
{
    return setDetail(object, QStringLiteral("Object"));
}

KSException& KSException::setPathObject(const QFileInfo& path)
{
    return setStrPath(path.filePath());
}

KSException& KSException::setStrPath(const QString& path)
{
    return setDetail(path, kPath);
}

KSException& KSException::setCPath(const char* path)
{
    if (path == nullptr) {
        return *this;
    }
    const QByteArray bytes(path, static_cast<qsizetype>(strnlen(path, kMaxCPathBytes)));
    return setStrPath(QFile::decodeName(bytes));
}

KSException& KSException::setPackageInfo(quint32 number, int type)
{
    setPackageNumber(number);
    return setPackageType(type);
}

KSException& KSException::setPackageType(int type)
{
    return setDetail(getNameForPackageType(type), kPkgType);
}

KSException& KSException::setPackageNumber(quint32 number)
{
    return setDetail(number, kPkgNumber);
}

KSException& KSException::setFilePosition(qint64 position)
{
    return setDetail(position, QStringLiteral("Position"));
}

KSException& KSException::setExpected(const QVariant& expected)
{
    return setDetail(expected, QStringLiteral("Expected"));
}

KSException& KSException::setClass(const QString& className)
{
    return setDetail(className, QStringLiteral("Class"));
}

KSException& KSException::setClassOf(const QVariant& object)
{
    return setClass(ValueDescription::classNameOf(object));
}

KSException& KSException::setClassOf(const QObject& object)
{
    return setClass(QString::fromLatin1(object.metaObject()->className()));
}

KSException& KSException::setMessage(const char* selector)
{
    return setDetail(QString::fromLatin1(selector), QStringLiteral("Message"));
}

KSException& KSException::setMessage(const char* selector, const QObject& object)
{
    const QString message = QStringLiteral("[%1 %2]").arg(
        QString::fromLatin1(object.metaObject()->className()), QString::fromLatin1(selector));
    return setDetail(message, QStringLiteral("Message"));
}

KSException& KSException::setVersion(quint32 buildNumber)
{
    return setDetail(BuildVersion::readableString(buildNumber), QStringLiteral("Version"));
}

KSException& KSException::setCause(const QVariant& cause)
{
    return setDetail(cause, QStringLiteral("Cause"));
}

KSException& KSException::setCause(const std::exception& cause)
{
    if (const auto* known = dynamic_cast<const Exception*>(&cause)) {
        return setCause(known->toVariant());
    }
    return setCause(QVariant::fromValue(
        Exception(QStringLiteral("std::exception"), QString::fromLocal8Bit(cause.what()))));
}

KSException& KSException::setLength(quint64 length)
{
    return setDetail(length, QStringLiteral("Length"));
}

KSException& KSException::setPreferredLogClass(int logClass)
{
    return setDetail(logClass, kLogClass);
}

KSException& KSException::setExplanation(const QString& explanation)
{
    return setDetail(explanation, QStringLiteral(".Explain"));
}

KSException& KSException::setSoft(bool soft)
{
    return soft ? setFlag(kSoftError) : clearFlag(kSoftError);
}

KSException& KSException::setFlag(const QString& key)
{
    return setDetail(true, key);
}

KSException& KSException::clearFlag(const QString& key)
{
    return setDetail(false, key);
}

int KSException::preferredLogClass() const
{
    const QVariant logClass = m_userInfo.value(kLogClass);
    if (logClass.isValid()) {
        return logClass.toInt();
    }
    return preferredLogClassForName(name());
}

bool KSException::hasFlag(const QString& key) const
{
    return m_userInfo.contains(key);
}

bool KSException::isSoft() const
{
    return hasFlag(kSoftError);
}
