#pragma once

#include "../tracking/RecordingLogger.h"
#include "foundation/RelativeDate.h"
#include "preferences/ImpermanentValues.h"
#include "preferences/MonitorDefaults.h"
#include "preferences/PreferenceStore.h"
#include "preferences/PropertyList.h"
#include "preferences/WTUserPreferences.h"
#include "status/RepositoryStatus.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <gtest/gtest.h>

// A temporary configuration folder (XDG_CONFIG_HOME), a folder for archives, the monitor's
// defaults on it, a recording logger and a fixed "now": noon, 20 March 2024, local time.
class StatusFixture : public ::testing::Test
{
protected:
    struct Posted
    {
        QString name;
        QString source;
        QVariantMap info;
    };

    void SetUp() override
    {
        ASSERT_TRUE(m_dir.isValid());
        m_root = QFileInfo(m_dir.path()).canonicalFilePath();
        m_savedConfig = qgetenv("XDG_CONFIG_HOME");
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(m_root + QStringLiteral("/config")));
        QDir().mkpath(m_root + QStringLiteral("/config/Kestrom"));
        m_log = RecordingLogger::install();
        m_now = QDateTime(QDate(2024, 3, 20), QTime(12, 0));
        RelativeDate::setClock([this] { return m_now; });
        RepositoryStatus::setNotificationPoster(
            [this](const QString& name, const QString& source, const QVariantMap& info) {
                m_posted.append({name, source, info});
            });
        m_preferences = std::make_unique<WTUserPreferences>(
            std::make_shared<PreferenceStore>(PreferenceStore::defaultFolder()),
            [](std::chrono::milliseconds, WTUserPreferences::Task) {});
        m_defaults = std::make_unique<MonitorDefaults>(*m_preferences);
        m_ignores = std::make_unique<ImpermanentValues>(*m_defaults, [this] { return m_now; });
    }

    void TearDown() override
    {
        RepositoryStatus::setNotificationPoster({});
        RepositoryStatus::setMonotonicClock({});
        RelativeDate::setClock({});
        Logger::releaseDefaultLogger();
        qputenv("XDG_CONFIG_HOME", m_savedConfig);
    }

    QString at(const QString& relative) const { return m_root + QLatin1Char('/') + relative; }

    // An archive folder with a status file holding the values, or none when they are empty.
    QString makeArchive(const QString& name, const QVariantMap& values = {})
    {
        const QString path = at(name + QStringLiteral(".stromi"));
        EXPECT_TRUE(QDir().mkpath(path));
        if (!values.isEmpty()) {
            writeFile(path + QStringLiteral("/status.plist"), PropertyList::xmlData(values).data);
        }
        return path;
    }

    // A saved status of a new archive, with those properties set.
    std::shared_ptr<RepositoryStatus> savedArchive(const QString& name,
                                                   const QVariantMap& properties = {})
    {
        auto status = RepositoryStatus::statusForRepository(makeArchive(name));
        EXPECT_TRUE(status);
        for (auto it = properties.cbegin(); it != properties.cend(); ++it) {
            status->setProperty(it.value(), it.key());
        }
        status->save();
        return status;
    }

    static void writeFile(const QString& path, const QByteArray& data)
    {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(data);
    }

    static QVariantMap readPlist(const QString& path)
    {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? PropertyList::fromData(file.readAll()).value.toMap()
                                              : QVariantMap();
    }

    // Noon, that many calendar days before today.
    QDateTime noonDaysAgo(int days) const
    {
        return RelativeDate::dateOffsetBy(RelativeDate::startOfToday(), -days, RelativeDate::kDay)
            .addSecs(12 * 3600);
    }

    QTemporaryDir m_dir;
    QString m_root;
    QByteArray m_savedConfig;
    QDateTime m_now;
    std::shared_ptr<RecordingLogger> m_log;
    QList<Posted> m_posted;
    std::unique_ptr<WTUserPreferences> m_preferences;
    std::unique_ptr<MonitorDefaults> m_defaults;
    std::unique_ptr<ImpermanentValues> m_ignores;
};
