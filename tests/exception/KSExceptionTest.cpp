#include "exception/KSException.h"

#include "exception/Error.h"
#include "support/RecordingLogSink.h"

#include <QFileInfo>
#include <cerrno>
#include <gtest/gtest.h>
#include <stdexcept>

namespace {
KSException io(const QString& reason = QStringLiteral("Cannot create support folder"))
{
    return KSException::exceptionWithName(QStringLiteral("IO"), reason);
}

QVariant detail(const KSException& exception, const char* key)
{
    return exception.details().value(QString::fromLatin1(key));
}
} // namespace

TEST(KSExceptionDetails, HexDetailsSwitchWidthAt65536)
{
    auto exception = io();
    exception.setHexDetail(65535, QStringLiteral("a"))
        .setHexDetail(65536, QStringLiteral("b"))
        .setLongLongHexDetail(0xabc, QStringLiteral("c"));
    EXPECT_EQ(detail(exception, "a").toString(), QStringLiteral("0xffff"));
    EXPECT_EQ(detail(exception, "b").toString(), QStringLiteral("0x00010000"));
    EXPECT_EQ(detail(exception, "c").toString(), QStringLiteral("0x0000000000000abc"));
}

TEST(KSExceptionDetails, CPathKeepsAtMost1024BytesAndIgnoresNull)
{
    const std::string longPath(2000, 'p');
    auto exception = io();
    exception.setCPath(longPath.c_str());
    EXPECT_EQ(detail(exception, "Path").toString().size(), 1024);
    auto untouched = io();
    untouched.setCPath(nullptr);
    EXPECT_FALSE(untouched.details().contains(QStringLiteral("Path")));
}

TEST(KSExceptionDetails, NilDetailIsRecordedAsText)
{
    auto exception = io();
    exception.setDetail(QVariant(), QStringLiteral("Object"));
    EXPECT_EQ(detail(exception, "Object").toString(), QStringLiteral("(nil)"));
}

TEST(KSExceptionDetails, PackageAndFileTypeNames)
{
    EXPECT_EQ(KSException::getNameForPackageType(5), QStringLiteral("DeltaDirectory"));
    EXPECT_EQ(KSException::getNameForPackageType(7), QStringLiteral("Unknown(7)"));
    EXPECT_EQ(KSException::getNameForPackageType(-1), QStringLiteral("Unknown(-1)"));
    auto link = io();
    link.setFileInfo(QStringLiteral("l"), QStringLiteral("/a/l"), 5);
    EXPECT_EQ(detail(link, "Type").toString(), QStringLiteral("symblic link"));
    EXPECT_EQ(detail(link, "Path").toString(), QStringLiteral("/a/l"));
    auto odd = io();
    odd.setFileInfo(QStringLiteral("s"), QStringLiteral("/a/s"), 6);
    EXPECT_EQ(detail(odd, "Type").toInt(), 6);
    auto none = io();
    none.setFileInfo(QStringLiteral("n"), QStringLiteral("/a/n"), 0);
    EXPECT_FALSE(none.details().contains(QStringLiteral("Type")));
}

TEST(KSExceptionDetails, POSIXErrorsCarryNumberTextAndApi)
{
    errno = ENOENT;
    const auto exception = KSException::ioErrnoWithReason(QStringLiteral("open failed"));
    EXPECT_EQ(exception.name(), QStringLiteral("IO"));
    EXPECT_EQ(detail(exception, "POSIXErr").toInt(), ENOENT);
    EXPECT_EQ(detail(exception, "ErrDescription").toString(),
              QStringLiteral("No such file or directory"));
    auto withApi = io();
    withApi.setPOSIXErr(EACCES, QStringLiteral("mkdir"));
    EXPECT_EQ(detail(withApi, "API").toString(), QStringLiteral("mkdir"));
}

TEST(KSExceptionDetails, PlatformErrorsFoldInByDomain)
{
    const Error posix(Error::kPOSIXDomain, EIO,
                      {{Error::kLocalizedDescriptionKey, QStringLiteral("I/O error")},
                       {Error::kLocalizedFailureReasonKey, QStringLiteral("bad block")}});
    const auto fromPosix = KSException::error(posix, QStringLiteral("IO"), QStringLiteral("r"));
    EXPECT_EQ(detail(fromPosix, "POSIXErr").toInt(), EIO);
    EXPECT_EQ(detail(fromPosix, "Description").toString(), QStringLiteral("I/O error"));
    EXPECT_EQ(detail(fromPosix, "Error").toString(), QStringLiteral("bad block"));
    EXPECT_EQ(detail(fromPosix, ".Error").value<Error>(), posix);

    auto status = io();
    status.setError(Error(Error::kOSStatusDomain, -43));
    EXPECT_EQ(detail(status, "OSErr").toInt(), -43);
    auto url = io();
    url.setError(
        Error(Error::kURLDomain, 1, {{Error::kFailingURLStringKey, QStringLiteral("/v")}}));
    EXPECT_EQ(detail(url, "Path").toString(), QStringLiteral("/v"));
}

