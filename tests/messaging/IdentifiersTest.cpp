#include "errors/KSException.h"
#include "foundation/KeyedArchive.h"
#include "foundation/KeyedDecoder.h"
#include "messaging/ClientIdentifier.h"
#include "messaging/FullyQualifiedIdentifier.h"
#include "messaging/NodeIdentifier.h"
#include "messaging/VolumeIdentifier.h"

#include <QCborArray>
#include <QCborMap>
#include <QCborValue>
#include <QDir>
#include <QFile>
#include <QHash>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <limits>
#include <stdexcept>

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

FQIdentifier home()
{
    return chain({client(QStringLiteral("alice"), 5), volume(QStringLiteral("1234-ABCD")),
                  QStringLiteral("home")});
}

QByteArray archivedObject(const QString& className, const QCborMap& fields)
{
    return QCborValue(QCborTag(27), QCborArray{className, fields}).toCbor();
}

// Stands in for the archive's layer nodes, which live in a library this one does not use.
struct TestLayerNode
{
    qint64 layer = 0;
    bool operator==(const TestLayerNode&) const = default;
};
} // namespace

Q_DECLARE_METATYPE(TestLayerNode)

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

TEST(ClientIdentifier, ArchiveRoundTripKeepsNameAndNumber)
{
    for (const quint32 number :
         {quint32(5), quint32(0x80000000), ClientIdentifier::kWildcardNumber}) {
        const QByteArray data = KeyedArchive::archivedData(client(QStringLiteral("bob"), number));
        const auto back =
            KeyedArchive::unarchivedObject(data, {kClientClass}).value<ClientIdentifier>();
        EXPECT_EQ(back.name(), QStringLiteral("bob"));
        EXPECT_EQ(back.serialNumber(), number);
    }
}

TEST(ClientIdentifier, DecodingChecksKindsAndPermissionAndReadsUnsignedNumbersAsBits)
{
    const QByteArray unsignedNumber = archivedObject(
        kClientClass, {{QStringLiteral("name"), QStringLiteral("x")},
                       {QStringLiteral("number"), qint64(ClientIdentifier::kWildcardNumber)}});
    EXPECT_TRUE(KeyedArchive::unarchivedObject(unsignedNumber, {kClientClass})
                    .value<ClientIdentifier>()
                    .isWildcard());
    const QByteArray numberName =
        archivedObject(kClientClass, {{QStringLiteral("name"), 12}, {QStringLiteral("number"), 5}});
    EXPECT_THROW(KeyedArchive::unarchivedObject(numberName, {kClientClass}), KSException);
    const QByteArray data = KeyedArchive::archivedData(client(QStringLiteral("bob"), 5));
    EXPECT_THROW(KeyedArchive::unarchivedObject(data, {KeyedArchive::kString}), KSException);
}

TEST(NodeIdentifier, NumbersCompareByValueAcrossKinds)
{
    EXPECT_TRUE(NodeIdentifier::isEqual(5, QVariant::fromValue(quint64(5))));
    EXPECT_TRUE(NodeIdentifier::isEqual(qint64(5), 5.0));
    EXPECT_FALSE(NodeIdentifier::isEqual(5, 5.5));
    EXPECT_FALSE(
        NodeIdentifier::isEqual(-1, QVariant::fromValue(std::numeric_limits<quint64>::max())));
    EXPECT_EQ(NodeIdentifier::hash(5), NodeIdentifier::hash(5.0));
    EXPECT_EQ(NodeIdentifier::hash(QVariant::fromValue(quint64(7))),
              NodeIdentifier::hash(qint64(7)));
    EXPECT_FALSE(NodeIdentifier::isEqual(QStringLiteral("5"), 5));
    EXPECT_FALSE(NodeIdentifier::isEqual(5, QStringLiteral("5")));
}

TEST(FullyQualifiedIdentifier, ChainShape)
{
    const FQIdentifier path =
        home()->fullyQualifiedIdentifierByAppendingIdentifier(QStringLiteral("alice"));
    ASSERT_TRUE(path);
    EXPECT_EQ(path->length(), 4U);
    EXPECT_EQ(path->parent()->length(), 3U);
    EXPECT_EQ(path->nameOfLeafIdentifier(), QStringLiteral("alice"));
    EXPECT_EQ(path->identifiers().size(), 4);
    EXPECT_TRUE(NodeIdentifier::isEqual(path->identifiers().at(2), QStringLiteral("home")));
    EXPECT_TRUE(
        path->fullyQualifiedIdentifierOfVolume()->leafIdentifier().canConvert<VolumeIdentifier>());
    EXPECT_EQ(path->fullyQualifiedIdentifierOfLength(1)->length(), 1U);
    EXPECT_EQ(path->fullyQualifiedIdentifierOfLength(4), path);
    EXPECT_FALSE(path->fullyQualifiedIdentifierOfLength(5));
    EXPECT_FALSE(path->fullyQualifiedIdentifierOfLength(0));
    EXPECT_FALSE(path->fullyQualifiedIdentifierOfLength(1)->parent());
}

