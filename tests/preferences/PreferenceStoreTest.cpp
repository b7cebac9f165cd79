#include "preferences/PreferenceStore.h"

#include "preferences/PropertyList.h"
#include "support/RecordingLogSink.h"

#include <QDir>
#include <QFile>
#include <QPoint>
#include <QProcess>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace {
const QString kDomain = QStringLiteral("com.kestrom.monitor");

class PreferenceStoreTest : public ::testing::Test
{
protected:
    QString folder() const { return m_dir.path() + QStringLiteral("/Kestrom"); }
    QString path() const { return folder() + QStringLiteral("/com.kestrom.monitor.plist"); }

    QByteArray fileBytes(const QString& file) const
    {
        QFile in(file);
        return in.open(QIODevice::ReadOnly) ? in.readAll() : QByteArray();
    }

    void putFile(const QByteArray& bytes) const
    {
        QDir().mkpath(folder());
        QFile out(path());
        ASSERT_TRUE(out.open(QIODevice::WriteOnly | QIODevice::Truncate));
        ASSERT_EQ(out.write(bytes), bytes.size());
    }

    // What a fresh process would find in the file.
    QVariantMap onDisk() const
    {
        const PropertyList::Parsed parsed = PropertyList::fromData(fileBytes(path()));
        EXPECT_TRUE(parsed.isValid()) << parsed.error.toStdString();
        return parsed.value.toMap();
    }

    QTemporaryDir m_dir;
};
} // namespace

TEST_F(PreferenceStoreTest, ValuesAndDomainsThatCannotBeStoredAreRefusedWithALine)
{
    RecordingLogSink sink;
    PreferenceStore store(folder());
    EXPECT_FALSE(store.setValue(QStringLiteral("point"), QPoint(1, 2), kDomain));
    EXPECT_FALSE(store.setValue(QStringLiteral("k"), 1, QStringLiteral("../escape")));
    EXPECT_FALSE(store.value(QStringLiteral("point"), kDomain).isValid());
    EXPECT_EQ(sink.lines().size(), 2);
    EXPECT_FALSE(QFile::exists(m_dir.path() + QStringLiteral("/escape.plist")));
}

TEST_F(PreferenceStoreTest, TheFolderFollowsXdgConfigHomeReadAtConstruction)
{
    const QByteArray saved = qgetenv("XDG_CONFIG_HOME");
    const bool wasSet = qEnvironmentVariableIsSet("XDG_CONFIG_HOME");
    const auto restore = qScopeGuard(
        [&] { wasSet ? qputenv("XDG_CONFIG_HOME", saved) : qunsetenv("XDG_CONFIG_HOME"); });
    qputenv("XDG_CONFIG_HOME", m_dir.path().toLocal8Bit());
    EXPECT_EQ(PreferenceStore().folder(), folder());
    qputenv("XDG_CONFIG_HOME", "relative/path");
    EXPECT_EQ(PreferenceStore().folder(), QDir::homePath() + QStringLiteral("/.config/Kestrom"));
}

TEST_F(PreferenceStoreTest, AnotherStoresKeysWrittenBetweenTwoFlushesSurvive)
{
    PreferenceStore mine(folder());
    PreferenceStore theirs(folder());
    mine.setValue(QStringLiteral("mine"), 1, kDomain);
    mine.setValue(QStringLiteral("shared"), QStringLiteral("mine"), kDomain);
    // Writes stay in memory until synchronized.
    EXPECT_TRUE(mine.hasUnsynchronizedChanges(kDomain));
    EXPECT_FALSE(QFile::exists(path()));
    ASSERT_TRUE(mine.synchronize(kDomain));
    EXPECT_FALSE(mine.hasUnsynchronizedChanges(kDomain));
    EXPECT_FALSE(QFile::exists(path() + QStringLiteral(".lock")));

    theirs.setValue(QStringLiteral("theirs"), 2, kDomain);
    theirs.setValue(QStringLiteral("shared"), QVariant(), kDomain);
    ASSERT_TRUE(theirs.synchronize(kDomain));
    // Reads come from the cache until the next synchronize.
    EXPECT_FALSE(mine.value(QStringLiteral("theirs"), kDomain).isValid());

    mine.setValue(QStringLiteral("later"), 3, kDomain);
    ASSERT_TRUE(mine.synchronize(kDomain));
    const QVariantMap expected{
        {QStringLiteral("mine"), 1}, {QStringLiteral("theirs"), 2}, {QStringLiteral("later"), 3}};
    EXPECT_TRUE(PropertyList::isEqual(onDisk(), expected));
    EXPECT_TRUE(PropertyList::isEqual(mine.values(kDomain), expected));
}

