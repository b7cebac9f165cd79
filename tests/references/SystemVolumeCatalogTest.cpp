#include "references/linux/SystemVolumeCatalog.h"

#include "FakeVolumeCatalog.h"
#include "references/BookmarkPath.h"
#include "references/ResourceValues.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>

using namespace Qt::StringLiterals;

namespace {
VolumeCatalog::Mount made(int id, const QString& point)
{
    VolumeCatalog::Mount mount;
    mount.id = id;
    mount.mountPoint = point;
    return mount;
}

// Whether the program ran to a zero status; what it printed says why not.
::testing::AssertionResult run(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    if (process.waitForFinished(120000) && process.exitStatus() == QProcess::NormalExit &&
        process.exitCode() == 0) {
        return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure() << program.toStdString() << ": "
                                         << QString::fromLocal8Bit(process.readAll()).toStdString();
}
} // namespace

TEST(SystemVolumeCatalogTest, TheMountHoldingAPathIsTheKernelsElseTheDeepest)
{
    FakeVolumeCatalog catalog;
    catalog.setMounts(
        {made(21, u"/"_s), made(40, u"/media/disk"_s), made(41, u"/media/disk/bind"_s)}, {},
        {{u"/"_s, u"Root Label"_s}});
    EXPECT_EQ(catalog.mountHolding(u"/media/disk/a"_s, 40)->mountPoint, u"/media/disk"_s);
    EXPECT_EQ(catalog.mountHolding(u"/media/disk/bind/a"_s, 41)->mountPoint, u"/media/disk/bind"_s);
    // A file the kernel puts on another mount than its path suggests (a mount at a path that
    // was later covered) is on the kernel's.
    EXPECT_EQ(catalog.mountHolding(u"/media/disk/bind/a"_s, 40)->mountPoint, u"/media/disk"_s);
    EXPECT_EQ(catalog.mountHolding(u"/media/diskette"_s, std::nullopt)->mountPoint, u"/"_s);
    EXPECT_EQ(catalog.mountHolding(u"/media/disk/x"_s, 99)->mountPoint, u"/media/disk"_s);
    EXPECT_EQ(catalog.volumeName(*catalog.mountHolding(u"/home"_s, 21)), u"Root Label"_s);
    EXPECT_EQ(catalog.volumeName(made(40, u"/media/disk"_s)), u"disk"_s);
}

// A btrfs mount lists an anonymous device number: its label and UUID links are found through
// the device node named as the mount's source.
TEST(SystemVolumeCatalogTest, LinksAreFoundByDeviceNumberOrBySourceNode)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    QDir(dir.path()).mkpath(u"label"_s);
    QDir(dir.path()).mkpath(u"uuid"_s);
    ASSERT_TRUE(QFile::link(u"/dev/loop0"_s, dir.filePath(u"label/Backup\\x20Disk"_s)));
    ASSERT_TRUE(QFile::link(u"/dev/loop0"_s, dir.filePath(u"uuid/6d1f0c52-disk"_s)));
    QFile mountInfo(dir.filePath(u"mountinfo"_s));
    ASSERT_TRUE(mountInfo.open(QIODevice::WriteOnly));
    mountInfo.write("22 1 8:1 / / rw - ext4 /dev/sda1 rw\n"
                    "43 22 0:39 / /media/u/My\\040Pool rw - btrfs /dev/loop0 rw,subvol=/\n"
                    "44 22 0:40 / /tmp/scratch rw - tmpfs tmpfs rw\n");
    mountInfo.close();
    const SystemVolumeCatalog catalog(mountInfo.fileName(), dir.filePath(u"uuid"_s),
                                      dir.filePath(u"label"_s));

    const QList<VolumeCatalog::Mount> mounts = catalog.mounts();
    ASSERT_EQ(mounts.size(), 3);
    EXPECT_EQ(mounts.at(1).mountPoint, u"/media/u/My Pool"_s);
    EXPECT_EQ(mounts.at(1).id, 43);
    EXPECT_EQ(catalog.labelOf(mounts.at(1)), u"Backup Disk"_s);
    EXPECT_EQ(catalog.uuidOf(mounts.at(1)), u"6d1f0c52-disk"_s);
    EXPECT_EQ(catalog.mountsOfVolume(u"6d1f0c52-disk"_s).value(0).mountPoint,
              u"/media/u/My Pool"_s);
    EXPECT_TRUE(catalog.labelOf(mounts.at(0)).isEmpty());
    EXPECT_TRUE(catalog.labelOf(mounts.at(2)).isEmpty());
}

