#include "exception/KSException.h"
#include "foundation/KeyedArchive.h"
#include "messaging/ClientIdentifier.h"
#include "messaging/FullyQualifiedIdentifier.h"
#include "messaging/SwitchboardNames.h"
#include "messaging/VolumeIdentifier.h"

#include <QCborArray>
#include <QCborMap>
#include <QCborValue>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {
const QString kClientClass = u"ClientIdentifier"_s;
const QString kIdentifierClass = u"FullyQualifiedIdentifier"_s;

QVariant client(const QString& name, quint32 number)
{
    return QVariant::fromValue(ClientIdentifier(name, number));
}

QVariant volume(const QString& uuid)
{
    return QVariant::fromValue(
        VolumeIdentifier(uuid, VolumeIdentifier::Kind::Uuid, u"/mnt/"_s + uuid));
}

FQIdentifier chain(const QVariantList& levels)
{
    return FullyQualifiedIdentifier::withIdentifierArray(levels);
}

// alice(#5):1234-ABCD:home unless told otherwise.
FQIdentifier home(const QVariant& who = client(u"alice"_s, 5), const QString& disk = u"1234-ABCD"_s)
{
    return chain({who, volume(disk), u"home"_s});
}

FQIdentifier below(FQIdentifier base, const QVariantList& levels)
{
    for (const QVariant& level : levels) {
        base = base->fullyQualifiedIdentifierByAppendingIdentifier(level);
    }
    return base;
}

QByteArray archivedObject(const QString& className, const QCborMap& fields)
{
    return QCborValue(QCborTag(27), QCborArray{className, fields}).toCbor();
}
} // namespace

TEST(SwitchboardNames, TheUserOfAProcessComesFromTheKernelNeverFromItsEnvironment)
{
    qputenv("SUDO_UID", "4242");
    qputenv("PKEXEC_UID", "4343");
    uint expected = geteuid();
    QFile loginUid(u"/proc/self/loginuid"_s);
    if (expected == 0 && loginUid.open(QIODevice::ReadOnly)) {
        expected = loginUid.readAll().trimmed().toUInt();
        expected = expected == 0xFFFFFFFFU ? 0 : expected;
    }
    EXPECT_EQ(SwitchboardNames::processUserID(), expected);
    EXPECT_EQ(SwitchboardNames::perUserServiceName(),
              u"com.kestrom.switchboard.%1"_s.arg(expected));
}

TEST(ClientIdentifier, TheBinaryFormIsANameValueAndFourBytesAndReadsBackWhole)
{
    const auto assembled = [](const ClientIdentifier& identifier) {
        QByteArray bytes;
        QDataStream out(&bytes, QIODevice::WriteOnly);
        identifier.assembleContents(out);
        return bytes;
    };
    // 01 a name value, 00000001 its length, 41 "A", 00000005 the number.
    EXPECT_EQ(assembled(ClientIdentifier(u"A"_s, 5)).toHex(), "01000000014100000005");
    for (const ClientIdentifier& original :
         {ClientIdentifier(u"A"_s, 5), ClientIdentifier(u"Bücher-Ü"_s, 0xFFFFFFFF),
          ClientIdentifier(QString(), 7)}) {
        const QByteArray data = assembled(original);
        EXPECT_EQ(original.sizeEstimate(), data.size());
        QDataStream reading(data);
        const ClientIdentifier read = ClientIdentifier::readContents(reading);
        EXPECT_EQ(read.name(), original.name());
        EXPECT_EQ(read.serialNumber(), original.serialNumber());
    }
    // Short data, another value type, and the number 0: refused, never asserted.
    for (const QByteArray& bad : {QByteArray::fromHex("0100000001"), QByteArray::fromHex("02"),
                                  QByteArray::fromHex("01000000014100000000")}) {
        QDataStream reading(bad);
        EXPECT_THROW(ClientIdentifier::readContents(reading), KSException) << bad.toHex().data();
    }
}

TEST(ClientIdentifier, NumbersAloneDecideHashAndDescribeAndTheWildcardGoesByName)
{
    const ClientIdentifier anyC(u"C"_s, ClientIdentifier::kWildcardNumber);
    EXPECT_EQ(ClientIdentifier(u"A"_s, 5), ClientIdentifier(u"B"_s, 5));
    EXPECT_EQ(ClientIdentifier(u"A"_s, 5), anyC);
    EXPECT_NE(ClientIdentifier(u"A"_s, 5), ClientIdentifier(u"A"_s, 6));
    const struct
    {
        quint32 number;
        size_t hash;
        const char* description;
    } cases[] = {{5, 0x50, "A(#5)"},
                 {0x12345678, 0x23456781, "A(#305419896)"},
                 {0xF0000001, 0x1F, "A(#-268435455)"},
                 {0x80000000, 0x8, "A(#-2147483648)"}};
    for (const auto& c : cases) {
        EXPECT_EQ(ClientIdentifier(u"A"_s, c.number).hash(), c.hash) << c.number;
        EXPECT_EQ(ClientIdentifier(u"A"_s, c.number).description(),
                  QString::fromLatin1(c.description));
    }
    EXPECT_EQ(anyC.hash(), qHash(u"C"_s));
    EXPECT_EQ(anyC.description(), u"C(#-1)"_s);
}

