#include "messaging/VolumeIdentifier.h"

#include "errors/KSException.h"
#include "foundation/KeyedArchive.h"
#include "messaging/MountTable.h"

#include <QCborArray>
#include <QCborMap>
#include <QCborValue>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <optional>
#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace {
const QByteArray kMountInfo = "22 27 0:21 / /proc rw,relatime - proc proc rw\n"
                              "27 1 254:0 / / rw,relatime shared:1 - ext4 /dev/vda rw\n"
                              "40 27 8:1 / /mnt/a rw master:3 shared:4 - ext4 /dev/sda1 rw\n"
                              "41 27 8:2 / /mnt/ab rw - ext4 /dev/sda2 rw\n"
                              "42 27 8:3 /exports/x /mnt/with\\040space rw - xfs /dev/sdb1 rw\n"
                              "not a mount line\n"
                              "43 40 0:50 / /mnt/a rw - tmpfs tmpfs rw\n";

std::optional<dev_t> deviceOf(const QString& path)
{
    struct stat info
    {};
    if (::stat(QFile::encodeName(path).constData(), &info) != 0) {
        return std::nullopt;
    }
    return info.st_dev;
}

// Any block device node this process can see, to check matching by device number.
QString someBlockDevice()
{
    const QStringList names = QDir(QStringLiteral("/dev")).entryList(QDir::System);
    for (const QString& name : names) {
        struct stat info
        {};
        const QByteArray path = QFile::encodeName(QStringLiteral("/dev/") + name);
        if (::stat(path.constData(), &info) == 0 && S_ISBLK(info.st_mode)) {
            return QStringLiteral("/dev/") + name;
        }
    }
    return {};
}

// A by-uuid folder whose links point at plain files standing in for device nodes.
class FakeDisks
{
public:
    FakeDisks()
    {
        QDir(m_root.path()).mkpath(QStringLiteral("dev"));
        QDir(m_root.path()).mkpath(QStringLiteral("by-uuid"));
    }

    QString addDisk(const QString& node, const QString& uuid)
    {
        const QString nodePath = m_root.filePath(QStringLiteral("dev/") + node);
        QFile file(nodePath);
        if (!file.open(QIODevice::WriteOnly) ||
            !QFile::link(QStringLiteral("../dev/") + node,
                         uuidFolder() + QLatin1Char('/') + uuid)) {
            return {};
        }
        return QFileInfo(nodePath).canonicalFilePath();
    }

    QString uuidFolder() const { return m_root.filePath(QStringLiteral("by-uuid")); }

private:
    QTemporaryDir m_root;
};

MountTable::Mount mountOf(const QString& source, const QString& mountPoint)
{
    MountTable::Mount mount;
    mount.source = source;
    mount.mountPoint = mountPoint;
    mount.root = QStringLiteral("/");
    return mount;
}
} // namespace

TEST(MountTable, ParsesFieldsEscapesAndOptionalTags)
{
    const MountTable table = MountTable::fromMountInfo(kMountInfo);
    ASSERT_EQ(table.mounts().size(), 6);
    const MountTable::Mount& sda1 = table.mounts().at(2);
    EXPECT_EQ(sda1.mountPoint, QStringLiteral("/mnt/a"));
    EXPECT_EQ(sda1.source, QStringLiteral("/dev/sda1"));
    EXPECT_EQ(sda1.fileSystemType, QStringLiteral("ext4"));
    EXPECT_EQ(sda1.major, 8U);
    EXPECT_EQ(sda1.minor, 1U);
    const MountTable::Mount& spaced = table.mounts().at(4);
    EXPECT_EQ(spaced.mountPoint, QStringLiteral("/mnt/with space"));
    EXPECT_EQ(spaced.root, QStringLiteral("/exports/x"));
}

TEST(MountTable, LongestMountPointByWholeComponentsWins)
{
    const MountTable table = MountTable::fromMountInfo(kMountInfo);
    EXPECT_EQ(table.mountContaining(QStringLiteral("/mnt/ab/x"))->source,
              QStringLiteral("/dev/sda2"));
    EXPECT_EQ(table.mountContaining(QStringLiteral("/mnt/abc"))->mountPoint, QStringLiteral("/"));
    EXPECT_EQ(table.mountContaining(QStringLiteral("/mnt/with space/f"))->source,
              QStringLiteral("/dev/sdb1"));
    EXPECT_EQ(table.mountContaining(QStringLiteral("/proc"))->fileSystemType,
              QStringLiteral("proc"));
    EXPECT_FALSE(MountTable().mountContaining(QStringLiteral("/")).has_value());
    // A later mount over the same point hides the earlier.
    EXPECT_EQ(table.mountContaining(QStringLiteral("/mnt/a/x"))->fileSystemType,
              QStringLiteral("tmpfs"));
    EXPECT_EQ(table.mountAt(QStringLiteral("/mnt/a"))->major, 0U);
    EXPECT_FALSE(table.mountAt(QStringLiteral("/mnt")).has_value());
}

