#include "ReferenceFixture.h"
#include "exception/KSException.h"
#include "foundation/KeyedArchive.h"
#include "references/BookmarkPath.h"
#include "references/FileRepositoryReference.h"
#include "references/RepositoryPathReference.h"

#include <QRegularExpression>

using namespace Qt::StringLiterals;

namespace {
// The keyed fields an archive of the reference holds.
QCborMap fieldsOf(const RepositoryReference& reference)
{
    return QCborValue::fromCbor(reference.archivedData()).taggedValue().toArray().at(1).toMap();
}
} // namespace

using RepositoryReferenceTest = ReferenceFixture;

TEST_F(RepositoryReferenceTest, APathReferenceIsValidOnlyForAnArchiveFolderAndNamesItAnyway)
{
    makeFolder(u"Disk/Home.stromi"_s);
    makeFolder(u"Disk/Home.backup"_s);
    QFile file(at(u"Disk/File.stromi"_s));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    for (const auto& [path, reachable, valid] : {std::tuple{u"Disk/Home.stromi"_s, true, true},
                                                 {u"Disk/File.stromi"_s, true, false},
                                                 {u"Disk/Home.backup"_s, true, false},
                                                 {u"Disk/Missing.stromi"_s, false, false}}) {
        const auto reference = RepositoryPathReference::referenceToPath(at(path));
        EXPECT_EQ(reference->isReachable(), reachable) << path.toStdString();
        EXPECT_EQ(reference->isValid(), valid) << path.toStdString();
    }

    // Named from its path whether or not it is there; the volume only once it is.
    const QString archive = at(u"Disk/My.Home.stromi"_s);
    const auto reference = RepositoryPathReference::referenceToPath(archive);
    EXPECT_EQ(reference->name(), u"My.Home.stromi"_s);
    EXPECT_EQ(reference->displayName(), u"My.Home"_s);
    EXPECT_EQ(reference->volumeName(), QString());
    makeFolder(u"Disk/My.Home.stromi"_s);
    EXPECT_EQ(reference->displayName(), u"My.Home"_s);
    EXPECT_EQ(reference->volumeName(), u"Disk"_s);
    EXPECT_EQ(reference->volumeUUID(), u"VOL-1"_s);
    EXPECT_EQ(reference->path(), archive);
    EXPECT_FALSE(RepositoryPathReference::referenceToURL(QUrl()));
    EXPECT_EQ(QRegularExpression(u"^RepositoryPathReference\\.0x[0-9a-f]+\\((.*)\\)$"_s)
                  .match(reference->description())
                  .captured(1),
              archive);
}

// One archive written four ways is one path; a reference made from an archive names its
// package folder, by path or by bookmark.
TEST_F(RepositoryReferenceTest, PathsAreNormalisedAndAnArchiveGivesItsPackageFolder)
{
    const QString archive = makeFolder(u"Disk/Home.stromi"_s);
    QDir::setCurrent(at(u"Disk"_s));
    for (const QString& written : {archive + u'/', at(u"Disk/./Backups/../Home.stromi"_s),
                                   u"Home.stromi"_s, u"./Home.stromi//"_s}) {
        SCOPED_TRACE(written.toStdString());
        const auto reference = RepositoryPathReference::referenceToPath(written);
        ASSERT_TRUE(reference);
        EXPECT_EQ(reference->path(), archive);
        EXPECT_EQ(reference->name(), u"Home.stromi"_s);
        EXPECT_TRUE(reference->isEqual(*RepositoryPathReference::referenceToPath(archive)));
        const auto decoded = RepositoryReference::fromArchivedData(
            objectArchive(u"RepositoryPathReference"_s, {{u"path"_s, written}}));
        ASSERT_TRUE(decoded);
        EXPECT_EQ(decoded->path(), archive);
    }

    struct Archive : Repository
    {
        QString path;
        QString repositoryPath() const override { return path; }
    } known;
    known.path = archive + u'/';
    EXPECT_EQ(RepositoryPathReference::referenceToRepository(known)->path(), archive);
    const auto alias = RepositoryAliasReference::referenceToRepository(known);
    ASSERT_TRUE(alias);
    EXPECT_EQ(alias->path(), archive);
    known.path = at(u"Disk/Gone.stromi"_s);
    EXPECT_FALSE(RepositoryAliasReference::referenceToRepository(known))
        << "no bookmark of what is not there";
}

