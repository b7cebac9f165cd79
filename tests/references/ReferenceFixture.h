#pragma once

#include "FakeVolumeCatalog.h"
#include "references/RepositoryAliasReference.h"
#include "references/VolumeSearch.h"
#include "tracking/RecordingLogger.h"

#include <QCborArray>
#include <QCborMap>
#include <QCborValue>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <sys/stat.h>

// Real folders in a temporary folder; its "Disk" subfolder is mounted, as the fake mount table
// says, as the volume "VOL-1" (the device is the real one, so inodes can be searched). Log lines
// are recorded.
class ReferenceFixture : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_dir.isValid());
        m_root = QFileInfo(m_dir.path()).canonicalFilePath();
        VolumeCatalog::setShared(m_catalog);
        mount(QStringLiteral("Disk"), QStringLiteral("VOL-1"));
        m_logger = RecordingLogger::install();
    }

    void TearDown() override
    {
        VolumeCatalog::setShared(nullptr);
        VolumeSearch::setDefaultLimits({});
        RepositoryAliasReference::setAliasRecordConverter({});
        Logger::releaseDefaultLogger();
    }

    // A keyed archive of one object of that class with those fields.
    static QByteArray objectArchive(const QString& className, const QCborMap& fields)
    {
        return QCborValue(QCborTag(27), QCborArray{className, fields}).toCbor();
    }

    // The fake table holds one volume, at that folder below the temporary folder.
    void mount(const QString& relative, const QString& uuid)
    {
        const QString point = at(relative);
        QDir().mkpath(point);
        m_catalog->setMounts({FakeVolumeCatalog::mountAt(point)}, {{point, uuid}});
    }

    QString at(const QString& relative) const { return m_root + QLatin1Char('/') + relative; }

    QString makeFolder(const QString& relative) const
    {
        EXPECT_TRUE(QDir().mkpath(at(relative)));
        return at(relative);
    }

    bool move(const QString& from, const QString& to) const
    {
        QDir().mkpath(QFileInfo(at(to)).path());
        return QDir().rename(at(from), at(to));
    }

    QTemporaryDir m_dir;
    QString m_root;
    std::shared_ptr<FakeVolumeCatalog> m_catalog = std::make_shared<FakeVolumeCatalog>();
    std::shared_ptr<RecordingLogger> m_logger;
};
