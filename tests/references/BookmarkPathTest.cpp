#include "references/BookmarkPath.h"

#include "ReferenceFixture.h"
#include "exception/Error.h"
#include "foundation/KeyedArchive.h"
#include "references/ResourceValues.h"

#include <QCborArray>
#include <QCborMap>
#include <QCborValue>

namespace {
QByteArray objectArchive(const QString& className, const QCborMap& fields)
{
    return QCborValue(QCborTag(27), QCborArray{className, fields}).toCbor();
}
} // namespace

using BookmarkPathTest = ReferenceFixture;

TEST_F(BookmarkPathTest, RecordsTheArchiveAndItsVolumeAndSurvivesItsData)
{
    const QString archive = makeFolder(QStringLiteral("Disk/Backups/Home.stromi"));
    const auto made = BookmarkPath::fromUrl(QUrl::fromLocalFile(archive));
    ASSERT_TRUE(made);
    EXPECT_TRUE(made->isResolved());

    const auto opened = BookmarkPath::fromBookmarkData(made->bookmarkData());
    ASSERT_TRUE(opened);
    EXPECT_FALSE(opened->isResolved());
    EXPECT_FALSE(opened->isRefreshed());
    EXPECT_TRUE(*opened == *made);
    EXPECT_EQ(opened->url(), QUrl::fromLocalFile(archive));
    EXPECT_EQ(opened->name(), QStringLiteral("Home.stromi"));
    EXPECT_EQ(opened->displayName(), QStringLiteral("Home"));
    EXPECT_EQ(opened->recordedValue(ResourceValues::kVolumeNameKey), QStringLiteral("Disk"));
    EXPECT_EQ(opened->recordedValue(ResourceValues::kVolumeUUIDStringKey), QStringLiteral("VOL-1"));
    EXPECT_FALSE(opened->recordedValue(QStringLiteral("NoSuchKey")).isValid());

    EXPECT_FALSE(*BookmarkPath::fromUrl(QUrl::fromLocalFile(
                     makeFolder(QStringLiteral("Disk/Backups/Copy.stromi")))) == *made);
    // A folder made where a deleted one was may get its inode back; its birth time tells it
    // apart where the file system keeps one.
    QDir(archive).removeRecursively();
    makeFolder(QStringLiteral("Disk/Backups/Home.stromi"));
    if (VolumeSearch::birthTimeOf(archive) != 0) {
        EXPECT_FALSE(*BookmarkPath::fromUrl(QUrl::fromLocalFile(archive)) == *made);
        EXPECT_EQ(opened->resolveQuietly(), QUrl());
    }
}

TEST_F(BookmarkPathTest, ResolvingFindsTheArchiveWhereverItWentOnItsVolume)
{
    struct Case
    {
        const char* movedTo; // empty: deleted
        VolumeSearch::Limits limits;
        bool found;
    };
    const Case cases[] = {
        {"Disk/Backups/Home.stromi", {}, true},                    // left where it was
        {"Disk/Backups/Renamed.stromi", {}, true},                 // renamed in place
        {"Disk/Old/Deeper/Still/Home.stromi", {}, true},           // moved away
        {"Disk/Old/Deeper/Still/Home.stromi", {3, 100000}, false}, // beyond the depth walked
        {"Disk/Old/Deeper/Still/Home.stromi", {8, 3}, false},      // beyond the entries read
        {"", {}, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.movedTo);
        QDir(at(QStringLiteral("Disk"))).removeRecursively();
        const QString archive = makeFolder(QStringLiteral("Disk/Backups/Home.stromi"));
        makeFolder(QStringLiteral("Disk/Other/Folder"));
        const auto bookmark = BookmarkPath::fromBookmarkData(
            BookmarkPath::fromUrl(QUrl::fromLocalFile(archive))->bookmarkData());
        const QString movedTo = QString::fromLatin1(c.movedTo);
        if (movedTo.isEmpty()) {
            QDir(archive).removeRecursively();
        } else if (movedTo != QStringLiteral("Disk/Backups/Home.stromi")) {
            ASSERT_TRUE(move(QStringLiteral("Disk/Backups/Home.stromi"), movedTo));
        }
        VolumeSearch::setDefaultLimits(c.limits);

        const QUrl resolved = bookmark->resolveQuietly();
        EXPECT_EQ(resolved, c.found ? QUrl::fromLocalFile(at(movedTo)) : QUrl());
        EXPECT_EQ(bookmark->isResolved(), c.found);
        EXPECT_EQ(bookmark->isRefreshed(), c.found);
        // Refreshed: the bookmark now records where the archive is; else where it was.
        EXPECT_EQ(bookmark->path(), c.found ? at(movedTo) : archive);
    }
}

TEST_F(BookmarkPathTest, ResolvingFindsTheVolumeMountedElsewhereByItsUuidOnly)
{
    const auto bookmark = BookmarkPath::fromUrl(
        QUrl::fromLocalFile(makeFolder(QStringLiteral("Disk/Backups/Home.stromi"))));
    ASSERT_TRUE(move(QStringLiteral("Disk"), QStringLiteral("media/user/USB Disk")));

    // Another volume now mounted where the recorded one was is not searched.
    mount(QStringLiteral("Disk"), QStringLiteral("VOL-2"));
    EXPECT_EQ(bookmark->resolveQuietly(), QUrl());

    mount(QStringLiteral("media/user/USB Disk"), QStringLiteral("VOL-1"));
    const QString now = at(QStringLiteral("media/user/USB Disk/Backups/Home.stromi"));
    EXPECT_EQ(bookmark->resolveQuietly(), QUrl::fromLocalFile(now));
    EXPECT_EQ(bookmark->recordedValue(ResourceValues::kVolumeNameKey), QStringLiteral("USB Disk"));
}

TEST_F(BookmarkPathTest, BytesThatAreNoBookmarkOpenNothing)
{
    const QByteArray cases[] = {
        {},
        QByteArray("\xff\x00\x13garbage", 10),
        QCborValue(QStringLiteral("just text")).toCbor(),
        objectArchive(QStringLiteral("Bookmark"), {{QStringLiteral("resources"), 7}}),
        objectArchive(QStringLiteral("Bookmark"),
                      {{QStringLiteral("resources"),
                        QCborMap{{QStringLiteral("Path"), QStringLiteral("relative/path")}}}}),
        objectArchive(QStringLiteral("NotABookmark"), {}),
    };
    for (const QByteArray& data : cases) {
        EXPECT_FALSE(BookmarkPath::fromBookmarkData(data)) << data.toHex().constData();
    }
}

TEST_F(BookmarkPathTest, NoBookmarkIsMadeOfWhatIsNotThereAndTheErrorSaysWhy)
{
    Error missing;
    EXPECT_FALSE(
        BookmarkPath::fromUrl(QUrl::fromLocalFile(at(QStringLiteral("nothing"))), {}, &missing));
    EXPECT_EQ(missing.domain(), Error::kPOSIXDomain);
    EXPECT_EQ(missing.code(), ENOENT);

    Error notAFile;
    EXPECT_FALSE(
        BookmarkPath::fromUrl(QUrl(QStringLiteral("https://example.org/a.stromi")), {}, &notAFile));
    EXPECT_EQ(notAFile.domain(), Error::kURLDomain);
}