// Real file systems, mounted in a mount namespace of this test process so that nothing is left
// mounted when it ends: a bookmark made on each finds its folder again after a rename, and
// after a move into a btrfs subvolume (whose files stat() puts on yet another device).
TEST(SystemVolumeCatalogTest, BookmarksResolveOnBtrfsExt4TmpfsAndOverlay)
{
    if (::unshare(CLONE_NEWNS) != 0 ||
        ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        GTEST_SKIP() << "no mount namespace for this test: " << std::strerror(errno);
    }
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const QString root = QFileInfo(dir.path()).canonicalFilePath();
    const auto path = [&root](const QString& relative) {
        return root + u'/' + relative;
    };
    for (const QString& folder :
         {u"btrfs"_s, u"ext4"_s, u"tmpfs"_s, u"overlay"_s, u"lower"_s, u"upper"_s, u"work"_s}) {
        ASSERT_TRUE(QDir(root).mkpath(folder));
    }
    const auto image = [&](const QString& name, const QString& size, const QString& mkfs,
                           const QStringList& options) {
        const QString file = path(name + u".img"_s);
        ASSERT_TRUE(run(u"truncate"_s, {u"-s"_s, size, file}));
        ASSERT_TRUE(run(mkfs, options + QStringList{file}));
        if (const auto mounted = run(u"mount"_s, {u"-o"_s, u"loop"_s, file, path(name)});
            !mounted) {
            GTEST_SKIP() << "cannot mount a loop image here: " << mounted.message();
        }
    };
    image(u"btrfs"_s, u"128M"_s, u"mkfs.btrfs"_s, {u"-q"_s, u"-f"_s});
    if (IsSkipped() || HasFatalFailure()) {
        return;
    }
    image(u"ext4"_s, u"16M"_s, u"mkfs.ext4"_s, {u"-q"_s, u"-F"_s});
    ASSERT_TRUE(run(u"mount"_s, {u"-t"_s, u"tmpfs"_s, u"tmpfs"_s, path(u"tmpfs"_s)}));
    ASSERT_TRUE(run(u"mount"_s, {u"-t"_s, u"overlay"_s, u"overlay"_s, u"-o"_s,
                                 u"lowerdir=%1,upperdir=%2,workdir=%3"_s.arg(
                                     path(u"lower"_s), path(u"upper"_s), path(u"work"_s)),
                                 path(u"overlay"_s)}));
    ASSERT_TRUE(run(u"btrfs"_s, {u"subvolume"_s, u"create"_s, path(u"btrfs/Nested"_s)}));

    const SystemVolumeCatalog catalog;
    for (const QString& volume : {u"btrfs"_s, u"ext4"_s, u"tmpfs"_s, u"overlay"_s}) {
        SCOPED_TRACE(volume.toStdString());
        const QString archive = path(volume + u"/Home.stromi"_s);
        ASSERT_TRUE(QDir().mkpath(archive));
        const auto mount = catalog.mountHolding(archive, MountTable::mountIdOf(archive));
        ASSERT_TRUE(mount);
        EXPECT_EQ(mount->mountPoint, path(volume));
        EXPECT_EQ(mount->fileSystemType, volume);
        const QString uuid = catalog.uuidOf(*mount);
        EXPECT_FALSE(uuid.isEmpty());
        EXPECT_EQ(catalog.mountsOfVolume(uuid).value(0).mountPoint, path(volume));

        const auto bookmark = BookmarkPath::fromUrl(QUrl::fromLocalFile(archive));
        ASSERT_TRUE(bookmark);
        EXPECT_EQ(bookmark->recordedValue(ResourceValues::kVolumeUUIDStringKey).toString(), uuid);
        ASSERT_TRUE(QDir().rename(archive, path(volume + u"/Work.stromi"_s)));
        EXPECT_EQ(bookmark->resolveQuietly(),
                  QUrl::fromLocalFile(path(volume + u"/Work.stromi"_s)));
    }
    // Inside a subvolume, moved deeper: the walk goes into it from the mount point.
    ASSERT_TRUE(QDir().mkpath(path(u"btrfs/Nested/Deep.stromi"_s)));
    const auto nested =
        BookmarkPath::fromUrl(QUrl::fromLocalFile(path(u"btrfs/Nested/Deep.stromi"_s)));
    ASSERT_TRUE(nested);
    ASSERT_TRUE(QDir().mkpath(path(u"btrfs/Nested/a/b"_s)));
    ASSERT_TRUE(QDir().rename(path(u"btrfs/Nested/Deep.stromi"_s),
                              path(u"btrfs/Nested/a/b/Moved.stromi"_s)));
    EXPECT_EQ(nested->resolveQuietly(),
              QUrl::fromLocalFile(path(u"btrfs/Nested/a/b/Moved.stromi"_s)));
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
