#include "core/PreferenceStore.h"

#include "core/PropertyList.h"
#include "support/RecordingLogSink.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QLockFile>
#include <QPoint>
#include <QProcess>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QThread>
#include <QTimeZone>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <plist/plist.h>
#include <vector>

namespace {
const QString kDomain = QStringLiteral("com.kestrom.monitor");

class PreferenceStoreTest : public ::testing::Test
{
protected:
    QString folder() const { return m_dir.path() + QStringLiteral("/Kestrom"); }
    QString path() const
    {
        return folder() + QLatin1Char('/') + kDomain + QStringLiteral(".plist");
    }

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

    // A file the parser refuses: the third pair is cut in the middle of its value.
    QByteArray truncatedFile() const
    {
        PreferenceStore writer(folder());
        writer.setValue(QStringLiteral("a"), QStringLiteral("first"), kDomain);
        writer.setValue(QStringLiteral("b"), 2, kDomain);
        writer.setValue(QStringLiteral("c"), QStringLiteral("third value"), kDomain);
        EXPECT_TRUE(writer.synchronize(kDomain));
        const QByteArray full = fileBytes(path());
        return full.left(full.indexOf("third") + 3);
    }

    QTemporaryDir m_dir;
};

using PreferenceStoreFiles = PreferenceStoreTest;
using PreferenceStoreSharing = PreferenceStoreTest;
using PreferenceStoreDamage = PreferenceStoreTest;
} // namespace

TEST_F(PreferenceStoreFiles, EveryKindSurvivesTheFileAndIsReadByAnotherStore)
{
    const QVariantMap values{
        {QStringLiteral("text"), QStringLiteral("ü <&> 😀")},
        {QStringLiteral("data"), QByteArray("\x00\x01\x02", 3)},
        {QStringLiteral("date"), QDateTime(QDate(2026, 5, 1), QTime(12, 0, 1), QTimeZone::utc())},
        {QStringLiteral("flag"), false},
        {QStringLiteral("integer"), QVariant::fromValue(std::numeric_limits<qint64>::min())},
        {QStringLiteral("unsigned"), QVariant::fromValue(std::numeric_limits<quint64>::max())},
        {QStringLiteral("real"), 0.91},
        {QStringLiteral("list"), QVariantList{QStringLiteral("x"), QVariantList{true}}},
        {QStringLiteral("map"), QVariantMap{{QStringLiteral("inner"), QVariantMap{}}}},
    };
    PreferenceStore writer(folder());
    for (auto it = values.cbegin(); it != values.cend(); ++it) {
        EXPECT_TRUE(writer.setValue(it.key(), it.value(), kDomain));
    }
    ASSERT_TRUE(writer.synchronize(kDomain));
    EXPECT_TRUE(fileBytes(path()).startsWith("<?xml"));

    PreferenceStore reader(folder());
    const QVariantMap read = reader.values(kDomain);
    ASSERT_EQ(read.keys(), values.keys());
    for (auto it = values.cbegin(); it != values.cend(); ++it) {
        EXPECT_TRUE(PropertyList::isEqual(read.value(it.key()), it.value()))
            << it.key().toStdString();
    }
    EXPECT_EQ(read.value(QStringLiteral("unsigned")).metaType(), QMetaType::fromType<quint64>());
}

TEST_F(PreferenceStoreFiles, ABinaryDomainIsReadAndRewrittenAsXml)
{
    plist_t root = plist_new_dict();
    plist_dict_set_item(root, "KSShowStatusMenu", plist_new_bool(1));
    plist_dict_set_item(root, "KSFadedWindowOpacity", plist_new_real(0.25));
    char* bytes = nullptr;
    uint32_t length = 0;
    plist_to_bin(root, &bytes, &length);
    putFile(QByteArray(bytes, qsizetype(length)));
    plist_to_bin_free(bytes);
    plist_free(root);

    PreferenceStore store(folder());
    EXPECT_TRUE(
        PropertyList::isEqual(store.value(QStringLiteral("KSShowStatusMenu"), kDomain), true));
    EXPECT_TRUE(
        PropertyList::isEqual(store.value(QStringLiteral("KSFadedWindowOpacity"), kDomain), 0.25));
    store.setValue(QStringLiteral("added"), 1, kDomain);
    ASSERT_TRUE(store.synchronize(kDomain));
    EXPECT_TRUE(fileBytes(path()).startsWith("<?xml"));
    EXPECT_EQ(onDisk().size(), 3);
}