TEST(MountTable, ComponentsBelowMountPoint)
{
    EXPECT_EQ(MountTable::componentsBelow(QStringLiteral("/mnt/a/x/y"), QStringLiteral("/mnt/a")),
              (QStringList{QStringLiteral("x"), QStringLiteral("y")}));
    EXPECT_EQ(MountTable::componentsBelow(QStringLiteral("/x"), QStringLiteral("/")),
              QStringList{QStringLiteral("x")});
    EXPECT_TRUE(
        MountTable::componentsBelow(QStringLiteral("/mnt/a"), QStringLiteral("/mnt/a")).isEmpty());
    EXPECT_TRUE(MountTable::componentsBelow(QStringLiteral("/mnt/abc"), QStringLiteral("/mnt/a"))
                    .isEmpty());
}

TEST(VolumeIdentifier, UuidFoundByTheLinkToTheMountedNode)
{
    FakeDisks disks;
    const QString node = disks.addDisk(QStringLiteral("sdz1"), QStringLiteral("1111-2222"));
    ASSERT_FALSE(node.isEmpty());
    ASSERT_FALSE(disks.addDisk(QStringLiteral("sdz2"), QStringLiteral("3333-4444")).isEmpty());
    const auto identifier = VolumeIdentifier::volumeIdentifierForMount(
        mountOf(node, QStringLiteral("/mnt/z")), disks.uuidFolder());
    EXPECT_EQ(identifier.kind(), VolumeIdentifier::Kind::Uuid);
    EXPECT_EQ(identifier.identifier(), QStringLiteral("1111-2222"));
    EXPECT_EQ(identifier.mountPath(), QStringLiteral("/mnt/z"));
}

TEST(VolumeIdentifier, UuidFoundByDeviceNumberWhenTheNodeIsNamedOtherwise)
{
    const QString device = someBlockDevice();
    if (device.isEmpty()) {
        GTEST_SKIP() << "no block device visible";
    }
    struct stat info
    {};
    ASSERT_EQ(::stat(QFile::encodeName(device).constData(), &info), 0);
    QTemporaryDir folder;
    ASSERT_TRUE(QFile::link(device, folder.filePath(QStringLiteral("5555-6666"))));
    MountTable::Mount mount = mountOf(QStringLiteral("/dev/root"), QStringLiteral("/mnt/r"));
    mount.major = major(info.st_rdev);
    mount.minor = minor(info.st_rdev);
    const auto identifier = VolumeIdentifier::volumeIdentifierForMount(mount, folder.path());
    EXPECT_EQ(identifier.kind(), VolumeIdentifier::Kind::Uuid);
    EXPECT_EQ(identifier.identifier(), QStringLiteral("5555-6666"));
}

TEST(VolumeIdentifier, WithoutUuidTheFileSystemIdNamesTheVolume)
{
    QTemporaryDir emptyFolder;
    QTemporaryDir first;
    QTemporaryDir second;
    const auto a = VolumeIdentifier::volumeIdentifierForMount(
        mountOf(QStringLiteral("tmpfs"), first.path()), emptyFolder.path());
    const auto b = VolumeIdentifier::volumeIdentifierForMount(
        mountOf(QStringLiteral("tmpfs"), second.path()), emptyFolder.path());
    ASSERT_EQ(a.kind(), VolumeIdentifier::Kind::FileSystemId);
    EXPECT_EQ(a.identifier().size(), 16);
    EXPECT_TRUE(QByteArray::fromHex(a.identifier().toLatin1()).toHex() ==
                a.identifier().toLatin1());
    EXPECT_EQ(a.description(), QStringLiteral("fsid:") + a.identifier());
    if (deviceOf(first.path()) == deviceOf(second.path())) {
        EXPECT_EQ(a, b);
    }
}

TEST(VolumeIdentifier, NoMountPointToAskFallsBackToTheDeviceNumber)
{
    QTemporaryDir emptyFolder;
    MountTable::Mount mount =
        mountOf(QStringLiteral("none"), QStringLiteral("/no/such/mount/point"));
    mount.major = 0;
    mount.minor = 77;
    const auto identifier = VolumeIdentifier::volumeIdentifierForMount(mount, emptyFolder.path());
    EXPECT_EQ(identifier.kind(), VolumeIdentifier::Kind::DeviceNumber);
    EXPECT_EQ(identifier.description(), QStringLiteral("dev:0:77"));
}