TEST(ClientIdentifier, ArchiveKeepsNameAndNumberAndDecodingChecksKindsAndPermission)
{
    for (const quint32 number :
         {quint32(5), quint32(0x80000000), ClientIdentifier::kWildcardNumber}) {
        const QByteArray data = KeyedArchive::archivedData(client(u"bob"_s, number));
        const auto back =
            KeyedArchive::unarchivedObject(data, {kClientClass}).value<ClientIdentifier>();
        EXPECT_EQ(back.name(), u"bob"_s);
        EXPECT_EQ(back.serialNumber(), number);
        EXPECT_THROW(KeyedArchive::unarchivedObject(data, {KeyedArchive::kString}), KSException);
    }
    // An unsigned number is read as its bits.
    const QByteArray unsignedNumber =
        archivedObject(kClientClass, {{u"name"_s, u"x"_s},
                                      {u"number"_s, qint64(ClientIdentifier::kWildcardNumber)}});
    EXPECT_TRUE(KeyedArchive::unarchivedObject(unsignedNumber, {kClientClass})
                    .value<ClientIdentifier>()
                    .isWildcard());
    const QByteArray numberName = archivedObject(kClientClass, {{u"name"_s, 12}, {u"number"_s, 5}});
    EXPECT_THROW(KeyedArchive::unarchivedObject(numberName, {kClientClass}), KSException);
}

TEST(FullyQualifiedIdentifier, ContainsDescendantsOnlyAndTheClosestAncestorIsTheDeepestShared)
{
    const FQIdentifier base = home();
    const FQIdentifier child = below(base, {u"a"_s});
    const FQIdentifier deeper = below(child, {42, u"z"_s});
    EXPECT_TRUE(base->contains(child));
    EXPECT_TRUE(base->contains(deeper));
    EXPECT_FALSE(base->contains(home()));
    EXPECT_FALSE(base->contains(base->parent()));
    EXPECT_FALSE(base->contains(nullptr));
    EXPECT_FALSE(child->contains(base));
    EXPECT_TRUE(base->contains(below(home(), {u"a"_s})));
    EXPECT_FALSE(base->contains(below(home()->parent(), {u"var"_s, u"a"_s}))) << "a cousin";

    const FQIdentifier sibling = below(home(), {u"b"_s});
    EXPECT_TRUE(deeper->closestAncestorWith(sibling)->isEqual(base));
    EXPECT_TRUE(sibling->closestAncestorWith(deeper)->isEqual(base));
    EXPECT_TRUE(deeper->closestAncestorWith(base)->isEqual(base));
    EXPECT_TRUE(deeper->closestAncestorWith(deeper)->isEqual(deeper));
    EXPECT_FALSE(deeper->closestAncestorWith(nullptr));
    EXPECT_FALSE(deeper->closestAncestorWith(chain({client(u"bob"_s, 9), volume(u"1234-ABCD"_s)})));
    EXPECT_TRUE(deeper->closestAncestorWith(home(client(u"alice"_s, 5), u"two"_s))
                    ->isEqual(base->fullyQualifiedIdentifierOfLength(1)));
}

TEST(FullyQualifiedIdentifier, EqualityWalksEveryLevelButTheHashMixesOnlyTheLeafAndItsParent)
{
    EXPECT_TRUE(home()->isEqual(home()));
    EXPECT_FALSE(home()->isEqual(home(client(u"alice"_s, 6))));
    EXPECT_FALSE(home()->isEqual(home()->parent()));
    EXPECT_FALSE(home()->isEqual(nullptr));
    EXPECT_TRUE(home()->isEqual(home(client(u"other"_s, ClientIdentifier::kWildcardNumber))));

    const FQIdentifier first =
        chain({client(u"alice"_s, 5), volume(u"one"_s), u"a"_s, u"shared"_s, u"leaf"_s});
    const FQIdentifier second =
        chain({client(u"bob"_s, 6), volume(u"two"_s), u"b"_s, u"shared"_s, u"leaf"_s});
    EXPECT_FALSE(first->isEqual(second));
    EXPECT_EQ(first->hash(), second->hash());
    EXPECT_EQ(first->hash(), qHash(u"leaf"_s) ^ qHash(u"shared"_s));
    EXPECT_NE(first->hash(), first->parent()->hash());
    const FQIdentifier byInteger = below(home(), {7});
    const FQIdentifier byDouble = below(home(), {7.0});
    EXPECT_TRUE(byInteger->isEqual(byDouble));
    EXPECT_EQ(byInteger->hash(), byDouble->hash());
}

