#include "status/RecentCaptures.h"

#include "../references/FakeVolumeCatalog.h"
#include "StatusFixture.h"
#include "messaging/ClientIdentifier.h"

#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {

// Archives in the "Disk" folder, which the fake volume table mounts as the volume "VOL-1".
class RecentCapturesTest : public StatusFixture
{
protected:
    void SetUp() override
    {
        StatusFixture::SetUp();
        VolumeCatalog::setShared(m_catalog);
        setMounted(true);
        m_history = std::make_shared<RecentCaptures>(
            QString(),
            [this] {
                // Asked in the middle of a rebuild: the cache must be free to read.
                if (m_queryDuringRebuild) {
                    m_answeredDuringRebuild = m_history->recentlyCapturedRepositories().size();
                }
                return m_now;
            },
            [this](std::function<void()> job) { m_jobs.append(std::move(job)); });
    }

    void TearDown() override
    {
        VolumeCatalog::setShared(nullptr);
        StatusFixture::TearDown();
    }

    void setMounted(bool mounted)
    {
        const QString disk = at(u"Disk"_s);
        QDir().mkpath(disk);
        m_catalog->setMounts(mounted ? QList<VolumeCatalog::Mount>{FakeVolumeCatalog::mountAt(disk)}
                                     : QList<VolumeCatalog::Mount>{},
                             {{disk, u"VOL-1"_s}});
    }

    // An archive captured `age` seconds ago whose outline holds those paths below "Disk".
    QString captured(const QString& name, qint64 age, const QStringList& outline = {})
    {
        const QString path = makeArchive(u"Disk/"_s + name, {{u"repositoryUUID"_s, name}});
        if (!outline.isEmpty()) {
            const ClientIdentifier owner(u"Me"_s, 5);
            QList<FQIdentifier> items;
            for (const QString& item : outline) {
                items.append(FullyQualifiedIdentifier::fullyQualifiedIdentifierWithPath(
                    at(u"Disk/"_s + item), owner));
            }
            EXPECT_EQ(RecentCaptures::writeOutline(path, items), QString());
        }
        EXPECT_EQ(RecentCaptures::recordCapture(path), QString());
        QFile history(historyFile(name));
        EXPECT_TRUE(history.open(QIODevice::ReadWrite));
        EXPECT_TRUE(history.setFileTime(m_now.addSecs(-age), QFileDevice::FileModificationTime));
        return path;
    }

    static QString historyFile(const QString& name)
    {
        return RecentCaptures::defaultFolder() + u"/"_s + name;
    }

    static QStringList namesOf(const QVariantList& records)
    {
        QStringList names;
        for (const QVariant& record : records) {
            names.append(record.toMap()[u"name"_s].toString());
        }
        return names;
    }

    QStringList recentNames() const { return namesOf(m_history->recentlyCapturedRepositories()); }

    QStringList namesFor(const QStringList& items) const
    {
        QStringList paths;
        for (const QString& item : items) {
            paths.append(at(u"Disk/"_s + item));
        }
        return namesOf(m_history->findRepositoriesForItems(paths));
    }

    // Asks for a rebuild and runs what the runner was given.
    void rebuild()
    {
        m_history->updateRecentRepositoryCache();
        runJobs();
    }

    void runJobs()
    {
        for (const auto& job : std::exchange(m_jobs, {})) {
            job();
        }
    }

    std::shared_ptr<FakeVolumeCatalog> m_catalog = std::make_shared<FakeVolumeCatalog>();
    std::shared_ptr<RecentCaptures> m_history;
    QList<std::function<void()>> m_jobs;
    bool m_queryDuringRebuild = false;
    qsizetype m_answeredDuringRebuild = -1;
};

