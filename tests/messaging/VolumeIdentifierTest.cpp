#include "messaging/VolumeIdentifier.h"

#include "exception/KSException.h"
#include "foundation/KeyedArchive.h"
#include "platform/linux/MountTable.h"

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

using namespace Qt::StringLiterals;

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

MountTable::Mount mountOf(const QString& source, const QString& mountPoint)
{
    MountTable::Mount mount;
    mount.source = source;
    mount.mountPoint = mountPoint;
    mount.root = u"/"_s;
    return mount;
}
} // namespace

TEST(MountTable, ParsesLinesAndFindsTheLongestMountPointByWholeComponents)
{
    const MountTable table = MountTable::fromMountInfo(kMountInfo);
    ASSERT_EQ(table.mounts().size(), 6);
    const MountTable::Mount& sda1 = table.mounts().at(2);
    EXPECT_EQ(sda1.fileSystemType, u"ext4"_s);
    EXPECT_EQ(sda1.major, 8U);
    EXPECT_EQ(sda1.minor, 1U);
    EXPECT_EQ(table.mounts().at(4).root, u"/exports/x"_s);

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
    EXPECT_FALSE(MountTable().mountContaining(u"/"_s).has_value());
    EXPECT_EQ(table.mountAt(u"/mnt/a"_s)->major, 0U);
    EXPECT_FALSE(table.mountAt(u"/mnt"_s).has_value());
    EXPECT_EQ(MountTable::componentsBelow(u"/mnt/a/x/y"_s, u"/mnt/a"_s),
              (QStringList{u"x"_s, u"y"_s}));
    EXPECT_TRUE(MountTable::componentsBelow(u"/mnt/abc"_s, u"/mnt/a"_s).isEmpty());
}

TEST(VolumeIdentifier, WithoutUuidTheFileSystemIdNamesTheVolume)
{
    QTemporaryDir emptyFolder;
    QTemporaryDir first;
    QTemporaryDir second;
    const auto a = VolumeIdentifier::volumeIdentifierForMount(mountOf(u"tmpfs"_s, first.path()),
                                                              emptyFolder.path());
    const auto b = VolumeIdentifier::volumeIdentifierForMount(mountOf(u"tmpfs"_s, second.path()),
                                                              emptyFolder.path());
    ASSERT_EQ(a.kind(), VolumeIdentifier::Kind::FileSystemId);
    EXPECT_EQ(QByteArray::fromHex(a.identifier().toLatin1()).size(), 8);
    EXPECT_EQ(a.description(), u"fsid:"_s + a.identifier());
    if (deviceOf(first.path()) == deviceOf(second.path())) {
        EXPECT_EQ(a, b);
    }
    // With no mount point to ask either, the device number names it.
    MountTable::Mount mount = mountOf(u"none"_s, u"/no/such/mount"_s);
    mount.major = 0;
    mount.minor = 77;
    const auto byDevice = VolumeIdentifier::volumeIdentifierForMount(mount, emptyFolder.path());
    EXPECT_EQ(byDevice.kind(), VolumeIdentifier::Kind::DeviceNumber);
    EXPECT_EQ(byDevice.description(), u"dev:0:77"_s);
}

TEST(VolumeIdentifier, AUuidIsFoundByItsLinkAndOnlineTheRecordedMountThenTheWholeVolumeIsUsed)
{
    // A by-uuid folder whose links point at plain files standing in for device nodes.
    QTemporaryDir disks;
    const QString uuidFolder = disks.filePath(u"by-uuid"_s);
    ASSERT_TRUE(QDir().mkpath(uuidFolder));
    const auto addDisk = [&](const QString& node, const QString& uuid) {
        QFile file(disks.filePath(node));
        const bool made = file.open(QIODevice::WriteOnly) &&
                          QFile::link(u"../"_s + node, uuidFolder + u'/' + uuid);
        return made ? QFileInfo(file).canonicalFilePath() : QString();
    };
    const QString node = addDisk(u"sdy1"_s, u"7777-8888"_s);
    const QString other = addDisk(u"sdy2"_s, u"9999-0000"_s);
    ASSERT_FALSE(node.isEmpty());
    ASSERT_FALSE(other.isEmpty());
    const auto identifier =
        VolumeIdentifier::volumeIdentifierForMount(mountOf(node, u"/mnt/z"_s), uuidFolder);
    EXPECT_EQ(identifier.kind(), VolumeIdentifier::Kind::Uuid);
    EXPECT_EQ(identifier.identifier(), u"7777-8888"_s);
    EXPECT_EQ(identifier.mountPath(), u"/mnt/z"_s);

    const QString nodeField = QString(node).replace(QLatin1Char(' '), u"\\040"_s);
    const QString otherField = QString(other).replace(QLatin1Char(' '), u"\\040"_s);
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
        EXPECT_EQ(volume.onlineMountPath(table, uuidFolder), QString::fromLatin1(expected))
            << uuid << " at " << recorded;
    }
}

TEST(VolumeIdentifier, RootAndAFileOnTheSameFileSystemAgree)
{
    const VolumeIdentifier root = VolumeIdentifier::volumeIdentifierForPath(u"/"_s);
    ASSERT_FALSE(root.identifier().isEmpty());
    EXPECT_EQ(root.onlineMountPath(), u"/"_s);
    if (deviceOf(u"/etc"_s) != deviceOf(u"/"_s)) {
        GTEST_SKIP() << "/etc is not on the root file system";
    }
    EXPECT_EQ(VolumeIdentifier::volumeIdentifierForPath(u"/etc"_s), root);
}

TEST(VolumeIdentifier, ArchiveRoundTripKeepsKindAndMountPathAndRefusesMalformedFields)
{
    const VolumeIdentifier original(u"00ab00cd00ef0012"_s, VolumeIdentifier::Kind::FileSystemId,
                                    u"/run/user"_s);
    const QSet<QString> allowed{u"VolumeIdentifier"_s};
    const auto back = KeyedArchive::unarchivedObject(
                          KeyedArchive::archivedData(QVariant::fromValue(original)), allowed)
                          .value<VolumeIdentifier>();
    EXPECT_EQ(back.identifier(), original.identifier());
    EXPECT_EQ(back.kind(), VolumeIdentifier::Kind::FileSystemId);
    EXPECT_EQ(back.mountPath(), u"/run/user"_s);
    // Where it was mounted is no part of equality.
    const VolumeIdentifier elsewhere(original.identifier(), VolumeIdentifier::Kind::FileSystemId,
                                     u"/b"_s);
    EXPECT_EQ(back, elsewhere);
    EXPECT_EQ(back.hash(), elsewhere.hash());
    EXPECT_NE(back, VolumeIdentifier(u"00ab00cd00ef0013"_s, VolumeIdentifier::Kind::FileSystemId));

    for (const QCborMap& fields :
         {QCborMap{{u"kind"_s, 0}}, QCborMap{{u"uuid"_s, u"x"_s}, {u"kind"_s, 9}},
          QCborMap{{u"uuid"_s, 12}, {u"kind"_s, 0}}}) {
        const QByteArray data =
            QCborValue(QCborTag(27), QCborArray{u"VolumeIdentifier"_s, fields}).toCbor();
        EXPECT_THROW(KeyedArchive::unarchivedObject(data, allowed), KSException);
    }
}