TEST(FullyQualifiedIdentifier, CompositePathDescriptionAndPathOnAnOfflineVolume)
{
    const FQIdentifier notes = below(home(), {u"alice"_s, u"notes.txt"_s});
    EXPECT_EQ(notes->compositePath(), u"alice:1234-ABCD/home/alice/notes.txt"_s);
    EXPECT_EQ(notes->description(), u"alice(#5):1234-ABCD:home:alice:notes.txt"_s);
    EXPECT_EQ(home()->fullyQualifiedIdentifierOfLength(1)->compositePath(), u"alice:"_s);
    EXPECT_EQ(home()->fullyQualifiedIdentifierOfLength(1)->description(), u"alice(#5)"_s);
    const FQIdentifier numbered =
        chain({client(u"bob"_s, 2),
               QVariant::fromValue(
                   VolumeIdentifier(u"00ab00cd00ef0012"_s, VolumeIdentifier::Kind::FileSystemId)),
               42, u"x"_s});
    EXPECT_EQ(numbered->compositePath(), u"bob:fsid:00ab00cd00ef0012/42/x"_s);

    // A volume that is not mounted gives a path relative to it, and no file info.
    const FQIdentifier offline =
        below(home(client(u"alice"_s, 5), u"no-such-volume-0000"_s), {u"x"_s});
    EXPECT_EQ(offline->fullyQualifiedIdentifierOfVolume()->fileSystemRepresentation(), QString());
    EXPECT_EQ(offline->fileSystemPath(), u"home/x"_s);
    EXPECT_FALSE(offline->fileInfo().has_value());
}

TEST(FullyQualifiedIdentifier, ArchiveRoundTripKeepsEveryLevelAndRefusesWhatIsNotAllowed)
{
    const FQIdentifier original = below(home(), {42, u"leaf"_s});
    const QByteArray data = KeyedArchive::archivedData(QVariant::fromValue(original));
    const auto back =
        KeyedArchive::unarchivedObject(data, {kIdentifierClass}).value<FQIdentifier>();
    ASSERT_TRUE(back);
    EXPECT_TRUE(back->isEqual(original));
    EXPECT_EQ(back->description(), original->description());
    EXPECT_EQ(back->identifiers().at(1).value<VolumeIdentifier>().mountPath(), u"/mnt/1234-ABCD"_s);
    EXPECT_THROW(KeyedArchive::unarchivedObject(data, {kClientClass}), KSException);

    for (const QByteArray& refused :
         {KeyedArchive::archivedData(QVariant::fromValue(below(home(), {QByteArray("raw")}))),
          archivedObject(kIdentifierClass, {}),
          archivedObject(kIdentifierClass,
                         {{u"ident"_s, u"x"_s}, {u"parent"_s, u"not an identifier"_s}})}) {
        EXPECT_THROW(KeyedArchive::unarchivedObject(refused, {kIdentifierClass}), KSException);
    }
}

TEST(FullyQualifiedIdentifier, APathIsClientVolumeAndComponentsBelowTheMountWithLinksResolved)
{
    QTemporaryDir folder;
    ASSERT_TRUE(QDir(folder.path()).mkpath(u"sub"_s));
    QFile file(folder.filePath(u"sub/file.txt"_s));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    const QString filePath = QFileInfo(file).canonicalFilePath();
    const auto withPath = [](const QString& path) {
        return FullyQualifiedIdentifier::fullyQualifiedIdentifierWithPath(
            path, ClientIdentifier(u"alice"_s, 5));
    };
    const FQIdentifier identifier = withPath(filePath);
    ASSERT_TRUE(identifier);
    const QVariantList levels = identifier->identifiers();
    ASSERT_GE(levels.size(), 5);
    EXPECT_EQ(levels.at(0).value<ClientIdentifier>().name(), u"alice"_s);
    const auto disk = levels.at(1).value<VolumeIdentifier>();
    EXPECT_EQ(disk, VolumeIdentifier::volumeIdentifierForPath(QDir::tempPath()));
    QString joined = disk.mountPath() == u"/"_s ? QString() : disk.mountPath();
    for (qsizetype i = 2; i < levels.size(); ++i) {
        joined += QLatin1Char('/') + levels.at(i).toString();
    }
    EXPECT_EQ(joined, filePath);
    EXPECT_EQ(identifier->fileSystemPath(), filePath);
    ASSERT_TRUE(identifier->fileInfo().has_value());
    EXPECT_TRUE(identifier->fileInfo()->isFile());

    const QString link = folder.filePath(u"link"_s);
    ASSERT_TRUE(QFile::link(folder.filePath(u"sub"_s), link));
    const FQIdentifier viaLink = withPath(link + u"/file.txt"_s);
    ASSERT_TRUE(viaLink);
    EXPECT_TRUE(viaLink->isEqual(identifier));
    const FQIdentifier gone = withPath(QFileInfo(filePath).path() + u"/gone.txt"_s);
    ASSERT_TRUE(gone);
    EXPECT_EQ(gone->nameOfLeafIdentifier(), u"gone.txt"_s);
    EXPECT_TRUE(gone->parent()->isEqual(identifier->parent()));
    EXPECT_FALSE(gone->fileInfo()->exists());
}