TEST(FullyQualifiedIdentifier, ArrayWithLengthTakesItsFirstElements)
{
    const QVariantList levels{client(QStringLiteral("a"), 1), volume(QStringLiteral("v")),
                              QStringLiteral("x"), QStringLiteral("y")};
    const FQIdentifier two = FullyQualifiedIdentifier::withIdentifierArray(levels, 2);
    EXPECT_EQ(two->length(), 2U);
    EXPECT_TRUE(two->isEqual(chain(levels)->fullyQualifiedIdentifierOfVolume()));
    EXPECT_FALSE(FullyQualifiedIdentifier::withIdentifierArray({}));
    EXPECT_THROW(FullyQualifiedIdentifier::withIdentifierArray(levels, 5), std::out_of_range);
}

TEST(FullyQualifiedIdentifier, ContainsDescendantsOfAnyDepthOnly)
{
    const FQIdentifier three = home();
    const FQIdentifier child =
        three->fullyQualifiedIdentifierByAppendingIdentifier(QStringLiteral("a"));
    const FQIdentifier grandchild = child->fullyQualifiedIdentifierByAppendingIdentifier(42);
    const FQIdentifier deeper =
        grandchild->fullyQualifiedIdentifierByAppendingIdentifier(QStringLiteral("z"));
    EXPECT_TRUE(three->contains(child));
    EXPECT_TRUE(three->contains(grandchild));
    EXPECT_TRUE(three->contains(deeper));
    EXPECT_FALSE(three->contains(three));
    EXPECT_FALSE(three->contains(home()));
    EXPECT_FALSE(three->contains(three->parent()));
    EXPECT_FALSE(three->contains(three->fullyQualifiedIdentifierOfLength(1)));
    EXPECT_FALSE(three->contains(nullptr));
    EXPECT_FALSE(child->contains(three));
    const QVariant disk = volume(QStringLiteral("1234-ABCD"));
    const QVariant alice = client(QStringLiteral("alice"), 5);
    EXPECT_TRUE(three->contains(chain({alice, disk, QStringLiteral("home"), QStringLiteral("a")})));
    EXPECT_FALSE(three->contains(chain({alice, disk, QStringLiteral("var"), QStringLiteral("a")})))
        << "a cousin";
}

TEST(FullyQualifiedIdentifier, ClosestAncestorIsTheDeepestSharedLevel)
{
    const FQIdentifier base = home();
    const FQIdentifier a = base->fullyQualifiedIdentifierByAppendingIdentifier(QStringLiteral("a"))
                               ->fullyQualifiedIdentifierByAppendingIdentifier(QStringLiteral("x"));
    const FQIdentifier b =
        home()->fullyQualifiedIdentifierByAppendingIdentifier(QStringLiteral("b"));
    EXPECT_TRUE(a->closestAncestorWith(b)->isEqual(base));
    EXPECT_TRUE(b->closestAncestorWith(a)->isEqual(base));
    EXPECT_TRUE(a->closestAncestorWith(base)->isEqual(base));
    EXPECT_TRUE(a->closestAncestorWith(a)->isEqual(a));
    EXPECT_FALSE(a->closestAncestorWith(nullptr));
    const FQIdentifier stranger =
        chain({client(QStringLiteral("bob"), 9), volume(QStringLiteral("1234-ABCD"))});
    EXPECT_FALSE(a->closestAncestorWith(stranger));
    const FQIdentifier otherVolume = chain({client(QStringLiteral("alice"), 5),
                                            volume(QStringLiteral("two")), QStringLiteral("home")});
    EXPECT_TRUE(
        a->closestAncestorWith(otherVolume)->isEqual(base->fullyQualifiedIdentifierOfLength(1)));
}

TEST(FullyQualifiedIdentifier, EqualityWalksEveryLevelUpToTheRoot)
{
    EXPECT_TRUE(home()->isEqual(home()));
    const FQIdentifier otherClient =
        chain({client(QStringLiteral("alice"), 6), volume(QStringLiteral("1234-ABCD")),
               QStringLiteral("home")});
    EXPECT_FALSE(home()->isEqual(otherClient));
    EXPECT_FALSE(home()->isEqual(home()->parent()));
    EXPECT_FALSE(home()->isEqual(nullptr));
    const FQIdentifier anyClient =
        chain({client(QStringLiteral("other"), ClientIdentifier::kWildcardNumber),
               volume(QStringLiteral("1234-ABCD")), QStringLiteral("home")});
    EXPECT_TRUE(home()->isEqual(anyClient));
}