TEST(KSExceptionDetails, VersionIsReadableAndMessageNamesTheReceiver)
{
    QObject receiver;
    auto exception = io();
    exception.setVersion(0x22512).setMessage("cullTime:", receiver);
    EXPECT_EQ(detail(exception, "Version").toString(), QStringLiteral("2.2.5(18)"));
    EXPECT_EQ(detail(exception, "Message").toString(), QStringLiteral("[QObject cullTime:]"));
}

TEST(KSExceptionLogClass, ComesFromTheNameUnlessOverridden)
{
    EXPECT_EQ(KSException::exceptionWithName(QStringLiteral("Cancel"), {}).preferredLogClass(), 3);
    EXPECT_EQ(KSException::exceptionWithName(QStringLiteral("Info"), {}).preferredLogClass(), 0);
    EXPECT_EQ(KSException::exceptionWithName(QStringLiteral("Security"), {}).preferredLogClass(),
              4);
    EXPECT_EQ(KSException::exceptionWithName(QStringLiteral("Bug"), {}).preferredLogClass(), 9);
    EXPECT_EQ(io().preferredLogClass(), 5);
    auto quiet = KSException::exceptionWithName(QStringLiteral("Cancel"), {});
    quiet.setPreferredLogClass(1);
    EXPECT_EQ(quiet.preferredLogClass(), 1);
    EXPECT_EQ(KSException::preferredLogClassForException(quiet), 1);
    EXPECT_EQ(KSException::preferredLogClassForException(std::runtime_error("foreign")), 5);
    EXPECT_EQ(KSException::userInfoLogClassifications().value(QStringLiteral("Path")), 6);
    EXPECT_EQ(KSException::userInfoLogClassifications().value(QStringLiteral("Cause")), 9);
}

TEST(KSExceptionFlags, PresentMeansSetEvenAfterClearing)
{
    auto exception = io();
    EXPECT_TRUE(exception.isHard());
    exception.clearFlag(QStringLiteral("Never"));
    EXPECT_TRUE(exception.hasFlag(QStringLiteral("Never")));
    exception.setSoft(true);
    EXPECT_TRUE(exception.isSoft());
    exception.setSoft(false);
    EXPECT_TRUE(exception.isSoft());
    EXPECT_NE(exception.asSoftException(), nullptr);
    EXPECT_EQ(io().asSoftException(), nullptr);
}

TEST(KSExceptionDescription, NameInBracketsThenReasonThenDetails)
{
    auto exception = io();
    EXPECT_EQ(exception.description(), QStringLiteral("<IO> Cannot create support folder"));
    exception.setStrPath(QStringLiteral("/Users/me/Application Support"));
    EXPECT_EQ(exception.description(),
              QStringLiteral("<IO> Cannot create support folder { Path='/Users/me/Application "
                             "Support' }"));
    exception.setPOSIXErr(EACCES);
    EXPECT_EQ(exception.description(),
              QStringLiteral("<IO> Cannot create support folder { ErrDescription='Permission "
                             "denied', POSIXErr=13, Path='/Users/me/Application Support' }"));
    auto internal = io();
    internal.setFlag(QStringLiteral(".SoftError"));
    EXPECT_EQ(internal.description(),
              QStringLiteral("<IO> Cannot create support folder { .SoftError=1 }"));
    EXPECT_STREQ(internal.what(), "<IO> Cannot create support folder { .SoftError=1 }");
}

TEST(KSExceptionRaising, RaiseOrPersistFollowsTheProcessSwitch)
{
    RecordingLogSink sink;
    const auto exception = io();
    EXPECT_THROW(exception.raiseOrPersist(), KSException);
    Exception::setPersistFailures(true);
    EXPECT_NO_THROW(exception.raiseOrPersist());
    Exception::setPersistFailures(false);
    const auto lines = sink.lines();
    ASSERT_EQ(lines.size(), 2);
    EXPECT_EQ(lines.at(0).logClass, 4);
    EXPECT_EQ(lines.at(0).text, QStringLiteral("ShePersisted: Ignored failures"));
    EXPECT_EQ(lines.at(1).logClass, 5);
    EXPECT_EQ(lines.at(1).text, exception.description());
}

TEST(KSExceptionRaising, RaisingKeepsClassAndIdentityAndTakesTheReturnAddresses)
{
    const auto made = io();
    EXPECT_TRUE(made.callStackReturnAddresses().isEmpty());
    EXPECT_NE(io().identity(), made.identity());
    const std::unique_ptr<Exception> held = made.clone();
    EXPECT_EQ(held->identity(), made.identity());
    try {
        held->raise();
    } catch (const KSException& caught) {
        EXPECT_FALSE(caught.callStackReturnAddresses().isEmpty());
        EXPECT_EQ(caught.identity(), made.identity());
        EXPECT_EQ(caught.reason(), made.reason());
        return;
    }
    FAIL() << "raise lost the class";
}
