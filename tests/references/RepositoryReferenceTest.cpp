#include "ReferenceFixture.h"
#include "exception/KSException.h"
#include "foundation/KeyedArchive.h"
#include "references/BookmarkPath.h"
#include "references/FileRepositoryReference.h"
#include "references/RepositoryPathReference.h"
#include "tracking/RecordingLogger.h"

#include <QCborArray>
#include <QCborMap>
#include <QCborValue>
#include <QRegularExpression>

namespace {
QByteArray objectArchive(const QString& className, const QCborMap& fields)
{
    return QCborValue(QCborTag(27), QCborArray{className, fields}).toCbor();
}

// The keyed fields an archive of the reference holds.
QCborMap fieldsOf(const RepositoryReference& reference)
{
    return QCborValue::fromCbor(reference.archivedData()).taggedValue().toArray().at(1).toMap();
}
} // namespace

class RepositoryReferenceTest : public ReferenceFixture
{
protected:
    void SetUp() override
    {
        ReferenceFixture::SetUp();
        m_logger = RecordingLogger::install();
    }
    void TearDown() override
    {
        Logger::releaseDefaultLogger();
        ReferenceFixture::TearDown();
    }
    std::shared_ptr<RecordingLogger> m_logger;
};

TEST_F(RepositoryReferenceTest, OnlyAnExistingFolderWithTheArchiveExtensionIsValid)
{
    makeFolder(QStringLiteral("Disk/Home.stromi"));
    makeFolder(QStringLiteral("Disk/Home.backup"));
    QFile file(at(QStringLiteral("Disk/File.stromi")));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    const struct
    {
        const char* path;
        bool reachable;
        bool valid;
    } cases[] = {{"Disk/Home.stromi", true, true},
                 {"Disk/File.stromi", true, false},
                 {"Disk/Home.backup", true, false},
                 {"Disk/Missing.stromi", false, false}};
    for (const auto& c : cases) {
        const auto reference =
            RepositoryPathReference::referenceToPath(at(QString::fromLatin1(c.path)));
        EXPECT_EQ(reference->isReachable(), c.reachable) << c.path;
        EXPECT_EQ(reference->isValid(), c.valid) << c.path;
    }
}

TEST_F(RepositoryReferenceTest, APathReferenceNamesItsArchiveWhetherOrNotItIsThere)
{
    const QString archive = at(QStringLiteral("Disk/My.Home.stromi"));
    const auto reference = RepositoryPathReference::referenceToPath(archive);
    EXPECT_EQ(reference->name(), QStringLiteral("My.Home.stromi"));
    EXPECT_EQ(reference->displayName(), QStringLiteral("My.Home"));
    EXPECT_EQ(reference->volumeName(), QString());
    makeFolder(QStringLiteral("Disk/My.Home.stromi"));
    EXPECT_EQ(reference->displayName(), QStringLiteral("My.Home"));
    EXPECT_EQ(reference->volumeName(), QStringLiteral("Disk"));
    EXPECT_EQ(reference->volumeUUID(), QStringLiteral("VOL-1"));
    EXPECT_EQ(reference->path(), archive);
    EXPECT_FALSE(RepositoryPathReference::referenceToURL(QUrl()));
    EXPECT_TRUE(
        QRegularExpression(QStringLiteral("^RepositoryPathReference\\.0x[0-9a-f]+\\((.*)\\)$"))
            .match(reference->description())
            .captured(1) == archive);
}

TEST_F(RepositoryReferenceTest, AnAliasToAnUnmountedArchiveDescribesItFromItsBookmark)
{
    const auto made = RepositoryAliasReference::referenceToPath(
        makeFolder(QStringLiteral("Disk/Backups/Home.stromi")));
    ASSERT_TRUE(made);
    EXPECT_EQ(made->volumeName(), QStringLiteral("Disk"));
    const auto reference = std::dynamic_pointer_cast<RepositoryAliasReference>(
        RepositoryReference::fromArchivedData(made->archivedData()));
    ASSERT_TRUE(reference);
    // Unmounted: the volume's folder is gone and no mount holds the volume.
    ASSERT_TRUE(move(QStringLiteral("Disk"), QStringLiteral("Elsewhere")));
    m_catalog->setMounts({}, {});

    EXPECT_FALSE(reference->isReachable());
    EXPECT_EQ(reference->resolveWithUI(false, false), QUrl());
    EXPECT_EQ(reference->name(), QStringLiteral("Home.stromi"));
    EXPECT_EQ(reference->displayName(), QStringLiteral("Home"));
    EXPECT_EQ(reference->volumeName(), QStringLiteral("Disk"));
    EXPECT_EQ(reference->volumeDisplayName(), QStringLiteral("Disk"));
    EXPECT_EQ(reference->volumeUUID(), QStringLiteral("VOL-1"));
}

