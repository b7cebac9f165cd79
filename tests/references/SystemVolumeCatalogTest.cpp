#include "references/linux/SystemVolumeCatalog.h"

#include "FakeVolumeCatalog.h"
#include "references/BookmarkPath.h"

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

using namespace Qt::StringLiterals;

TEST(SystemVolumeCatalogTest, ReadsMountInfoLines)
{
    struct Case
    {
        const char* line;
        bool parsed;
        const char* mountPoint;
        const char* type;
        const char* source;
    };
    const Case cases[] = {
        {"27 1 254:0 / / rw,relatime - ext4 /dev/vda rw", true, "/", "ext4", "/dev/vda"},
        {"90 27 8:17 / /media/me/USB\\040Disk rw shared:5 master:1 - vfat /dev/sdb1 rw", true,
         "/media/me/USB Disk", "vfat", "/dev/sdb1"},
        {"27 1 254:0 / / rw,relatime ext4 /dev/vda rw", false, "", "", ""}, // no separator
        {"27 1 nodev / / rw - ext4 /dev/vda rw", false, "", "", ""},
        {"", false, "", "", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.line);
        const auto mount = SystemVolumeCatalog::parseMountInfoLine(QByteArray(c.line));
        ASSERT_EQ(mount.has_value(), c.parsed);
        if (mount) {
            EXPECT_EQ(mount->mountPoint, QString::fromLatin1(c.mountPoint));
            EXPECT_EQ(mount->fileSystemType, QString::fromLatin1(c.type));
            EXPECT_EQ(mount->source, QString::fromLatin1(c.source));
        }
    }
    EXPECT_EQ(
        SystemVolumeCatalog::parseMountInfoLine("90 27 8:17 / /m rw - vfat /dev/sdb1 rw")->device,
        quint64(makedev(8, 17)));
}

TEST(SystemVolumeCatalogTest, TheMountHoldingAPathIsTheDeepestOfItsDevice)
{
    FakeVolumeCatalog catalog;
    catalog.setMounts(
        {{u"/"_s, 1, {}, {}}, {u"/media/disk"_s, 2, {}, {}}, {u"/media/disk/bind"_s, 1, {}, {}}},
        {}, {{u"/"_s, u"Root Label"_s}});
    EXPECT_EQ(catalog.mountHolding(u"/media/disk/a"_s, 2)->mountPoint, u"/media/disk"_s);
    EXPECT_EQ(catalog.mountHolding(u"/media/disk/bind/a"_s, 1)->mountPoint, u"/media/disk/bind"_s);
    EXPECT_EQ(catalog.mountHolding(u"/media/diskette"_s, 1)->mountPoint, u"/"_s);
    EXPECT_EQ(catalog.volumeName(*catalog.mountHolding(u"/home"_s, 1)), u"Root Label"_s);
    EXPECT_EQ(catalog.volumeName({u"/media/disk"_s, 2, {}, {}}), u"disk"_s);
}

// This machine's own mount table and volume identity, without any fake.
TEST(SystemVolumeCatalogTest, ABookmarkOnThisMachineFindsItsRenamedFolder)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const QString root = QFileInfo(dir.path()).canonicalFilePath();
    ASSERT_TRUE(QDir(root).mkpath(u"Home.stromi"_s));
    const auto bookmark = BookmarkPath::fromUrl(QUrl::fromLocalFile(root + u"/Home.stromi"_s));
    ASSERT_TRUE(bookmark);
    ASSERT_TRUE(QDir(root).rename(u"Home.stromi"_s, u"Work.stromi"_s));
    EXPECT_EQ(bookmark->resolveQuietly(), QUrl::fromLocalFile(root + u"/Work.stromi"_s));
}
