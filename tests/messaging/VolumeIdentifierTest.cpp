#include "messaging/VolumeIdentifier.h"

#include "exception/KSException.h"
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
#include <tuple>

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

TEST(MountTable, ParsesLinesAndFindsTheLongestMountPointByWholeComponents)
{
    const MountTable table = MountTable::fromMountInfo(kMountInfo);
    ASSERT_EQ(table.mounts().size(), 6);
    const MountTable::Mount& sda1 = table.mounts().at(2);
    EXPECT_EQ(sda1.fileSystemType, QStringLiteral("ext4"));
    EXPECT_EQ(sda1.major, 8U);
    EXPECT_EQ(sda1.minor, 1U);
    EXPECT_EQ(table.mounts().at(4).root, QStringLiteral("/exports/x"));

    const std::pair<const char*, const char*> containing[] = {
        {"/mnt/ab/x", "/dev/sda2"},
        {"/mnt/abc", "/dev/vda"},
        {"/mnt/with space/f", "/dev/sdb1"},
        {"/proc", "proc"},
        {"/mnt/a/x", "tmpfs"}}; // a later mount over the same point hides the earlier
    for (const auto& [path, source] : containing) {
        EXPECT_EQ(table.mountContaining(QString::fromUtf8(path))->source, QString::fromUtf8(source))
            << path;
    }
    EXPECT_FALSE(MountTable().mountContaining(QStringLiteral("/")).has_value());
    EXPECT_EQ(table.mountAt(QStringLiteral("/mnt/a"))->major, 0U);
    EXPECT_FALSE(table.mountAt(QStringLiteral("/mnt")).has_value());
    EXPECT_EQ(MountTable::componentsBelow(QStringLiteral("/mnt/a/x/y"), QStringLiteral("/mnt/a")),
              (QStringList{QStringLiteral("x"), QStringLiteral("y")}));
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
    EXPECT_EQ(QByteArray::fromHex(a.identifier().toLatin1()).size(), 8);
    EXPECT_EQ(a.description(), QStringLiteral("fsid:") + a.identifier());
    if (deviceOf(first.path()) == deviceOf(second.path())) {
        EXPECT_EQ(a, b);
    }
    // With no mount point to ask either, the device number names it.
    MountTable::Mount mount = mountOf(QStringLiteral("none"), QStringLiteral("/no/such/mount"));
    mount.major = 0;
    mount.minor = 77;
    const auto byDevice = VolumeIdentifier::volumeIdentifierForMount(mount, emptyFolder.path());
    EXPECT_EQ(byDevice.kind(), VolumeIdentifier::Kind::DeviceNumber);
    EXPECT_EQ(byDevice.description(), QStringLiteral("dev:0:77"));
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

    // The recorded mount point if it still holds the volume, else one holding all of it.
    const std::tuple<const char*, const char*, const char*> rows[] = {
        {"7777-8888", "/mnt/old", "/mnt/whole"},
        {"7777-8888", "/mnt/part", "/mnt/part"},
        {"9999-0000", "/mnt/whole", "/mnt/other"},
        {"0000-0000", "", ""}};
    for (const auto& [uuid, recorded, expected] : rows) {
        const VolumeIdentifier volume(QString::fromLatin1(uuid), VolumeIdentifier::Kind::Uuid,
                                      QString::fromLatin1(recorded));
        EXPECT_EQ(volume.onlineMountPath(table, disks.uuidFolder()), QString::fromLatin1(expected))
            << uuid << " at " << recorded;
    }
}

TEST(VolumeIdentifier, RootAndAFileOnTheSameFileSystemAgree)
{
    const VolumeIdentifier root = VolumeIdentifier::volumeIdentifierForPath(QStringLiteral("/"));
    ASSERT_FALSE(root.identifier().isEmpty());
    EXPECT_EQ(root.onlineMountPath(), QStringLiteral("/"));
    if (deviceOf(QStringLiteral("/etc")) != deviceOf(QStringLiteral("/"))) {
        GTEST_SKIP() << "/etc is not on the root file system";
    }
    EXPECT_EQ(VolumeIdentifier::volumeIdentifierForPath(QStringLiteral("/etc")), root);
}

TEST(VolumeIdentifier, ArchiveRoundTripKeepsKindAndMountPathAndRefusesMalformedFields)
{
    const VolumeIdentifier original(QStringLiteral("00ab00cd00ef0012"),
                                    VolumeIdentifier::Kind::FileSystemId,
                                    QStringLiteral("/run/user"));
    const QSet<QString> allowed{QStringLiteral("VolumeIdentifier")};
    const auto back = KeyedArchive::unarchivedObject(
                          KeyedArchive::archivedData(QVariant::fromValue(original)), allowed)
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

    for (const QCborMap& fields :
         {QCborMap{{QStringLiteral("kind"), 0}},
          QCborMap{{QStringLiteral("uuid"), QStringLiteral("x")}, {QStringLiteral("kind"), 9}},
          QCborMap{{QStringLiteral("uuid"), 12}, {QStringLiteral("kind"), 0}}}) {
        const QByteArray data =
            QCborValue(QCborTag(27), QCborArray{QStringLiteral("VolumeIdentifier"), fields})
                .toCbor();
        EXPECT_THROW(KeyedArchive::unarchivedObject(data, allowed), KSException);
    }
}