TEST(VolumeIdentifier, OnlineMountPathPrefersTheRecordedThenTheWholeVolume)
{
    FakeDisks disks;
    const QString node = disks.addDisk(QStringLiteral("sdy1"), QStringLiteral("7777-8888"));
    const QString other = disks.addDisk(QStringLiteral("sdy2"), QStringLiteral("9999-0000"));
    ASSERT_FALSE(node.isEmpty());
    const QString nodeField = QString(node).replace(QLatin1Char(' '), QStringLiteral("\\040"));
    const QString otherField = QString(other).replace(QLatin1Char(' '), QStringLiteral("\\040"));
    const QString text = QStringLiteral("1 0 0:90 / / rw - tmpfs tmpfs rw\n"
                                        "2 1 0:91 /sub /mnt/part rw - ext4 %1 rw\n"
                                        "3 1 0:92 / /mnt/other rw - ext4 %2 rw\n"
                                        "4 1 0:91 / /mnt/whole rw - ext4 %1 rw\n")
                             .arg(nodeField, otherField);
    const MountTable table = MountTable::fromMountInfo(text.toUtf8());

    const VolumeIdentifier moved(QStringLiteral("7777-8888"), VolumeIdentifier::Kind::Uuid,
                                 QStringLiteral("/mnt/old"));
    EXPECT_EQ(moved.onlineMountPath(table, disks.uuidFolder()), QStringLiteral("/mnt/whole"));
    const VolumeIdentifier recorded(QStringLiteral("7777-8888"), VolumeIdentifier::Kind::Uuid,
                                    QStringLiteral("/mnt/part"));
    EXPECT_EQ(recorded.onlineMountPath(table, disks.uuidFolder()), QStringLiteral("/mnt/part"));
    const VolumeIdentifier stale(QStringLiteral("9999-0000"), VolumeIdentifier::Kind::Uuid,
                                 QStringLiteral("/mnt/whole"));
    EXPECT_EQ(stale.onlineMountPath(table, disks.uuidFolder()), QStringLiteral("/mnt/other"));
    const VolumeIdentifier absent(QStringLiteral("0000-0000"), VolumeIdentifier::Kind::Uuid);
    EXPECT_EQ(absent.onlineMountPath(table, disks.uuidFolder()), QString());
}

TEST(VolumeIdentifier, RootAndAFileOnTheSameFileSystemAgree)
{
    const VolumeIdentifier root = VolumeIdentifier::volumeIdentifierForPath(QStringLiteral("/"));
    ASSERT_FALSE(root.isNull());
    EXPECT_FALSE(root.identifier().isEmpty());
    EXPECT_EQ(root.mountPath(), QStringLiteral("/"));
    EXPECT_EQ(root.onlineMountPath(), QStringLiteral("/"));
    for (const QString& candidate :
         {QStringLiteral("/etc/passwd"), QStringLiteral("/etc"), QStringLiteral("/usr/bin")}) {
        if (deviceOf(candidate).has_value() &&
            deviceOf(candidate) == deviceOf(QStringLiteral("/"))) {
            EXPECT_EQ(VolumeIdentifier::volumeIdentifierForPath(candidate), root)
                << candidate.toStdString();
            return;
        }
    }
    GTEST_SKIP() << "no file found on the root file system";
}

TEST(VolumeIdentifier, ArchiveRoundTripKeepsKindAndMountPath)
{
    const VolumeIdentifier original(QStringLiteral("00ab00cd00ef0012"),
                                    VolumeIdentifier::Kind::FileSystemId,
                                    QStringLiteral("/run/user"));
    const QByteArray data = KeyedArchive::archivedData(QVariant::fromValue(original));
    const auto back = KeyedArchive::unarchivedObject(data, {QStringLiteral("VolumeIdentifier")})
                          .value<VolumeIdentifier>();
    EXPECT_EQ(back.identifier(), original.identifier());
    EXPECT_EQ(back.kind(), VolumeIdentifier::Kind::FileSystemId);
    EXPECT_EQ(back.mountPath(), QStringLiteral("/run/user"));
    // Where it was mounted is no part of equality.
    const VolumeIdentifier elsewhere(original.identifier(), VolumeIdentifier::Kind::FileSystemId,
                                     QStringLiteral("/b"));
    EXPECT_EQ(back, elsewhere);
    EXPECT_EQ(back.hash(), elsewhere.hash());
    EXPECT_NE(back, VolumeIdentifier(QStringLiteral("00ab00cd00ef0013"),
                                     VolumeIdentifier::Kind::FileSystemId));
}

TEST(VolumeIdentifier, ArchiveRefusesMalformedFields)
{
    const auto archive = [](const QCborMap& fields) {
        return QCborValue(QCborTag(27), QCborArray{QStringLiteral("VolumeIdentifier"), fields})
            .toCbor();
    };
    const QSet<QString> allowed{QStringLiteral("VolumeIdentifier")};
    EXPECT_THROW(KeyedArchive::unarchivedObject(archive({{QStringLiteral("kind"), 0}}), allowed),
                 KSException);
    EXPECT_THROW(
        KeyedArchive::unarchivedObject(
            archive({{QStringLiteral("uuid"), QStringLiteral("x")}, {QStringLiteral("kind"), 9}}),
            allowed),
        KSException);
    EXPECT_THROW(KeyedArchive::unarchivedObject(
                     archive({{QStringLiteral("uuid"), 12}, {QStringLiteral("kind"), 0}}), allowed),
                 KSException);
}