TEST_F(RepositoryReferenceTest, ReferencesRoundTripAsKeyedArchivesOfTheirClass)
{
    const QString archive = makeFolder(QStringLiteral("Disk/Home.stromi"));
    const std::shared_ptr<RepositoryReference> references[] = {
        RepositoryAliasReference::referenceToPath(archive),
        RepositoryPathReference::referenceToPath(archive)};
    for (const auto& reference : references) {
        const auto decoded = RepositoryReference::fromArchivedData(reference->archivedData());
        ASSERT_TRUE(decoded) << reference->className().toStdString();
        EXPECT_EQ(decoded->className(), reference->className());
        EXPECT_TRUE(*decoded == *reference);
        EXPECT_EQ(decoded->hash(), reference->hash());
        // Peers declare the base class; each kind of reference is admitted under it.
        EXPECT_NO_THROW(KeyedArchive::unarchivedObject(reference->archivedData(),
                                                       {QStringLiteral("RepositoryReference")}));
    }
    const QByteArray bookmark = BookmarkPath::fromUrl(QUrl::fromLocalFile(archive))->bookmarkData();
    EXPECT_THROW(KeyedArchive::unarchivedObject(bookmark, {QStringLiteral("RepositoryReference")}),
                 KSException);
    EXPECT_EQ(fieldsOf(*references[0]).keys(), QList<QCborValue>{QStringLiteral("bookmark")});
    EXPECT_EQ(fieldsOf(*references[1]), QCborMap({{QStringLiteral("path"), archive}}));
    // Different kinds are never equal as paths are; an alias compares URLs with anyone else.
    EXPECT_FALSE(*references[1] == *references[0]);
    EXPECT_TRUE(*references[0] == *references[1]);
}

TEST_F(RepositoryReferenceTest, AnOldAliasDecodesOnlyThroughAConverterAndIsWrittenAsABookmark)
{
    const QByteArray bookmark =
        BookmarkPath::fromUrl(QUrl::fromLocalFile(makeFolder(QStringLiteral("Disk/Home.stromi"))))
            ->bookmarkData();
    const QByteArray legacy = objectArchive(QStringLiteral("RepositoryAliasReference"),
                                            {{QStringLiteral("alias"), QByteArray("old alias")}});
    EXPECT_FALSE(RepositoryReference::fromArchivedData(legacy));

    QList<QByteArray> converted;
    RepositoryAliasReference::setAliasRecordConverter([&](const QByteArray& alias) {
        converted.append(alias);
        return bookmark;
    });
    for (const QByteArray& data :
         {legacy, objectArchive(QStringLiteral("RepositoryAliasReference"), {})}) {
        const auto reference = std::dynamic_pointer_cast<RepositoryAliasReference>(
            RepositoryReference::fromArchivedData(data));
        ASSERT_TRUE(reference);
        EXPECT_TRUE(reference->legacyAlias());
        EXPECT_EQ(fieldsOf(*reference).keys(), QList<QCborValue>{QStringLiteral("bookmark")});
        EXPECT_FALSE(std::dynamic_pointer_cast<RepositoryAliasReference>(
                         RepositoryReference::fromArchivedData(reference->archivedData()))
                         ->legacyAlias());
    }
    EXPECT_EQ(converted, (QList<QByteArray>{QByteArray("old alias"), QByteArray()}));
}

