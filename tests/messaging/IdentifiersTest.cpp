#include "exception/KSException.h"
#include "foundation/KeyedArchive.h"
#include "messaging/ClientIdentifier.h"
#include "messaging/FullyQualifiedIdentifier.h"
#include "messaging/VolumeIdentifier.h"

#include <QCborArray>
#include <QCborMap>
#include <QCborValue>
#include <QDir>
#include <QFile>
#include <QHash>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace {
const QString kClientClass = QStringLiteral("ClientIdentifier");
const QString kIdentifierClass = QStringLiteral("FullyQualifiedIdentifier");

QVariant client(const QString& name, quint32 number)
{
    return QVariant::fromValue(ClientIdentifier(name, number));
}

QVariant volume(const QString& uuid)
{
    return QVariant::fromValue(
        VolumeIdentifier(uuid, VolumeIdentifier::Kind::Uuid, QStringLiteral("/mnt/") + uuid));
}

FQIdentifier chain(const QVariantList& levels)
{
    return FullyQualifiedIdentifier::withIdentifierArray(levels);
}

// alice(#5):1234-ABCD:home unless told otherwise.
FQIdentifier home(const QVariant& who = client(QStringLiteral("alice"), 5),
                  const QString& disk = QStringLiteral("1234-ABCD"))
{
    return chain({who, volume(disk), QStringLiteral("home")});
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

TEST(ClientIdentifier, NumbersAloneDecideHashAndDescribeAndTheWildcardGoesByName)
{
    const ClientIdentifier anyC(QStringLiteral("C"), ClientIdentifier::kWildcardNumber);
    EXPECT_EQ(ClientIdentifier(QStringLiteral("A"), 5), ClientIdentifier(QStringLiteral("B"), 5));
    EXPECT_EQ(ClientIdentifier(QStringLiteral("A"), 5), anyC);
    EXPECT_NE(ClientIdentifier(QStringLiteral("A"), 5), ClientIdentifier(QStringLiteral("A"), 6));
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
        EXPECT_EQ(ClientIdentifier(QStringLiteral("A"), c.number).hash(), c.hash) << c.number;
        EXPECT_EQ(ClientIdentifier(QStringLiteral("A"), c.number).description(),
                  QString::fromLatin1(c.description));
    }
    EXPECT_EQ(anyC.hash(), qHash(QStringLiteral("C")));
    EXPECT_EQ(anyC.description(), QStringLiteral("C(#-1)"));
}

TEST(ClientIdentifier, ArchiveKeepsNameAndNumberAndDecodingChecksKindsAndPermission)
{
    for (const quint32 number :
         {quint32(5), quint32(0x80000000), ClientIdentifier::kWildcardNumber}) {
        const QByteArray data = KeyedArchive::archivedData(client(QStringLiteral("bob"), number));
        const auto back =
            KeyedArchive::unarchivedObject(data, {kClientClass}).value<ClientIdentifier>();
        EXPECT_EQ(back.name(), QStringLiteral("bob"));
        EXPECT_EQ(back.serialNumber(), number);
        EXPECT_THROW(KeyedArchive::unarchivedObject(data, {KeyedArchive::kString}), KSException);
    }
    // An unsigned number is read as its bits.
    const QByteArray unsignedNumber = archivedObject(
        kClientClass, {{QStringLiteral("name"), QStringLiteral("x")},
                       {QStringLiteral("number"), qint64(ClientIdentifier::kWildcardNumber)}});
    EXPECT_TRUE(KeyedArchive::unarchivedObject(unsignedNumber, {kClientClass})
                    .value<ClientIdentifier>()
                    .isWildcard());
    const QByteArray numberName =
        archivedObject(kClientClass, {{QStringLiteral("name"), 12}, {QStringLiteral("number"), 5}});
    EXPECT_THROW(KeyedArchive::unarchivedObject(numberName, {kClientClass}), KSException);
}

TEST(FullyQualifiedIdentifier, ContainsDescendantsOfAnyDepthOnly)
{
    const FQIdentifier three = home();
    const FQIdentifier child = below(three, {QStringLiteral("a")});
    const FQIdentifier deeper = below(child, {42, QStringLiteral("z")});
    EXPECT_TRUE(three->contains(child));
    EXPECT_TRUE(three->contains(deeper));
    EXPECT_FALSE(three->contains(home()));
    EXPECT_FALSE(three->contains(three->parent()));
    EXPECT_FALSE(three->contains(nullptr));
    EXPECT_FALSE(child->contains(three));
    EXPECT_TRUE(three->contains(below(home(), {QStringLiteral("a")})));
    EXPECT_FALSE(
        three->contains(below(home()->parent(), {QStringLiteral("var"), QStringLiteral("a")})))
        << "a cousin";
}

