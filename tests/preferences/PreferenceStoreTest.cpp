#include "preferences/PreferenceStore.h"

#include "preferences/PropertyList.h"
#include "support/RecordingLogSink.h"

#include <QDir>
#include <QFile>
#include <QPoint>
#include <QProcess>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {
const QString kDomain = u"com.kestrom.monitor"_s;

class PreferenceStoreTest : public ::testing::Test
{
protected:
    QString folder() const { return m_dir.path() + u"/Kestrom"_s; }
    QString path() const { return folder() + u"/com.kestrom.monitor.plist"_s; }
    QStringList damagedCopies() const
    {
        return QDir(folder()).entryList({u"com.kestrom.monitor.plist.damaged-*"_s}, QDir::Files);
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

    QTemporaryDir m_dir;
};
} // namespace

TEST_F(PreferenceStoreTest, ValuesAndDomainsThatCannotBeStoredAreRefusedWithALine)
{
    RecordingLogSink sink;
    PreferenceStore store(folder());
    EXPECT_FALSE(store.setValue(u"point"_s, QPoint(1, 2), kDomain));
    EXPECT_FALSE(store.setValue(u"k"_s, 1, u"../escape"_s));
    EXPECT_FALSE(store.value(u"point"_s, kDomain).isValid());
    EXPECT_EQ(sink.lines().size(), 2);
    EXPECT_FALSE(QFile::exists(m_dir.path() + u"/escape.plist"_s));
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
    EXPECT_EQ(PreferenceStore().folder(), QDir::homePath() + u"/.config/Kestrom"_s);
}

TEST_F(PreferenceStoreTest, AnotherStoresKeysWrittenBetweenTwoFlushesSurvive)
{
    PreferenceStore mine(folder());
    PreferenceStore theirs(folder());
    mine.setRecheckInterval(std::chrono::milliseconds(0));
    mine.setValue(u"mine"_s, 1, kDomain);
    mine.setValue(u"shared"_s, u"mine"_s, kDomain);
    // Writes stay in memory until synchronized.
    EXPECT_TRUE(mine.hasUnsynchronizedChanges(kDomain));
    EXPECT_FALSE(QFile::exists(path()));
    ASSERT_TRUE(mine.synchronize(kDomain));
    EXPECT_FALSE(mine.hasUnsynchronizedChanges(kDomain));
    EXPECT_FALSE(QFile::exists(path() + u".lock"_s));

    theirs.setValue(u"theirs"_s, 2, kDomain);
    theirs.setValue(u"shared"_s, QVariant(), kDomain);
    ASSERT_TRUE(theirs.synchronize(kDomain));
    // The other process's flush changed the file: reads see it.
    EXPECT_TRUE(PropertyList::isEqual(mine.value(u"theirs"_s, kDomain), 2));

    mine.setValue(u"later"_s, 3, kDomain);
    ASSERT_TRUE(mine.synchronize(kDomain));
    const QVariantMap expected{{u"mine"_s, 1}, {u"theirs"_s, 2}, {u"later"_s, 3}};
    EXPECT_TRUE(PropertyList::isEqual(onDisk(), expected));
    EXPECT_TRUE(PropertyList::isEqual(mine.values(kDomain), expected));
}