TEST_F(PreferenceStoreFiles, WritesStayInMemoryUntilSynchronized)
{
    PreferenceStore store(folder());
    EXPECT_TRUE(store.setValue(QStringLiteral("k"), 1, kDomain));
    EXPECT_TRUE(PropertyList::isEqual(store.value(QStringLiteral("k"), kDomain), 1));
    EXPECT_TRUE(store.hasUnsynchronizedChanges(kDomain));
    EXPECT_FALSE(QFile::exists(path()));
    ASSERT_TRUE(store.synchronize(kDomain));
    EXPECT_FALSE(store.hasUnsynchronizedChanges(kDomain));
    EXPECT_TRUE(PropertyList::isEqual(onDisk().value(QStringLiteral("k")), 1));
    EXPECT_FALSE(QFile::exists(path() + QStringLiteral(".lock")));
}

TEST_F(PreferenceStoreFiles, ValuesAndDomainsThatCannotBeStoredAreRefusedWithALine)
{
    RecordingLogSink sink;
    PreferenceStore store(folder());
    EXPECT_FALSE(store.setValue(QStringLiteral("point"), QPoint(1, 2), kDomain));
    EXPECT_FALSE(store.setValue(QStringLiteral("k"), 1, QStringLiteral("../escape")));
    EXPECT_FALSE(store.value(QStringLiteral("point"), kDomain).isValid());
    EXPECT_EQ(sink.lines().size(), 2);
    EXPECT_FALSE(QFile::exists(m_dir.path() + QStringLiteral("/escape.plist")));
}

TEST_F(PreferenceStoreFiles, TheFolderFollowsXdgConfigHomeReadAtConstruction)
{
    const QByteArray saved = qgetenv("XDG_CONFIG_HOME");
    const bool wasSet = qEnvironmentVariableIsSet("XDG_CONFIG_HOME");
    const auto restore = qScopeGuard([&] {
        if (wasSet) {
            qputenv("XDG_CONFIG_HOME", saved);
        } else {
            qunsetenv("XDG_CONFIG_HOME");
        }
    });
    qputenv("XDG_CONFIG_HOME", m_dir.path().toLocal8Bit());
    PreferenceStore store;
    EXPECT_EQ(store.folder(), folder());
    store.setValue(QStringLiteral("k"), true, kDomain);
    ASSERT_TRUE(store.synchronize(kDomain));
    EXPECT_TRUE(QFile::exists(path()));

    qputenv("XDG_CONFIG_HOME", "relative/path");
    EXPECT_EQ(PreferenceStore().folder(), QDir::homePath() + QStringLiteral("/.config/Kestrom"));
}

TEST_F(PreferenceStoreSharing, AnotherStoresKeysWrittenBetweenTwoFlushesSurvive)
{
    PreferenceStore mine(folder());
    PreferenceStore theirs(folder());
    mine.setValue(QStringLiteral("mine"), 1, kDomain);
    mine.setValue(QStringLiteral("shared"), QStringLiteral("mine"), kDomain);
    ASSERT_TRUE(mine.synchronize(kDomain));

    theirs.setValue(QStringLiteral("theirs"), 2, kDomain);
    theirs.setValue(QStringLiteral("shared"), QVariant(), kDomain);
    ASSERT_TRUE(theirs.synchronize(kDomain));

    mine.setValue(QStringLiteral("later"), 3, kDomain);
    ASSERT_TRUE(mine.synchronize(kDomain));

    const QVariantMap expected{
        {QStringLiteral("mine"), 1}, {QStringLiteral("theirs"), 2}, {QStringLiteral("later"), 3}};
    EXPECT_TRUE(PropertyList::isEqual(onDisk(), expected));
    EXPECT_TRUE(PropertyList::isEqual(mine.values(kDomain), expected));
}

TEST_F(PreferenceStoreSharing, ReadsComeFromTheCacheUntilTheNextSynchronize)
{
    PreferenceStore mine(folder());
    PreferenceStore theirs(folder());
    EXPECT_FALSE(mine.value(QStringLiteral("k"), kDomain).isValid());
    theirs.setValue(QStringLiteral("k"), 7, kDomain);
    ASSERT_TRUE(theirs.synchronize(kDomain));
    EXPECT_FALSE(mine.value(QStringLiteral("k"), kDomain).isValid());
    ASSERT_TRUE(mine.synchronize(kDomain));
    EXPECT_TRUE(PropertyList::isEqual(mine.value(QStringLiteral("k"), kDomain), 7));
}

TEST_F(PreferenceStoreSharing, AHeldLockDefersTheFlushAndKeepsTheChanges)
{
    RecordingLogSink sink;
    PreferenceStore store(folder());
    store.setLockTimeout(std::chrono::milliseconds(0));
    store.setValue(QStringLiteral("k"), 1, kDomain);
    QDir().mkpath(folder());
    QLockFile held(path() + QStringLiteral(".lock"));
    ASSERT_TRUE(held.tryLock(0));

    EXPECT_FALSE(store.synchronize(kDomain));
    EXPECT_TRUE(store.hasUnsynchronizedChanges(kDomain));
    EXPECT_FALSE(QFile::exists(path()));
    ASSERT_EQ(sink.lines().size(), 1);
    EXPECT_TRUE(sink.lines().at(0).text.contains(QStringLiteral("locked")));

    held.unlock();
    ASSERT_TRUE(store.synchronize(kDomain));
    EXPECT_FALSE(store.hasUnsynchronizedChanges(kDomain));
    EXPECT_TRUE(PropertyList::isEqual(onDisk().value(QStringLiteral("k")), 1));
}