TEST(FullyQualifiedIdentifier, ClosestAncestorIsTheDeepestSharedLevel)
{
    const FQIdentifier base = home();
    const FQIdentifier a = below(base, {QStringLiteral("a"), QStringLiteral("x")});
    const FQIdentifier b = below(home(), {QStringLiteral("b")});
    EXPECT_TRUE(a->closestAncestorWith(b)->isEqual(base));
    EXPECT_TRUE(b->closestAncestorWith(a)->isEqual(base));
    EXPECT_TRUE(a->closestAncestorWith(base)->isEqual(base));
    EXPECT_TRUE(a->closestAncestorWith(a)->isEqual(a));
    EXPECT_FALSE(a->closestAncestorWith(nullptr));
    const FQIdentifier stranger =
        chain({client(QStringLiteral("bob"), 9), volume(QStringLiteral("1234-ABCD"))});
    EXPECT_FALSE(a->closestAncestorWith(stranger));
    const FQIdentifier otherVolume =
        home(client(QStringLiteral("alice"), 5), QStringLiteral("two"));
    EXPECT_TRUE(
        a->closestAncestorWith(otherVolume)->isEqual(base->fullyQualifiedIdentifierOfLength(1)));
}

TEST(FullyQualifiedIdentifier, EqualityWalksEveryLevelUpToTheRoot)
{
    EXPECT_TRUE(home()->isEqual(home()));
    EXPECT_FALSE(home()->isEqual(home(client(QStringLiteral("alice"), 6))));
    EXPECT_FALSE(home()->isEqual(home()->parent()));
    EXPECT_FALSE(home()->isEqual(nullptr));
    EXPECT_TRUE(
        home()->isEqual(home(client(QStringLiteral("other"), ClientIdentifier::kWildcardNumber))));
}

TEST(FullyQualifiedIdentifier, HashMixesOnlyTheLeafAndItsParentNode)
{
    const FQIdentifier first =
        chain({client(QStringLiteral("alice"), 5), volume(QStringLiteral("one")),
               QStringLiteral("a"), QStringLiteral("shared"), QStringLiteral("leaf")});
    const FQIdentifier second =
        chain({client(QStringLiteral("bob"), 6), volume(QStringLiteral("two")), QStringLiteral("b"),
               QStringLiteral("shared"), QStringLiteral("leaf")});
    EXPECT_FALSE(first->isEqual(second));
    EXPECT_EQ(first->hash(), second->hash());
    EXPECT_EQ(first->hash(), qHash(QStringLiteral("leaf")) ^ qHash(QStringLiteral("shared")));
    EXPECT_NE(first->hash(), first->parent()->hash());
    const FQIdentifier byInteger = below(home(), {7});
    const FQIdentifier byDouble = below(home(), {7.0});
    EXPECT_TRUE(byInteger->isEqual(byDouble));
    EXPECT_EQ(byInteger->hash(), byDouble->hash());
}

TEST(FullyQualifiedIdentifier, CompositePathAndDescription)
{
    const FQIdentifier notes =
        below(home(), {QStringLiteral("alice"), QStringLiteral("notes.txt")});
    EXPECT_EQ(notes->compositePath(), QStringLiteral("alice:1234-ABCD/home/alice/notes.txt"));
    EXPECT_EQ(notes->description(), QStringLiteral("alice(#5):1234-ABCD:home:alice:notes.txt"));
    EXPECT_EQ(home()->fullyQualifiedIdentifierOfLength(1)->compositePath(),
              QStringLiteral("alice:"));
    EXPECT_EQ(home()->fullyQualifiedIdentifierOfLength(1)->description(),
              QStringLiteral("alice(#5)"));
    const FQIdentifier numbered =
        chain({client(QStringLiteral("bob"), 2),
               QVariant::fromValue(VolumeIdentifier(QStringLiteral("00ab00cd00ef0012"),
                                                    VolumeIdentifier::Kind::FileSystemId)),
               42, QStringLiteral("x")});
    EXPECT_EQ(numbered->compositePath(), QStringLiteral("bob:fsid:00ab00cd00ef0012/42/x"));
}

