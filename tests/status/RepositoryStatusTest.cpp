#include "StatusFixture.h"
#include "status/RepositoryStatusEvents.h"

#include <QProcess>

using namespace Qt::StringLiterals;

namespace {

class RepositoryStatusTest : public StatusFixture
{
protected:
    QString mirrorOf(const QString& uuid) const
    {
        return RepositoryStatus::statusFolder() + u"/"_s + uuid + u".plist"_s;
    }
};

TEST_F(RepositoryStatusTest, SaveWritesBothFilesAndAnnouncesTheChange)
{
    const QString path = makeArchive(u"Photos"_s);
    auto status = RepositoryStatus::statusForRepository(path);
    ASSERT_TRUE(status);
    const QString uuid = status->repositoryUUID();
    EXPECT_FALSE(uuid.isEmpty());
    EXPECT_EQ(status->displayName(), u"Photos"_s);
    EXPECT_TRUE(status->isDirty());
    status->setProperty(true, RepositoryStatus::kCaptureWarning);
    status->save();
    EXPECT_FALSE(status->isDirty());

    EXPECT_EQ(readPlist(path + u"/status.plist"_s), status->properties());
    EXPECT_EQ(readPlist(mirrorOf(uuid)), status->properties());
    ASSERT_EQ(m_posted.size(), 1);
    EXPECT_EQ(m_posted[0].name, u"RepositoryStatusDidChange"_s);
    EXPECT_EQ(m_posted[0].source, u"Repository"_s);
    EXPECT_EQ(m_posted[0].info, (QVariantMap{{u"StatusUUID"_s, uuid},
                                             {u"StatusMirror"_s, mirrorOf(uuid)},
                                             {u"RepositoryPath"_s, path}}));

    // Reopened: the same record, clean; an equal value changes nothing, so nothing is saved.
    auto again = RepositoryStatus::statusForRepository(path);
    ASSERT_TRUE(again);
    EXPECT_EQ(again->repositoryUUID(), uuid);
    EXPECT_TRUE(again->captureWarning());
    EXPECT_FALSE(again->isDirty());
    again->setProperty(true, RepositoryStatus::kCaptureWarning);
    again->save();
    EXPECT_EQ(m_posted.size(), 1);

    again->retire();
    EXPECT_FALSE(QFile::exists(mirrorOf(uuid)));
    again->retire();
    EXPECT_EQ(m_log->linesContaining(u"Unable to forget the status of archive Photos"_s).size(), 1);
}

TEST_F(RepositoryStatusTest, ACopiedArchiveGetsItsOwnIdentity)
{
    const auto original = savedArchive(u"Work"_s, {{u"lastCaptureDate"_s, m_now}});
    const QString originalMirror = mirrorOf(original->repositoryUUID());
    const QVariantMap before = readPlist(originalMirror);
    ASSERT_EQ(QProcess::execute(u"cp"_s, {u"-a"_s, at(u"Work.stromi"_s), at(u"Copy.stromi"_s)}), 0);

    auto copy = RepositoryStatus::statusForRepository(at(u"Copy.stromi"_s));
    ASSERT_TRUE(copy);
    EXPECT_NE(copy->repositoryUUID(), original->repositoryUUID());
    EXPECT_EQ(copy->lastCaptureDate(), m_now);
    copy->save();
    EXPECT_EQ(readPlist(originalMirror), before);
    EXPECT_EQ(readPlist(mirrorOf(copy->repositoryUUID()))[u"repositoryPath"_s],
              at(u"Copy.stromi"_s));
    EXPECT_EQ(RepositoryStatus::storedUUIDForRepositoryURL(at(u"Copy.stromi"_s)),
              copy->repositoryUUID());

    // A moved archive (the old place is gone) and a second opening of the original keep theirs.
    ASSERT_TRUE(QDir().rename(at(u"Work.stromi"_s), at(u"Moved.stromi"_s)));
    EXPECT_EQ(RepositoryStatus::statusForRepository(at(u"Moved.stromi"_s))->repositoryUUID(),
              original->repositoryUUID());
    EXPECT_EQ(RepositoryStatus::statusForRepository(at(u"Copy.stromi"_s))->repositoryUUID(),
              copy->repositoryUUID());
}

TEST_F(RepositoryStatusTest, BadFilesAreLoggedOnceAndTheOthersStillListed)
{
    savedArchive(u"Good"_s);
    const QString corrupt = makeArchive(u"Corrupt"_s);
    writeFile(corrupt + u"/status.plist"_s, "<?xml version=\"1.0\"?><plist><dict><key>repos");
    const QString notDictionary = makeArchive(u"Array"_s);
    writeFile(notDictionary + u"/status.plist"_s, PropertyList::xmlData(QVariantList{1}).data);
    writeFile(mirrorOf(u"TRUNCATED"_s), "bplist00\x01");
    ASSERT_TRUE(QDir().mkpath(mirrorOf(u"DIRECTORY"_s)));

    for (const QString& archive : {corrupt, notDictionary}) {
        EXPECT_FALSE(RepositoryStatus::statusForRepository(archive));
        EXPECT_EQ(
            m_log->linesContaining(u"Could not read the status of archive "_s + archive).size(), 1);
    }
    const auto all = RepositoryStatus::all();
    ASSERT_EQ(all.size(), 1);
    EXPECT_EQ(all[0]->displayName(), u"Good"_s);
    EXPECT_EQ(all[0]->repositoryStatusPath(), at(u"Good.stromi/status.plist"_s));
    for (const QString& bad : {mirrorOf(u"TRUNCATED"_s), mirrorOf(u"DIRECTORY"_s)}) {
        EXPECT_EQ(m_log->linesContaining(u"Could not read archive status mirror "_s + bad).size(),
                  1);
    }

    // An archive whose mirror place is taken by a folder is still opened and saved inside.
    const QString blocked = makeArchive(u"Blocked"_s, {{u"repositoryUUID"_s, u"DIRECTORY"_s}});
    auto status = RepositoryStatus::statusForRepository(blocked);
    ASSERT_TRUE(status);
    status->setProperty(true, RepositoryStatus::kNeedsRepair);
    status->save();
    EXPECT_TRUE(readPlist(blocked + u"/status.plist"_s)[u"needsRepair"_s].toBool());
    EXPECT_EQ(m_log->linesContaining(u"Could not update archive mirror status"_s).size(), 1);
    EXPECT_TRUE(m_posted.size() == 1) << "only the good archive announced itself";
}

TEST_F(RepositoryStatusTest, SizesAndTheVolumeAttributeCache)
{
    const QString path = makeArchive(u"Sized"_s);
    writeFile(path + u"/a"_s, QByteArray(1000, 'a'));
    writeFile(path + u"/b"_s, QByteArray(234, 'b'));
    QDir().mkpath(path + u"/sub"_s);
    writeFile(path + u"/sub/c"_s, QByteArray(5000, 'c'));
    auto status = RepositoryStatus::statusForRepository(path);
    status->updateSizes();
    EXPECT_EQ(status->repositorySize(), 1234 + QFileInfo(path + u"/status.plist"_s).size());
    EXPECT_GT(status->volumeSize(), 0);
    EXPECT_GT(status->volumeFree(), 0);

    // A record decoded with remembered attributes serves them until 3 s have passed.
    qint64 clock = 1'000'000;
    RepositoryStatus::setMonotonicClock([&clock] { return clock; });
    QVariantMap fields = status->encodedFields();
    fields[u"volAttrs"_s] = QVariantMap{{u"size"_s, qint64(7)}, {u"free"_s, qint64(3)}};
    auto decoded = RepositoryStatus::fromEncodedFields(fields);
    clock += 2999;
    EXPECT_EQ(decoded->bestVolumeSize(), 7);
    EXPECT_EQ(decoded->bestVolumeFree(), 3);
    clock += 1;
    EXPECT_EQ(decoded->bestVolumeSize(), status->volumeSize());
}

TEST_F(RepositoryStatusTest, AccessorNamesAndOrdering)
{
    const std::tuple<QString, std::optional<QString>, bool> selectors[] = {
        {u"lastCaptureDate"_s, u"lastCaptureDate"_s, false},
        {u"setVolumeFree:"_s, u"volumeFree"_s, true},
        {u"volumeFree:"_s, std::nullopt, false},
        {u"setA:b:"_s, std::nullopt, false},
        {u"set:"_s, std::nullopt, false}};
    for (const auto& [selector, key, isSetter] : selectors) {
        SCOPED_TRACE(selector.toStdString());
        bool setter = false;
        EXPECT_EQ(RepositoryStatus::propertyKeyForSelector(selector, &setter), key);
        EXPECT_EQ(setter, isSetter);
    }

    auto a2 = RepositoryStatus::statusForRepository(makeArchive(u"archive 2"_s));
    auto a10 = RepositoryStatus::statusForRepository(makeArchive(u"Archive 10"_s));
    auto upper = RepositoryStatus::statusForRepository(makeArchive(u"ARCHIVE 2"_s));
    EXPECT_LT(a2->compareName(*a10), 0);
    EXPECT_GT(a10->compareName(*a2), 0);
    EXPECT_NE(a2->compareName(*upper), 0);
    EXPECT_EQ(a2->compareName(*upper), -upper->compareName(*a2));
    EXPECT_EQ(a2->compareName(*a2), 0);
}

class RepositoryStatusEventsTest : public StatusFixture
{
protected:
    RepositoryStatusEvents::Channels channels()
    {
        return {[this](const QString& name, const QString& source, const QVariantMap& info) {
                    m_announced.append({name, source, info});
                },
                [this](int type, const QString& title, const QString& details, const QString& id) {
                    m_notified.append(u"%1|%2|%3|%4"_s.arg(type).arg(title, details, id));
                },
                [this](const QString& id) {
                    m_withdrawn.append(id);
                }};
    }

