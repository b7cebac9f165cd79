#include "references/BookmarkPath.h"

#include "ReferenceFixture.h"
#include "exception/Error.h"
#include "foundation/KeyedArchive.h"
#include "references/ResourceValues.h"

using namespace Qt::StringLiterals;

using BookmarkPathTest = ReferenceFixture;

TEST_F(BookmarkPathTest, RecordsTheArchiveAndItsVolumeAndSurvivesItsData)
{
    const QString archive = makeFolder(u"Disk/Backups/Home.stromi"_s);
    const auto made = BookmarkPath::fromUrl(QUrl::fromLocalFile(archive));
    ASSERT_TRUE(made);
    EXPECT_TRUE(made->isResolved());

    const auto opened = BookmarkPath::fromBookmarkData(made->bookmarkData());
    ASSERT_TRUE(opened);
    EXPECT_FALSE(opened->isResolved());
    EXPECT_FALSE(opened->isRefreshed());
    EXPECT_TRUE(*opened == *made);
    EXPECT_EQ(opened->url(), QUrl::fromLocalFile(archive));
    EXPECT_EQ(opened->name(), u"Home.stromi"_s);
    EXPECT_EQ(opened->displayName(), u"Home"_s);
    EXPECT_EQ(opened->recordedValue(ResourceValues::kVolumeNameKey), u"Disk"_s);
    EXPECT_EQ(opened->recordedValue(ResourceValues::kVolumeUUIDStringKey), u"VOL-1"_s);
    EXPECT_FALSE(opened->recordedValue(u"NoSuchKey"_s).isValid());

    EXPECT_FALSE(*BookmarkPath::fromUrl(
                     QUrl::fromLocalFile(makeFolder(u"Disk/Backups/Copy.stromi"_s))) == *made);
    // A folder made where a deleted one was may get its inode back; its birth time tells it
    // apart where the file system keeps one.
    QDir(archive).removeRecursively();
    makeFolder(u"Disk/Backups/Home.stromi"_s);
    if (VolumeSearch::birthTimeOf(archive) != 0) {
        EXPECT_FALSE(*BookmarkPath::fromUrl(QUrl::fromLocalFile(archive)) == *made);
        EXPECT_EQ(opened->resolveQuietly(), QUrl());
    }
}

TEST_F(BookmarkPathTest, ResolvingFindsTheArchiveWhereverItWentOnItsVolume)
{
    // Where the archive went, the limits of the walk, whether it is found.
    const std::tuple<QString, VolumeSearch::Limits, bool> cases[] = {
        {u"Disk/Backups/Home.stromi"_s, {}, true},                    // left where it was
        {u"Disk/Backups/Renamed.stromi"_s, {}, true},                 // renamed in place
        {u"Disk/Old/Deeper/Still/Home.stromi"_s, {}, true},           // moved away
        {u"Disk/Old/Deeper/Still/Home.stromi"_s, {3, 100000}, false}, // beyond the depth walked
        {u"Disk/Old/Deeper/Still/Home.stromi"_s, {8, 3}, false},      // beyond the entries read
        {QString(), {}, false},                                       // deleted
    };
    for (const auto& [movedTo, limits, found] : cases) {
        SCOPED_TRACE(movedTo.toStdString());
        QDir(at(u"Disk"_s)).removeRecursively();
        const QString archive = makeFolder(u"Disk/Backups/Home.stromi"_s);
        makeFolder(u"Disk/Other/Folder"_s);
        const auto bookmark = BookmarkPath::fromBookmarkData(
            BookmarkPath::fromUrl(QUrl::fromLocalFile(archive))->bookmarkData());
        if (movedTo.isEmpty()) {
            QDir(archive).removeRecursively();
        } else if (movedTo != u"Disk/Backups/Home.stromi"_s) {
            ASSERT_TRUE(move(u"Disk/Backups/Home.stromi"_s, movedTo));
        }
        VolumeSearch::setDefaultLimits(limits);

        EXPECT_EQ(bookmark->resolveQuietly(), found ? QUrl::fromLocalFile(at(movedTo)) : QUrl());
        EXPECT_EQ(bookmark->isResolved(), found);
        EXPECT_EQ(bookmark->isRefreshed(), found);
        // Refreshed: the bookmark now records where the archive is; else where it was.
        EXPECT_EQ(bookmark->path(), found ? at(movedTo) : archive);
    }
}

TEST_F(BookmarkPathTest, ResolvingFindsTheVolumeMountedElsewhereByItsUuidOnly)
{
    const auto bookmark =
        BookmarkPath::fromUrl(QUrl::fromLocalFile(makeFolder(u"Disk/Backups/Home.stromi"_s)));
    ASSERT_TRUE(move(u"Disk"_s, u"media/user/USB Disk"_s));

    // Another volume now mounted where the recorded one was is not searched.
    mount(u"Disk"_s, u"VOL-2"_s);
    EXPECT_EQ(bookmark->resolveQuietly(), QUrl());

    mount(u"media/user/USB Disk"_s, u"VOL-1"_s);
    const QString now = at(u"media/user/USB Disk/Backups/Home.stromi"_s);
    EXPECT_EQ(bookmark->resolveQuietly(), QUrl::fromLocalFile(now));
    EXPECT_EQ(bookmark->recordedValue(ResourceValues::kVolumeNameKey), u"USB Disk"_s);
}

TEST_F(BookmarkPathTest, BytesThatAreNoBookmarkOpenNothing)
{
    const QByteArray cases[] = {
        {},
        QByteArray("\xff\x00\x13garbage", 10),
        QCborValue(u"just text"_s).toCbor(),
        objectArchive(u"Bookmark"_s, {{u"resources"_s, 7}}),
        objectArchive(u"Bookmark"_s, {{u"resources"_s, QCborMap{{u"Path"_s, u"relative/path"_s}}}}),
        objectArchive(u"NotABookmark"_s, {}),
    };
    for (const QByteArray& data : cases) {
        EXPECT_FALSE(BookmarkPath::fromBookmarkData(data)) << data.toHex().constData();
    }
}

TEST_F(BookmarkPathTest, NoBookmarkIsMadeOfWhatIsNotThereAndTheErrorSaysWhy)
{
    Error missing;
    EXPECT_FALSE(BookmarkPath::fromUrl(QUrl::fromLocalFile(at(u"nothing"_s)), {}, &missing));
    EXPECT_EQ(missing.domain(), u"POSIX"_s);
    EXPECT_EQ(missing.code(), ENOENT);

    Error notAFile;
    EXPECT_FALSE(BookmarkPath::fromUrl(QUrl(u"https://example.org/a.stromi"_s), {}, &notAFile));
    EXPECT_EQ(notAFile.domain(), u"URL"_s);
}
