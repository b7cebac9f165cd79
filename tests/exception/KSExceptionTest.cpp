#include "exception/KSException.h"

#include "exception/Error.h"
#include "support/RecordingLogSink.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <ostream>
#include <stdexcept>

using namespace Qt::StringLiterals;

// Readable failure messages for details.
inline void PrintTo(const QVariant& value, std::ostream* os)
{
    *os << (value.isValid() ? value.typeName() : "invalid") << ' '
        << value.toString().toStdString();
}

namespace {
KSException io(const QString& reason = u"Cannot create support folder"_s)
{
    return KSException::exceptionWithName(u"IO"_s, reason);
}

QVariant detail(const KSException& exception, const char* key)
{
    return exception.details().value(QString::fromLatin1(key));
}
} // namespace

// Each setter's detail as it is recorded, under its key.
TEST(KSExceptionDetails, EachSetterRecordsItsDetailInItsOwnForm)
{
    QObject receiver;
    errno = ENOENT;
    const auto fromErrno = KSException::ioErrnoWithReason(u"open failed"_s);
    const Error posix(Error::kPOSIXDomain, EIO,
                      {{Error::kLocalizedDescriptionKey, u"I/O error"_s},
                       {Error::kLocalizedFailureReasonKey, u"bad block"_s}});
    const auto fromPosix = KSException::error(posix, u"IO"_s, u"r"_s);
    const Error url(Error::kURLDomain, 1, {{Error::kFailingURLStringKey, u"/v"_s}});
    const struct
    {
        KSException exception;
        const char* key;
        QVariant expected; // invalid: no such detail
    } rows[] = {
        // Hexadecimal details switch width at 65536.
        {io().setHexDetail(65535, u"a"_s), "a", u"0xffff"_s},
        {io().setHexDetail(65536, u"b"_s), "b", u"0x00010000"_s},
        {io().setLongLongHexDetail(0xabc, u"c"_s), "c", u"0x0000000000000abc"_s},
        {io().setCPath(nullptr), "Path", {}},
        {io().setDetail(QVariant(), u"Object"_s), "Object", u"(nil)"_s},
        {io().setFileInfo(u"l"_s, u"/a/l"_s, 5), "Type", u"symblic link"_s},
        {io().setFileInfo(u"l"_s, u"/a/l"_s, 5), "Path", u"/a/l"_s},
        {io().setFileInfo(u"s"_s, u"/a/s"_s, 6), "Type", 6},
        {io().setFileInfo(u"n"_s, u"/a/n"_s, 0), "Type", {}},
        {fromErrno, "POSIXErr", ENOENT},
        {fromErrno, "ErrDescription", u"No such file or directory"_s},
        {io().setPOSIXErr(EACCES, u"mkdir"_s), "API", u"mkdir"_s},
        // Platform errors fold in by domain.
        {fromPosix, "POSIXErr", EIO},
        {fromPosix, "Description", u"I/O error"_s},
        {fromPosix, "Error", u"bad block"_s},
        {io().setError(Error(Error::kOSStatusDomain, -43)), "OSErr", -43},
        {io().setError(url), "Path", u"/v"_s},
        {io().setVersion(0x22512), "Version", u"2.2.5(18)"_s},
        {io().setMessage("cullTime:", receiver), "Message", u"[QObject cullTime:]"_s},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.key);
        EXPECT_EQ(row.exception.details().contains(QString::fromLatin1(row.key)),
                  row.expected.isValid());
        EXPECT_EQ(detail(row.exception, row.key), row.expected);
    }
    EXPECT_EQ(fromErrno.name(), u"IO"_s);
    EXPECT_EQ(detail(fromPosix, ".Error").value<Error>(), posix);
    // A C path keeps at most 1024 bytes.
    const std::string longPath(2000, 'p');
    EXPECT_EQ(detail(io().setCPath(longPath.c_str()), "Path").toString().size(), 1024);
    EXPECT_EQ(KSException::getNameForPackageType(5), u"DeltaDirectory"_s);
    EXPECT_EQ(KSException::getNameForPackageType(7), u"Unknown(7)"_s);
    EXPECT_EQ(KSException::getNameForPackageType(-1), u"Unknown(-1)"_s);
}

TEST(KSExceptionLogClass, ComesFromTheNameUnlessOverridden)
{
    for (const auto& [name, logClass] :
         {std::pair(u"Cancel"_s, 3), {u"Info"_s, 0}, {u"Security"_s, 4}, {u"Bug"_s, 9}}) {
        EXPECT_EQ(KSException::exceptionWithName(name, {}).preferredLogClass(), logClass);
    }
    EXPECT_EQ(io().preferredLogClass(), 5);
    auto quiet = KSException::exceptionWithName(u"Cancel"_s, {});
    quiet.setPreferredLogClass(1);
    EXPECT_EQ(quiet.preferredLogClass(), 1);
    EXPECT_EQ(KSException::preferredLogClassForException(quiet), 1);
    EXPECT_EQ(KSException::preferredLogClassForException(std::runtime_error("foreign")), 5);
    EXPECT_EQ(KSException::userInfoLogClassifications().value(u"Path"_s), 6);
    EXPECT_EQ(KSException::userInfoLogClassifications().value(u"Cause"_s), 9);
}

TEST(KSExceptionFlags, PresentMeansSetEvenAfterClearing)
{
    auto exception = io();
    EXPECT_TRUE(exception.isHard());
    exception.clearFlag(u"Never"_s);
    EXPECT_TRUE(exception.hasFlag(u"Never"_s));
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
    EXPECT_EQ(exception.description(), u"<IO> Cannot create support folder"_s);
    exception.setStrPath(u"/Users/me/Application Support"_s);
    EXPECT_EQ(exception.description(),
              u"<IO> Cannot create support folder { Path='/Users/me/Application Support' }"_s);
    exception.setPOSIXErr(EACCES);
    EXPECT_EQ(exception.description(),
              u"<IO> Cannot create support folder { ErrDescription='Permission "
              "denied', POSIXErr=13, Path='/Users/me/Application Support' }"_s);
    auto internal = io();
    internal.setFlag(u".SoftError"_s);
    EXPECT_EQ(internal.description(), u"<IO> Cannot create support folder { .SoftError=1 }"_s);
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
    EXPECT_EQ(lines.at(0).text, u"ShePersisted: Ignored failures"_s);
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