TEST_F(PreferenceStoreTest, TwoProcessesFlushingTheSameDomainTogetherLoseNothing)
{
    constexpr int kCount = 150;
    QProcess child;
    child.start(QStringLiteral(KESTROM_PREFERENCE_WRITER),
                {folder(), kDomain, u"child"_s, QString::number(kCount)});
    ASSERT_TRUE(child.waitForStarted());
    ASSERT_TRUE(child.waitForReadyRead(30'000));
    ASSERT_EQ(child.readLine().trimmed(), QByteArray("ready"));
    child.write("go\n");
    child.closeWriteChannel();

    PreferenceStore store(folder());
    QVariantMap expected;
    for (int i = 0; i < kCount; ++i) {
        store.setValue(u"parent%1"_s.arg(i), QVariant::fromValue(qint64(i)), kDomain);
        ASSERT_TRUE(store.synchronize(kDomain));
        expected.insert(u"parent%1"_s.arg(i), QVariant::fromValue(qint64(i)));
        expected.insert(u"child%1"_s.arg(i), QVariant::fromValue(qint64(i)));
    }
    ASSERT_TRUE(child.waitForFinished(60'000));
    ASSERT_EQ(child.exitStatus(), QProcess::NormalExit);
    ASSERT_EQ(child.exitCode(), 0) << child.readAllStandardError().toStdString();
    EXPECT_EQ(onDisk().size(), 2 * kCount);
    EXPECT_TRUE(PropertyList::isEqual(onDisk(), expected));
}

TEST_F(PreferenceStoreTest, AnUnreadableFileIsLeftAloneUntilAWriteKeepsWhatCanBeSalvaged)
{
    PreferenceStore writer(folder());
    writer.setValue(u"a"_s, u"first"_s, kDomain);
    writer.setValue(u"b"_s, 2, kDomain);
    writer.setValue(u"c"_s, u"third value"_s, kDomain);
    ASSERT_TRUE(writer.synchronize(kDomain));
    struct Case
    {
        QByteArray damaged;
        QVariantMap salvaged;
        QString why;
    };
    // The parser refuses the first: its third pair is cut in the middle of its value.
    const Case cases[] = {
        {fileBytes(path()).left(fileBytes(path()).indexOf("third") + 3),
         {{u"a"_s, u"first"_s}, {u"b"_s, 2}},
         u"line "_s},
        {QByteArray(), {}, u"it is empty"_s},
        {QByteArray("not a property list at all"), {}, u"line 1, column 1"_s},
        {QByteArray("bplist00") + QByteArray(64, '\x7f'), {}, u"its trailer is damaged"_s},
        {PropertyList::xmlData(QVariantList{1, 2}).data, {}, u"it does not hold a dictionary"_s}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.damaged.left(20).toStdString());
        putFile(c.damaged);
        for (const QString& copy : damagedCopies()) {
            QFile::remove(folder() + u'/' + copy);
        }
        RecordingLogSink sink;
        PreferenceStore store(folder());
        EXPECT_TRUE(store.values(kDomain).isEmpty());
        ASSERT_TRUE(store.synchronize(kDomain));
        ASSERT_EQ(sink.lines().size(), 1);
        EXPECT_EQ(sink.lines().at(0).logClass, 5);
        EXPECT_TRUE(sink.lines().at(0).text.contains(path()));
        EXPECT_TRUE(sink.lines().at(0).text.contains(u"damaged ("_s + c.why));
        EXPECT_EQ(fileBytes(path()), c.damaged);
        EXPECT_TRUE(damagedCopies().isEmpty());

        EXPECT_TRUE(store.setValue(u"new"_s, true, kDomain));
        ASSERT_TRUE(store.synchronize(kDomain));
        QVariantMap expected = c.salvaged;
        expected.insert(u"new"_s, true);
        EXPECT_TRUE(PropertyList::isEqual(onDisk(), expected));
        EXPECT_TRUE(PropertyList::isEqual(store.values(kDomain), expected));
        // Kept beside it, dated, and the log says where.
        const QStringList copies = damagedCopies();
        ASSERT_EQ(copies.size(), 1);
        EXPECT_TRUE(
            QRegularExpression(u"^com\\.kestrom\\.monitor\\.plist\\.damaged-\\d{8}-\\d{6}$"_s)
                .match(copies.at(0))
                .hasMatch())
            << copies.at(0).toStdString();
        EXPECT_EQ(fileBytes(folder() + u'/' + copies.at(0)), c.damaged);
        EXPECT_TRUE(PropertyList::isEqual(PreferenceStore(folder()).values(kDomain), expected));
        ASSERT_EQ(sink.lines().size(), 2);
        EXPECT_TRUE(sink.lines().at(1).text.contains(copies.at(0)));
    }
}

TEST_F(PreferenceStoreTest, ADomainAnotherProcessWroteIsReadAgainAndNeverBlocksLaterFlushes)
{
    PreferenceStore reader(folder());
    PreferenceStore trusting(folder());
    PreferenceStore other(folder());
    reader.setRecheckInterval(std::chrono::milliseconds(0));
    trusting.setRecheckInterval(std::chrono::hours(1));
    other.setValue(u"KSUseSchedulerDaemon"_s, false, kDomain);
    ASSERT_TRUE(other.synchronize(kDomain));
    EXPECT_EQ(reader.value(u"KSUseSchedulerDaemon"_s, kDomain), QVariant(false));
    EXPECT_EQ(trusting.value(u"KSUseSchedulerDaemon"_s, kDomain), QVariant(false));
    other.setValue(u"KSUseSchedulerDaemon"_s, true, kDomain);
    ASSERT_TRUE(other.synchronize(kDomain));
    EXPECT_EQ(reader.value(u"KSUseSchedulerDaemon"_s, kDomain), QVariant(true)) << "not stale";
    // Within its interval a read trusts the cache and costs no look at the file; a flush
    // reads the file anyway.
    EXPECT_EQ(trusting.value(u"KSUseSchedulerDaemon"_s, kDomain), QVariant(false));
    ASSERT_TRUE(trusting.synchronize(kDomain));
    EXPECT_EQ(trusting.value(u"KSUseSchedulerDaemon"_s, kDomain), QVariant(true));

    // A value no file can hold is refused, and the next good one still reaches the file.
    EXPECT_FALSE(reader.setValue(u"note"_s, QString(u"a\0b"_s), kDomain));
    EXPECT_FALSE(reader.setValue(u"note"_s, QString(QChar(0x1)), kDomain));
    EXPECT_TRUE(reader.setValue(u"note"_s, u"good"_s, kDomain));
    ASSERT_TRUE(reader.synchronize(kDomain));
    EXPECT_EQ(onDisk().value(u"note"_s), QVariant(u"good"_s));
}