TEST_F(RepositoryReferenceTest, AnAliasToAnUnmountedArchiveDescribesItFromItsBookmark)
{
    const auto made =
        RepositoryAliasReference::referenceToPath(makeFolder(u"Disk/Backups/Home.stromi"_s));
    ASSERT_TRUE(made);
    EXPECT_EQ(made->volumeName(), u"Disk"_s);
    const auto reference = std::dynamic_pointer_cast<RepositoryAliasReference>(
        RepositoryReference::fromArchivedData(made->archivedData()));
    ASSERT_TRUE(reference);
    // Unmounted: the volume's folder is gone and no mount holds the volume.
    ASSERT_TRUE(move(u"Disk"_s, u"Elsewhere"_s));
    m_catalog->setMounts({}, {});

    EXPECT_FALSE(reference->isReachable());
    EXPECT_EQ(reference->resolveWithUI(false, false), QUrl());
    EXPECT_EQ(reference->name(), u"Home.stromi"_s);
    EXPECT_EQ(reference->displayName(), u"Home"_s);
    EXPECT_EQ(reference->volumeName(), u"Disk"_s);
    EXPECT_EQ(reference->volumeDisplayName(), u"Disk"_s);
    EXPECT_EQ(reference->volumeUUID(), u"VOL-1"_s);
}

TEST_F(RepositoryReferenceTest, ReferencesRoundTripAsKeyedArchivesAndAFileReferenceIsAPathOne)
{
    const QString archive = makeFolder(u"Disk/Home.stromi"_s);
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
        EXPECT_NO_THROW(
            KeyedArchive::unarchivedObject(reference->archivedData(), {u"RepositoryReference"_s}));
    }
    const QByteArray bookmark = BookmarkPath::fromUrl(QUrl::fromLocalFile(archive))->bookmarkData();
    EXPECT_THROW(KeyedArchive::unarchivedObject(bookmark, {u"RepositoryReference"_s}), KSException);
    EXPECT_EQ(fieldsOf(*references[0]).keys(), QList<QCborValue>{u"bookmark"_s});
    EXPECT_EQ(fieldsOf(*references[1]), QCborMap({{u"path"_s, archive}}));
    // Different kinds are never equal as paths are; an alias compares URLs with anyone else.
    EXPECT_FALSE(*references[1] == *references[0]);
    EXPECT_TRUE(*references[0] == *references[1]);

    // A stored file repository reference is a path reference.
    const auto file = RepositoryReference::fromArchivedData(
        objectArchive(u"FileRepositoryReference"_s, {{u"path"_s, archive}}));
    ASSERT_TRUE(std::dynamic_pointer_cast<RepositoryPathReference>(file));
    EXPECT_TRUE(file->isValid());
    EXPECT_EQ(file->displayName(), u"Home"_s);
    EXPECT_TRUE(*file == *references[1]);
}

TEST_F(RepositoryReferenceTest, AnOldAliasDecodesOnlyThroughAConverterAndIsWrittenAsABookmark)
{
    const QByteArray bookmark =
        BookmarkPath::fromUrl(QUrl::fromLocalFile(makeFolder(u"Disk/Home.stromi"_s)))
            ->bookmarkData();
    const QByteArray legacy =
        objectArchive(u"RepositoryAliasReference"_s, {{u"alias"_s, QByteArray("old alias")}});
    EXPECT_FALSE(RepositoryReference::fromArchivedData(legacy));

    QList<QByteArray> converted;
    RepositoryAliasReference::setAliasRecordConverter([&](const QByteArray& alias) {
        converted.append(alias);
        return bookmark;
    });
    for (const QByteArray& data : {legacy, objectArchive(u"RepositoryAliasReference"_s, {})}) {
        const auto reference = std::dynamic_pointer_cast<RepositoryAliasReference>(
            RepositoryReference::fromArchivedData(data));
        ASSERT_TRUE(reference);
        EXPECT_TRUE(reference->legacyAlias());
        EXPECT_EQ(fieldsOf(*reference).keys(), QList<QCborValue>{u"bookmark"_s});
        EXPECT_FALSE(std::dynamic_pointer_cast<RepositoryAliasReference>(
                         RepositoryReference::fromArchivedData(reference->archivedData()))
                         ->legacyAlias());
    }
    EXPECT_EQ(converted, (QList<QByteArray>{QByteArray("old alias"), QByteArray()}));
}