TEST_F(RecentCapturesTest, RebuildKeepsFreshHistoriesAndDeletesStaleOnes)
{
    const QString newest = captured(u"Newest"_s, 60);
    captured(u"Oldest kept"_s, 2764800);
    captured(u"Too old"_s, 2764801);
    const QString deleted = captured(u"Deleted"_s, 120);
    ASSERT_TRUE(QDir(deleted).removeRecursively());
    const QString garbled = captured(u"Garbled"_s, 180);
    writeFile(garbled + u"/outline.index"_s, "\xa1\x01");
    writeFile(historyFile(u"Nothing"_s), "not a bookmark");
    // An outline that cannot be opened now may be readable later: the history stays.
    const QString unreadable = captured(u"Unreadable"_s, 240);
    ASSERT_TRUE(QDir(unreadable).mkpath(u"outline.index"_s));

    m_queryDuringRebuild = true;
    rebuild();
    EXPECT_EQ(m_answeredDuringRebuild, 0) << "the cache was locked during the rebuild's I/O";
    m_queryDuringRebuild = false;
    EXPECT_EQ(recentNames(), (QStringList{u"Newest"_s, u"Unreadable"_s, u"Oldest kept"_s}));
    const QVariantMap first = m_history->recentlyCapturedRepositories().value(0).toMap();
    EXPECT_EQ(first[u"path"_s], newest);
    EXPECT_EQ(first[u"cpath"_s], QFile::encodeName(newest) + QByteArray(1, '\0'));

    for (const auto& [name, logged] :
         {std::pair{u"Too old"_s,
                    u"Capture history for archive Too old hasn't been updated recently"_s},
          {u"Deleted"_s, u"Capture history for archive Deleted appears to have been deleted"_s},
          {u"Garbled"_s, u"Capture history for archive Garbled couldn't be interpreted"_s}}) {
        SCOPED_TRACE(name.toStdString());
        EXPECT_FALSE(QFile::exists(historyFile(name)));
        EXPECT_EQ(m_log->classesOf(logged), QList<int>{6});
        EXPECT_EQ(m_log->linesContaining(u"deleted "_s + historyFile(name)).size(), 1);
    }

    // A file that holds no bookmark is not the monitor's to delete; it is said once a rebuild.
    EXPECT_TRUE(QFile::exists(historyFile(u"Nothing"_s)));
    EXPECT_EQ(m_log->classesOf(u"Capture history file Nothing could not be read: no bookmark"_s),
              QList<int>{4});
    EXPECT_EQ(m_log->linesContaining(u"Outline of archive Unreadable could not be read"_s).size(),
              1);

    // A history that disappears is dropped from the cache with a note.
    ASSERT_TRUE(QFile::remove(historyFile(u"Newest"_s)));
    rebuild();
    EXPECT_EQ(recentNames(), (QStringList{u"Unreadable"_s, u"Oldest kept"_s}));
    EXPECT_EQ(m_log->linesContaining(u"removing recent alias 'Newest'"_s).size(), 1);
}

TEST_F(RecentCapturesTest, AnArchiveOnAnUnmountedVolumeIsKeptUntilItComesBack)
{
    captured(u"Travel"_s, 60, {u"Photos"_s});
    setMounted(false);
    rebuild();
    EXPECT_TRUE(QFile::exists(historyFile(u"Travel"_s)));
    EXPECT_TRUE(recentNames().isEmpty());

    setMounted(true);
    m_history->updateHistoryNotification(u"DiskEventVolumeWasUnmounted"_s);
    EXPECT_TRUE(m_jobs.isEmpty()) << "an unmount rebuilds nothing";
    // Requests while a rebuild waits join it, and one that re-evaluates makes it re-evaluate.
    m_history->updateRecentRepositoryCache();
    m_history->updateHistoryNotification(u"DiskEventVolumeDidMount"_s);
    m_history->updateRecentRepositoryCache();
    EXPECT_EQ(m_jobs.size(), 1);
    EXPECT_TRUE(recentNames().isEmpty()) << "nothing is rebuilt on the asking thread";
    runJobs();
    EXPECT_EQ(recentNames(), QStringList{u"Travel"_s});
    EXPECT_EQ(namesFor({u"Photos/beach.jpg"_s}), QStringList{u"Travel"_s});
}

TEST_F(RecentCapturesTest, ItemsFindTheArchivesThatHoldThem)
{
    captured(u"Older"_s, 600, {u"Shared/a.txt"_s, u"Docs"_s});
    captured(u"Newer"_s, 60, {u"Shared"_s, u"Music/song.mp3"_s});
    rebuild();
    const std::pair<QStringList, QStringList> rows[] = {
        {{u"Docs/letter.txt"_s}, {u"Older"_s}},
        {{u"Music/song.mp3"_s}, {u"Newer"_s}},
        {{u"Music/other.mp3"_s}, {}},
        {{u"Shared/a.txt"_s}, {u"Newer"_s, u"Older"_s}},
        {{u"Docs"_s, u"Music/song.mp3"_s}, {u"Newer"_s, u"Older"_s}},
        {{u"Elsewhere"_s}, {}},
    };
    for (const auto& [items, archives] : rows) {
        EXPECT_EQ(namesFor(items), archives) << items.join(u',').toStdString();
    }
}

} // namespace