TEST(FullyQualifiedIdentifier, SameParentObjectEndsTheComparison)
{
    // A level that does not equal itself (NaN) shows whether the walk went past the shared
    // parent: below one parent object the children are equal, rebuilt chains are not.
    const QVariant notANumber = std::numeric_limits<double>::quiet_NaN();
    const FQIdentifier parent = home()->fullyQualifiedIdentifierByAppendingIdentifier(notANumber);
    const FQIdentifier first =
        parent->fullyQualifiedIdentifierByAppendingIdentifier(QStringLiteral("f"));
    const FQIdentifier second =
        parent->fullyQualifiedIdentifierByAppendingIdentifier(QStringLiteral("f"));
    EXPECT_TRUE(first->isEqual(second));
    const FQIdentifier rebuilt =
        home()
            ->fullyQualifiedIdentifierByAppendingIdentifier(notANumber)
            ->fullyQualifiedIdentifierByAppendingIdentifier(QStringLiteral("f"));
    EXPECT_FALSE(first->isEqual(rebuilt));
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
    const FQIdentifier byInteger = home()->fullyQualifiedIdentifierByAppendingIdentifier(7);
    const FQIdentifier byDouble = home()->fullyQualifiedIdentifierByAppendingIdentifier(7.0);
    EXPECT_TRUE(byInteger->isEqual(byDouble));
    EXPECT_EQ(byInteger->hash(), byDouble->hash());
}

TEST(FullyQualifiedIdentifier, CompositePathAndDescription)
{
    const FQIdentifier notes =
        home()
            ->fullyQualifiedIdentifierByAppendingIdentifier(QStringLiteral("alice"))
            ->fullyQualifiedIdentifierByAppendingIdentifier(QStringLiteral("notes.txt"));
    EXPECT_EQ(notes->compositePath(), QStringLiteral("alice:1234-ABCD/home/alice/notes.txt"));
    EXPECT_EQ(notes->description(), QStringLiteral("alice(#5):1234-ABCD:home:alice:notes.txt"));
    EXPECT_EQ(home()->fullyQualifiedIdentifierOfVolume()->compositePath(),
              QStringLiteral("alice:1234-ABCD"));
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

TEST(FullyQualifiedIdentifier, ArchiveRoundTripKeepsEveryLevel)
{
    const FQIdentifier original =
        home()
            ->fullyQualifiedIdentifierByAppendingIdentifier(42)
            ->fullyQualifiedIdentifierByAppendingIdentifier(QStringLiteral("leaf"));
    const QByteArray data = KeyedArchive::archivedData(QVariant::fromValue(original));
    const auto back =
        KeyedArchive::unarchivedObject(data, {kIdentifierClass}).value<FQIdentifier>();
    ASSERT_TRUE(back);
    EXPECT_TRUE(back->isEqual(original));
    EXPECT_EQ(back->length(), 5U);
    const QVariantList levels = back->identifiers();
    EXPECT_EQ(levels.at(0).value<ClientIdentifier>().name(), QStringLiteral("alice"));
    const auto disk = levels.at(1).value<VolumeIdentifier>();
    EXPECT_EQ(disk.identifier(), QStringLiteral("1234-ABCD"));
    EXPECT_EQ(disk.mountPath(), QStringLiteral("/mnt/1234-ABCD"));
    EXPECT_EQ(levels.at(3).toLongLong(), 42);
    EXPECT_EQ(back->description(), original->description());
}

TEST(FullyQualifiedIdentifier, ArchiveRefusesWhatIsNotAllowed)
{
    const QByteArray data = KeyedArchive::archivedData(QVariant::fromValue(home()));
    EXPECT_THROW(KeyedArchive::unarchivedObject(data, {kClientClass}), KSException);

    const QByteArray dataNode = KeyedArchive::archivedData(QVariant::fromValue(
        home()->fullyQualifiedIdentifierByAppendingIdentifier(QByteArray("raw"))));
    EXPECT_THROW(KeyedArchive::unarchivedObject(dataNode, {kIdentifierClass}), KSException);

    const QByteArray noNode = archivedObject(kIdentifierClass, {});
    EXPECT_THROW(KeyedArchive::unarchivedObject(noNode, {kIdentifierClass}), KSException);

    const QByteArray wrongParent = archivedObject(
        kIdentifierClass, {{QStringLiteral("ident"), QStringLiteral("x")},
                           {QStringLiteral("parent"), QStringLiteral("not an identifier")}});
    EXPECT_THROW(KeyedArchive::unarchivedObject(wrongParent, {kIdentifierClass}), KSException);
}

TEST(FullyQualifiedIdentifier, LayerNodesAreAcceptedOnceTheProcessKnowsThem)
{
    const QString layerClass = QStringLiteral("LayerNode");
    const QByteArray data = archivedObject(
        kIdentifierClass,
        {{QStringLiteral("ident"),
          QCborValue(QCborTag(27),
                     QCborArray{layerClass, QCborMap{{QStringLiteral("layer"), 3}}})}});
    ASSERT_FALSE(KeyedArchive::isRegisteredClass(layerClass));
    EXPECT_THROW(KeyedArchive::unarchivedObject(data, {kIdentifierClass, layerClass}), KSException);

    KeyedArchive::registerClass<TestLayerNode>(
        layerClass,
        [](const QVariant& object) {
            return QVariantMap{{QStringLiteral("layer"), object.value<TestLayerNode>().layer}};
        },
        [](const KeyedDecoder& coder) {
            return QVariant::fromValue(TestLayerNode{coder.decodeInt64(QStringLiteral("layer"))});
        });
    const auto back =
        KeyedArchive::unarchivedObject(data, {kIdentifierClass}).value<FQIdentifier>();
    ASSERT_TRUE(back);
    EXPECT_EQ(back->leafIdentifier().value<TestLayerNode>().layer, 3);
}

class FullyQualifiedIdentifierOnDisk : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_folder.isValid());
        ASSERT_TRUE(QDir(m_folder.path()).mkpath(QStringLiteral("sub")));
        QFile file(m_folder.filePath(QStringLiteral("sub/file.txt")));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        m_filePath = QFileInfo(file).canonicalFilePath();
    }

    QTemporaryDir m_folder;
    QString m_filePath;
    ClientIdentifier m_client{QStringLiteral("alice"), 5};
};