TEST_F(RepositoryReferenceTest, DataThatIsNoReferenceDecodesAsNone)
{
    const QByteArray cases[] = {
        QByteArray("\x9f\xff\xd8\x1b", 4),
        objectArchive(u"RepositoryPathReference"_s, {{u"path"_s, 42}}),
        objectArchive(u"RepositoryPathReference"_s, {}),
        objectArchive(u"RepositoryAliasReference"_s,
                      {{u"bookmark"_s, QByteArray("not a bookmark")}}),
        objectArchive(u"RepositoryReference"_s, {}),
        objectArchive(u"Bookmark"_s, {}),
        QCborValue(u"a string"_s).toCbor(),
    };
    for (const QByteArray& data : cases) {
        EXPECT_FALSE(RepositoryReference::fromArchivedData(data)) << data.toHex().constData();
    }
    // Malformed archives and forbidden classes are worth a line; a reference that names
    // nothing is simply none.
    EXPECT_EQ(m_logger->linesContaining(u"is not a repository reference"_s).size(), 4);
}

TEST_F(RepositoryReferenceTest, SettingTheUrlOfAnAliasReplacesOrResolvesItsBookmark)
{
    const auto reference =
        RepositoryAliasReference::referenceToPath(makeFolder(u"Disk/Home.stromi"_s));
    const QUrl missing = QUrl::fromLocalFile(at(u"Disk/Missing.stromi"_s));
    try {
        reference->setUrl(missing);
        ADD_FAILURE() << "no exception";
    } catch (const KSException& exception) {
        EXPECT_EQ(exception.name(), u"Bug"_s);
        EXPECT_EQ(exception.reason(), u"repository bookmark set to unreachable URL"_s);
        EXPECT_EQ(exception.details().value(u"URL"_s), missing.toString());
    }
    const QString other = makeFolder(u"Disk/Other.stromi"_s);
    reference->setUrl(QUrl::fromLocalFile(other));
    EXPECT_EQ(reference->path(), other);

    ASSERT_TRUE(move(u"Disk/Other.stromi"_s, u"Disk/Moved/Other.stromi"_s));
    EXPECT_FALSE(reference->isRefreshed());
    reference->setUrl(QUrl());
    EXPECT_EQ(reference->path(), at(u"Disk/Moved/Other.stromi"_s));
    EXPECT_TRUE(reference->isRefreshed());
}

TEST_F(RepositoryReferenceTest, ABookmarkThatCannotBeMadeIsLoggedAndNone)
{
    const QUrl missing = QUrl::fromLocalFile(at(u"Disk/Missing.stromi"_s));
    EXPECT_TRUE(RepositoryPathReference::initWithRepositoryURL(missing)->bookmark().isEmpty());
    EXPECT_FALSE(RepositoryAliasReference::initWithRepositoryURL(missing));
    const auto lines = m_logger->linesContaining(u"problem converting URL"_s);
    ASSERT_EQ(lines.size(), 2);
    for (const auto& [line, operation] :
         {std::pair{lines[0], "-[RepositoryReference bookmarkWithOption:includingResourceValues:]"},
          std::pair{lines[1], "+[RepositoryAliasReference initWithRepositoryURL:]"}}) {
        EXPECT_EQ(line.classification, 9);
        EXPECT_TRUE(line.message.startsWith(
            QStringLiteral(
                "%1 problem converting URL (%2) into bookmark: Error Domain=POSIX Code=2")
                .arg(QLatin1String(operation), missing.toString())))
            << line.message.toStdString();
    }
    EXPECT_FALSE(RepositoryPathReference::referenceToPath(makeFolder(u"Disk/A.stromi"_s))
                     ->bookmarkWithOption(1, RepositoryReference::essentialBookmarkPropertyKeys())
                     .size());
}