TEST_F(RepositoryReferenceTest, AStoredFileRepositoryReferenceIsAPathReference)
{
    const QString archive = makeFolder(QStringLiteral("Disk/Home.stromi"));
    const auto decoded = RepositoryReference::fromArchivedData(objectArchive(
        QStringLiteral("FileRepositoryReference"), {{QStringLiteral("path"), archive}}));
    ASSERT_TRUE(std::dynamic_pointer_cast<RepositoryPathReference>(decoded));
    EXPECT_TRUE(decoded->isValid());
    EXPECT_EQ(decoded->displayName(), QStringLiteral("Home"));
    EXPECT_TRUE(*decoded == *RepositoryPathReference::referenceToPath(archive));
}

TEST_F(RepositoryReferenceTest, DataThatIsNoReferenceDecodesAsNone)
{
    const QByteArray cases[] = {
        QByteArray("\x9f\xff\xd8\x1b", 4),
        objectArchive(QStringLiteral("RepositoryPathReference"), {{QStringLiteral("path"), 42}}),
        objectArchive(QStringLiteral("RepositoryPathReference"), {}),
        objectArchive(QStringLiteral("RepositoryAliasReference"),
                      {{QStringLiteral("bookmark"), QByteArray("not a bookmark")}}),
        objectArchive(QStringLiteral("RepositoryReference"), {}),
        objectArchive(QStringLiteral("Bookmark"), {}),
        QCborValue(QStringLiteral("a string")).toCbor(),
    };
    for (const QByteArray& data : cases) {
        EXPECT_FALSE(RepositoryReference::fromArchivedData(data)) << data.toHex().constData();
    }
    // Malformed archives and forbidden classes are worth a line; a reference that names
    // nothing is simply none.
    EXPECT_EQ(m_logger->linesContaining(QStringLiteral("is not a repository reference")).size(), 4);
}

TEST_F(RepositoryReferenceTest, SettingTheUrlOfAnAliasReplacesOrResolvesItsBookmark)
{
    const auto reference =
        RepositoryAliasReference::referenceToPath(makeFolder(QStringLiteral("Disk/Home.stromi")));
    const QUrl missing = QUrl::fromLocalFile(at(QStringLiteral("Disk/Missing.stromi")));
    try {
        reference->setUrl(missing);
        ADD_FAILURE() << "no exception";
    } catch (const KSException& exception) {
        EXPECT_EQ(exception.name(), QStringLiteral("Bug"));
        EXPECT_EQ(exception.reason(), QStringLiteral("repository bookmark set to unreachable URL"));
        EXPECT_EQ(exception.details().value(QStringLiteral("URL")), missing.toString());
    }
    const QString other = makeFolder(QStringLiteral("Disk/Other.stromi"));
    reference->setUrl(QUrl::fromLocalFile(other));
    EXPECT_EQ(reference->path(), other);

    ASSERT_TRUE(
        move(QStringLiteral("Disk/Other.stromi"), QStringLiteral("Disk/Moved/Other.stromi")));
    EXPECT_FALSE(reference->isRefreshed());
    reference->setUrl(QUrl());
    EXPECT_EQ(reference->path(), at(QStringLiteral("Disk/Moved/Other.stromi")));
    EXPECT_TRUE(reference->isRefreshed());
}

TEST_F(RepositoryReferenceTest, ABookmarkThatCannotBeMadeIsLoggedAndNone)
{
    const QUrl missing = QUrl::fromLocalFile(at(QStringLiteral("Disk/Missing.stromi")));
    EXPECT_TRUE(RepositoryPathReference::initWithRepositoryURL(missing)->bookmark().isEmpty());
    EXPECT_FALSE(RepositoryAliasReference::initWithRepositoryURL(missing));
    const auto lines = m_logger->linesContaining(QStringLiteral("problem converting URL"));
    ASSERT_EQ(lines.size(), 1);
    EXPECT_EQ(lines[0].classification, 9);
    EXPECT_TRUE(lines[0].message.startsWith(
        QStringLiteral("-[RepositoryReference bookmarkWithOption:includingResourceValues:] problem "
                       "converting URL (%1) into bookmark: Error Domain=POSIX Code=2")
            .arg(missing.toString())));
    EXPECT_FALSE(
        RepositoryPathReference::referenceToPath(makeFolder(QStringLiteral("Disk/A.stromi")))
            ->bookmarkWithOption(1, RepositoryReference::essentialBookmarkPropertyKeys())
            .size());
}