TEST_F(FullyQualifiedIdentifierOnDisk, LevelsAreClientVolumeAndComponentsBelowTheMount)
{
    const FQIdentifier identifier =
        FullyQualifiedIdentifier::fullyQualifiedIdentifierWithPath(m_filePath, m_client);
    ASSERT_TRUE(identifier);
    const QVariantList levels = identifier->identifiers();
    ASSERT_GE(levels.size(), 5);
    EXPECT_EQ(levels.at(0).value<ClientIdentifier>().name(), QStringLiteral("alice"));
    const auto disk = levels.at(1).value<VolumeIdentifier>();
    EXPECT_EQ(disk, VolumeIdentifier::volumeIdentifierForPath(QDir::tempPath()));

    QStringList below;
    for (qsizetype i = 2; i < levels.size(); ++i) {
        below << levels.at(i).toString();
    }
    const QString mountPoint = disk.mountPath();
    const QString joined = (mountPoint == QStringLiteral("/") ? QString() : mountPoint) +
                           QLatin1Char('/') + below.join(QLatin1Char('/'));
    EXPECT_EQ(joined, m_filePath);
    EXPECT_EQ(below.mid(below.size() - 3),
              (QStringList{QFileInfo(QDir(m_folder.path()).canonicalPath()).fileName(),
                           QStringLiteral("sub"), QStringLiteral("file.txt")}));
    EXPECT_EQ(identifier->fileSystemPath(), m_filePath);
    ASSERT_TRUE(identifier->fileInfo().has_value());
    EXPECT_TRUE(identifier->fileInfo()->isFile());
}

TEST_F(FullyQualifiedIdentifierOnDisk, LinksAreResolvedAndMissingItemsStillNamed)
{
    const QString link = m_folder.filePath(QStringLiteral("link"));
    ASSERT_TRUE(QFile::link(m_folder.filePath(QStringLiteral("sub")), link));
    const FQIdentifier viaLink = FullyQualifiedIdentifier::fullyQualifiedIdentifierWithPath(
        link + QStringLiteral("/file.txt"), m_client);
    const FQIdentifier direct =
        FullyQualifiedIdentifier::fullyQualifiedIdentifierWithPath(m_filePath, m_client);
    ASSERT_TRUE(viaLink);
    EXPECT_TRUE(viaLink->isEqual(direct));

    const FQIdentifier gone = FullyQualifiedIdentifier::fullyQualifiedIdentifierWithPath(
        QFileInfo(m_filePath).path() + QStringLiteral("/gone.txt"), m_client);
    ASSERT_TRUE(gone);
    EXPECT_EQ(gone->nameOfLeafIdentifier(), QStringLiteral("gone.txt"));
    EXPECT_TRUE(gone->parent()->isEqual(direct->parent()));
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