TEST(FullyQualifiedIdentifier, ArchiveRoundTripKeepsEveryLevelAndRefusesWhatIsNotAllowed)
{
    const FQIdentifier original = below(home(), {42, QStringLiteral("leaf")});
    const QByteArray data = KeyedArchive::archivedData(QVariant::fromValue(original));
    const auto back =
        KeyedArchive::unarchivedObject(data, {kIdentifierClass}).value<FQIdentifier>();
    ASSERT_TRUE(back);
    EXPECT_TRUE(back->isEqual(original));
    EXPECT_EQ(back->description(), original->description());
    EXPECT_EQ(back->identifiers().at(1).value<VolumeIdentifier>().mountPath(),
              QStringLiteral("/mnt/1234-ABCD"));
    EXPECT_THROW(KeyedArchive::unarchivedObject(data, {kClientClass}), KSException);

    for (const QByteArray& refused :
         {KeyedArchive::archivedData(QVariant::fromValue(below(home(), {QByteArray("raw")}))),
          archivedObject(kIdentifierClass, {}),
          archivedObject(kIdentifierClass,
                         {{QStringLiteral("ident"), QStringLiteral("x")},
                          {QStringLiteral("parent"), QStringLiteral("not an identifier")}})}) {
        EXPECT_THROW(KeyedArchive::unarchivedObject(refused, {kIdentifierClass}), KSException);
    }
}

TEST(FullyQualifiedIdentifier, APathIsClientVolumeAndComponentsBelowTheMountWithLinksResolved)
{
    QTemporaryDir folder;
    ASSERT_TRUE(QDir(folder.path()).mkpath(QStringLiteral("sub")));
    QFile file(folder.filePath(QStringLiteral("sub/file.txt")));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    const QString filePath = QFileInfo(file).canonicalFilePath();
    const ClientIdentifier alice(QStringLiteral("alice"), 5);
    const FQIdentifier identifier =
        FullyQualifiedIdentifier::fullyQualifiedIdentifierWithPath(filePath, alice);
    ASSERT_TRUE(identifier);
    const QVariantList levels = identifier->identifiers();
    ASSERT_GE(levels.size(), 5);
    EXPECT_EQ(levels.at(0).value<ClientIdentifier>().name(), QStringLiteral("alice"));
    const auto disk = levels.at(1).value<VolumeIdentifier>();
    EXPECT_EQ(disk, VolumeIdentifier::volumeIdentifierForPath(QDir::tempPath()));
    QString joined = disk.mountPath() == QStringLiteral("/") ? QString() : disk.mountPath();
    for (qsizetype i = 2; i < levels.size(); ++i) {
        joined += QLatin1Char('/') + levels.at(i).toString();
    }
    EXPECT_EQ(joined, filePath);
    EXPECT_EQ(identifier->fileSystemPath(), filePath);
    ASSERT_TRUE(identifier->fileInfo().has_value());
    EXPECT_TRUE(identifier->fileInfo()->isFile());

    const QString link = folder.filePath(QStringLiteral("link"));
    ASSERT_TRUE(QFile::link(folder.filePath(QStringLiteral("sub")), link));
    const FQIdentifier viaLink = FullyQualifiedIdentifier::fullyQualifiedIdentifierWithPath(
        link + QStringLiteral("/file.txt"), alice);
    ASSERT_TRUE(viaLink);
    EXPECT_TRUE(viaLink->isEqual(identifier));
    const FQIdentifier gone = FullyQualifiedIdentifier::fullyQualifiedIdentifierWithPath(
        QFileInfo(filePath).path() + QStringLiteral("/gone.txt"), alice);
    ASSERT_TRUE(gone);
    EXPECT_EQ(gone->nameOfLeafIdentifier(), QStringLiteral("gone.txt"));
    EXPECT_TRUE(gone->parent()->isEqual(identifier->parent()));
    EXPECT_FALSE(gone->fileInfo()->exists());
}

TEST(FullyQualifiedIdentifier, OfflineVolumeHasNoFileInfo)
{
    const FQIdentifier identifier =
        chain({client(QStringLiteral("alice"), 5),
               QVariant::fromValue(VolumeIdentifier(QStringLiteral("no-such-volume-0000"),
                                                    VolumeIdentifier::Kind::Uuid,
                                                    QStringLiteral("/mnt/never-mounted"))),
               QStringLiteral("home"), QStringLiteral("x")});
    EXPECT_EQ(identifier->fullyQualifiedIdentifierOfVolume()->fileSystemRepresentation(),
              QString());
    EXPECT_EQ(identifier->fileSystemPath(), QStringLiteral("home/x"));
    EXPECT_FALSE(identifier->fileInfo().has_value());
}