TEST_F(PreferenceStoreSharing, TwoProcessesFlushingTheSameDomainTogetherLoseNothing)
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

TEST_F(PreferenceStoreSharing, ThreadsWritingAndFlushingTogetherLoseNothing)
{
    constexpr int kThreads = 4;
    constexpr int kCount = 60;
    PreferenceStore store(folder());
    std::vector<std::unique_ptr<QThread>> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back(QThread::create([&store, t] {
            for (int i = 0; i < kCount; ++i) {
                store.setValue(QStringLiteral("t%1-%2").arg(t).arg(i), i, kDomain);
                if (i % 10 == 0) {
                    store.synchronize(kDomain);
                }
            }
        }));
        threads.back()->start();
    }
    for (const auto& thread : threads) {
        ASSERT_TRUE(thread->wait(60'000));
    }
    ASSERT_TRUE(store.synchronize(kDomain));
    EXPECT_FALSE(store.hasUnsynchronizedChanges(kDomain));
    EXPECT_EQ(onDisk().size(), kThreads * kCount);
}

TEST_F(PreferenceStoreDamage, ATruncatedFileReadsAsAbsentWithOneLineAndIsLeftAlone)
{
    const QByteArray damaged = truncatedFile();
    putFile(damaged);
    RecordingLogSink sink;
    PreferenceStore store(folder());
    EXPECT_FALSE(store.value(QStringLiteral("a"), kDomain).isValid());
    EXPECT_TRUE(store.values(kDomain).isEmpty());
    ASSERT_TRUE(store.synchronize(kDomain));
    EXPECT_FALSE(store.value(QStringLiteral("b"), kDomain).isValid());

    ASSERT_EQ(sink.lines().size(), 1);
    EXPECT_EQ(sink.lines().at(0).logClass, 5);
    EXPECT_TRUE(sink.lines().at(0).text.contains(path()));
    EXPECT_TRUE(sink.lines().at(0).text.contains(QStringLiteral("line ")));
    EXPECT_EQ(fileBytes(path()), damaged);
    EXPECT_FALSE(QFile::exists(path() + QStringLiteral(".corrupt")));
}

TEST_F(PreferenceStoreDamage, TheFirstWriteKeepsTheReadablePartAndACopy)
{
    const QByteArray damaged = truncatedFile();
    putFile(damaged);
    RecordingLogSink sink;
    PreferenceStore store(folder());
    EXPECT_FALSE(store.value(QStringLiteral("a"), kDomain).isValid());
    EXPECT_TRUE(store.setValue(QStringLiteral("new"), true, kDomain));
    ASSERT_TRUE(store.synchronize(kDomain));

    const QVariantMap expected{{QStringLiteral("a"), QStringLiteral("first")},
                               {QStringLiteral("b"), 2},
                               {QStringLiteral("new"), true}};
    EXPECT_TRUE(PropertyList::isEqual(onDisk(), expected));
    EXPECT_TRUE(PropertyList::isEqual(store.values(kDomain), expected));
    EXPECT_EQ(fileBytes(path() + QStringLiteral(".corrupt")), damaged);
    EXPECT_EQ(sink.lines().size(), 1);

    PreferenceStore nextStart(folder());
    EXPECT_TRUE(PropertyList::isEqual(nextStart.values(kDomain), expected));
    EXPECT_EQ(sink.lines().size(), 1);
}

TEST_F(PreferenceStoreDamage, UnreadableFilesOfEveryShapeGiveDefaultsAndARepairOnWrite)
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

TEST_F(PreferenceStoreDamage, DamageByAnotherWriterIsNoticedAtTheNextSynchronize)
{
    RecordingLogSink sink;
    PreferenceStore store(folder());
    store.setValue(QStringLiteral("k"), 1, kDomain);
    ASSERT_TRUE(store.synchronize(kDomain));
    putFile("<?xml version=\"1.0\"?><plist><dict><key>k</key><integer>1</int");
    ASSERT_TRUE(store.synchronize(kDomain));
    EXPECT_FALSE(store.value(QStringLiteral("k"), kDomain).isValid());
    ASSERT_TRUE(store.synchronize(kDomain));
    EXPECT_EQ(sink.lines().size(), 1);
}