    QList<Posted> m_announced;
    QStringList m_notified;
    QStringList m_withdrawn;
};

TEST_F(RepositoryStatusEventsTest, ARepairEventFiresOnceEvenAcrossRestarts)
{
    auto status = savedArchive(u"Mail"_s, {{u"needsRepair"_s, true}});
    const QString uuid = status->repositoryUUID();
    {
        RepositoryStatusEvents events(*m_defaults, channels());
        EXPECT_EQ(events.didChangeStatusForRepository(uuid, status->mirrorStatusPath()),
                  QStringList{u"repair"_s});
        EXPECT_TRUE(
            events.didChangeStatusForRepository(uuid, status->mirrorStatusPath()).isEmpty());
    }
    ASSERT_EQ(m_announced.size(), 1);
    EXPECT_EQ(m_announced[0].name, u"RepositoryStatusChanged"_s);
    EXPECT_EQ(m_announced[0].source, u"com.kestrom.monitor"_s);
    EXPECT_EQ(m_announced[0].info, (QVariantMap{{u"status"_s, u"repair"_s},
                                                {u"event.value"_s, true},
                                                {u"rep.path"_s, at(u"Mail.stromi"_s)},
                                                {u"rep.id"_s, uuid}}));
    EXPECT_EQ(m_notified, QStringList{u"3|Archive Needs Repair|Mail|"_s + uuid});

    // A restarted monitor reads what it already acted on from its defaults.
    m_preferences->synchronize();
    WTUserPreferences restartedPreferences(
        std::make_shared<PreferenceStore>(PreferenceStore::defaultFolder()),
        [](std::chrono::milliseconds, WTUserPreferences::Task) {});
    MonitorDefaults restartedDefaults(restartedPreferences);
    RepositoryStatusEvents restarted(restartedDefaults, channels());
    EXPECT_TRUE(restarted.didChangeStatusForRepository(uuid, status->mirrorStatusPath()).isEmpty());

    status->setProperty(false, RepositoryStatus::kNeedsRepair);
    status->save();
    EXPECT_EQ(restarted.didChangeStatusForRepository(uuid, status->mirrorStatusPath()),
              QStringList{u"repair"_s});
    EXPECT_EQ(m_withdrawn, QStringList{uuid});
    EXPECT_EQ(m_notified.size(), 1);
    EXPECT_TRUE(restarted.didChangeStatusForRepository(uuid, at(u"missing.plist"_s)).isEmpty());
}

TEST_F(RepositoryStatusEventsTest, AtTheStartWhatChangedUnwatchedFiresAndGoneArchivesAreForgotten)
{
    auto broken = savedArchive(u"Broken"_s, {{u"needsRepair"_s, true}});
    auto fine = savedArchive(u"Fine"_s);
    RepositoryStatusEvents events(*m_defaults, channels());
    // Known from an earlier run: the fine archive as it is, and one whose status is gone.
    m_defaults->setObject(QVariantMap{{fine->repositoryUUID(), fine->eventState()},
                                      {u"GONE"_s, broken->eventState()}},
                          MonitorDefaults::kMonitorRepositoryEventStates);

    EXPECT_EQ(events.catchUpWithKnownStatuses(), QStringList{broken->repositoryUUID()});
    EXPECT_EQ(m_notified,
              QStringList{u"3|Archive Needs Repair|Broken|"_s + broken->repositoryUUID()});
    QStringList kept{broken->repositoryUUID(), fine->repositoryUUID()};
    kept.sort();
    EXPECT_EQ(m_defaults->monitorRepositoryEventStates().keys(), kept);
    // Caught up: neither a second start nor the notice of the same save fires again.
    EXPECT_TRUE(events.catchUpWithKnownStatuses().isEmpty());
    EXPECT_TRUE(
        events.didChangeStatusForRepository(broken->repositoryUUID(), broken->mirrorStatusPath())
            .isEmpty());
    EXPECT_EQ(m_notified.size(), 1);
}

} // namespace