TEST_F(PreferenceStoreTest, TwoProcessesFlushingTheSameDomainTogetherLoseNothing)
{
    constexpr int kCount = 150;
    QProcess child;
    child.start(QStringLiteral(KESTROM_PREFERENCE_WRITER),
                {folder(), kDomain, QStringLiteral("child"), QString::number(kCount)});
    ASSERT_TRUE(child.waitForStarted());
    ASSERT_TRUE(child.waitForReadyRead(30'000));
    ASSERT_EQ(child.readLine().trimmed(), QByteArray("ready"));
    child.write("go\n");
    child.closeWriteChannel();

    PreferenceStore store(folder());
    for (int i = 0; i < kCount; ++i) {
        store.setValue(QStringLiteral("parent%1").arg(i), QVariant::fromValue(qint64(i)), kDomain);
        ASSERT_TRUE(store.synchronize(kDomain));
    }
    ASSERT_TRUE(child.waitForFinished(60'000));
    ASSERT_EQ(child.exitStatus(), QProcess::NormalExit);
    ASSERT_EQ(child.exitCode(), 0) << child.readAllStandardError().toStdString();

    const QVariantMap values = onDisk();
    EXPECT_EQ(values.size(), 2 * kCount);
    for (int i = 0; i < kCount; ++i) {
        EXPECT_TRUE(PropertyList::isEqual(values.value(QStringLiteral("parent%1").arg(i)),
                                          QVariant::fromValue(qint64(i))));
        EXPECT_TRUE(PropertyList::isEqual(values.value(QStringLiteral("child%1").arg(i)),
                                          QVariant::fromValue(qint64(i))));
    }
}

TEST_F(PreferenceStoreTest, ATruncatedFileIsLeftAloneUntilAWriteKeepsItsReadablePart)
{
    PreferenceStore writer(folder());
    writer.setValue(QStringLiteral("a"), QStringLiteral("first"), kDomain);
    writer.setValue(QStringLiteral("b"), 2, kDomain);
    writer.setValue(QStringLiteral("c"), QStringLiteral("third value"), kDomain);
    ASSERT_TRUE(writer.synchronize(kDomain));
    // The parser refuses it: the third pair is cut in the middle of its value.
    const QByteArray damaged = fileBytes(path()).left(fileBytes(path()).indexOf("third") + 3);
    putFile(damaged);
    RecordingLogSink sink;
    PreferenceStore store(folder());
    EXPECT_TRUE(store.values(kDomain).isEmpty());
    ASSERT_TRUE(store.synchronize(kDomain));
    ASSERT_EQ(sink.lines().size(), 1);
    EXPECT_EQ(sink.lines().at(0).logClass, 5);
    EXPECT_TRUE(sink.lines().at(0).text.contains(path()));
    EXPECT_TRUE(sink.lines().at(0).text.contains(QStringLiteral("line ")));
    EXPECT_EQ(fileBytes(path()), damaged);
    EXPECT_FALSE(QFile::exists(path() + QStringLiteral(".corrupt")));

    EXPECT_TRUE(store.setValue(QStringLiteral("new"), true, kDomain));
    ASSERT_TRUE(store.synchronize(kDomain));
    const QVariantMap expected{{QStringLiteral("a"), QStringLiteral("first")},
                               {QStringLiteral("b"), 2},
                               {QStringLiteral("new"), true}};
    EXPECT_TRUE(PropertyList::isEqual(onDisk(), expected));
    EXPECT_TRUE(PropertyList::isEqual(store.values(kDomain), expected));
    EXPECT_EQ(fileBytes(path() + QStringLiteral(".corrupt")), damaged);
    EXPECT_TRUE(PropertyList::isEqual(PreferenceStore(folder()).values(kDomain), expected));
    EXPECT_EQ(sink.lines().size(), 1);
}

TEST_F(PreferenceStoreTest, UnreadableFilesOfEveryShapeGiveDefaultsAndARepairOnWrite)
{
    const QByteArray array = PropertyList::xmlData(QVariantList{1, 2}).data;
    for (const QByteArray& damaged : {QByteArray(), QByteArray("not a property list at all"),
                                      QByteArray("bplist00") + QByteArray(64, '\x7f'), array}) {
        putFile(damaged);
        QFile::remove(path() + QStringLiteral(".corrupt"));
        RecordingLogSink sink;
        PreferenceStore store(folder());
        EXPECT_TRUE(store.values(kDomain).isEmpty());
        EXPECT_EQ(fileBytes(path()), damaged);
        store.setValue(QStringLiteral("k"), QStringLiteral("v"), kDomain);
        ASSERT_TRUE(store.synchronize(kDomain));
        EXPECT_TRUE(PropertyList::isEqual(onDisk(),
                                          QVariantMap{{QStringLiteral("k"), QStringLiteral("v")}}));
        EXPECT_EQ(fileBytes(path() + QStringLiteral(".corrupt")), damaged);
        EXPECT_EQ(sink.lines().size(), 1) << damaged.left(20).toStdString();
    }
}
