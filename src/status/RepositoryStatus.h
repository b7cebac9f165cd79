#pragma once

#include "references/Repository.h"

#include <QDateTime>
#include <QList>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVariantMap>
#include <functional>
#include <memory>
#include <optional>

// The status record of one archive, written by the commands that work on it and read by the
// monitor. The same property list lives in two places: "status.plist" inside the archive and a
// per-user mirror named by the archive's UUID, so that archives that are not mounted can still
// be graded. Main thread only; reading never throws (a bad file gives no record, logged once).
class RepositoryStatus : public Repository
{
public:
    using Poster =
        std::function<void(const QString& name, const QString& source, const QVariantMap& info)>;
    // Milliseconds on a clock that never goes back.
    using MonotonicClock = std::function<qint64()>;

    struct VolumeAttributes
    {
        qint64 size = 0;
        qint64 free = 0;
    };

    static inline const QString kStatusFileName = QStringLiteral("status.plist");
    static inline const QString kStatusFolderName = QStringLiteral("Status");
    static inline const QString kDidChangeNotification =
        QStringLiteral("RepositoryStatusDidChange");
    static inline const QString kNotificationSource = QStringLiteral("Repository");
    static constexpr qint64 kVolumeAttributesLifetimeMs = 3000;

    static inline const QString kRepositoryUUID = QStringLiteral("repositoryUUID");
    static inline const QString kRepositoryPath = QStringLiteral("repositoryPath");
    static inline const QString kDisplayName = QStringLiteral("displayName");
    static inline const QString kNeedsRepair = QStringLiteral("needsRepair");
    static inline const QString kLogLineIdentifier = QStringLiteral("logLineIdentifier");
    static inline const QString kLastCaptureDate = QStringLiteral("lastCaptureDate");
    static inline const QString kMeanCaptureInterval = QStringLiteral("meanCaptureInterval");
    static inline const QString kCaptureWarning = QStringLiteral("captureWarning");
    static inline const QString kLastVerifyDate = QStringLiteral("lastVerifyDate");
    static inline const QString kVerifyWarning = QStringLiteral("verifyWarning");
    static inline const QString kLastCompactDate = QStringLiteral("lastCompactDate");
    static inline const QString kRepositorySize = QStringLiteral("repositorySize");
    static inline const QString kRepositoryFree = QStringLiteral("repositoryFree");
    static inline const QString kVolumeSize = QStringLiteral("volumeSize");
    static inline const QString kVolumeFree = QStringLiteral("volumeFree");
    static inline const QString kRepairEvent = QStringLiteral("repair");

    RepositoryStatus(const RepositoryStatus&) = delete;
    RepositoryStatus& operator=(const RepositoryStatus&) = delete;

    // None (and one log line) when a file exists but cannot be read as a status.
    static std::shared_ptr<RepositoryStatus> statusForRepository(const QString& repositoryPath);
    // `problem`, when given, says why a mirror gave no record.
    static std::shared_ptr<RepositoryStatus> statusFromMirrorPath(const QString& mirrorPath,
                                                                  QString* problem = nullptr);
    static QString storedUUIDForRepositoryURL(const QString& repositoryPath);
    // Every readable mirror; unreadable ones are logged and skipped.
    static QList<std::shared_ptr<RepositoryStatus>> all();
    // $XDG_CONFIG_HOME/Kestrom/Status, looked up now.
    static QString statusFolder();

    // Where saves announce themselves; an empty poster restores the switchboard.
    static void setNotificationPoster(Poster poster);
    static void setMonotonicClock(MonotonicClock clock);

    // The property a dynamic accessor names: "x" reads key x, "setX:" writes key x. None for a
    // name that is neither.
    static std::optional<QString> propertyKeyForSelector(const QString& selector, bool* isSetter);

    QString repositoryStatusPath() const { return m_repositoryStatusPath; }
    QString mirrorStatusPath();
    const QVariantMap& properties() const { return m_properties; }
    QDateTime lastModified() const { return m_lastModified; }
    bool isDirty() const { return m_dirty; }

    QVariant propertyForKey(const QString& key) const;
    // An equal value changes nothing; an invalid one removes the key.
    void setProperty(const QVariant& value, const QString& key);

    QString repositoryUUID() const;
    QString repositoryPath() const override;
    QString displayName() const;
    bool needsRepair() const;
    QString logLineIdentifier() const;
    QDateTime lastCaptureDate() const;
    double meanCaptureInterval() const;
    bool captureWarning() const;
    QDateTime lastVerifyDate() const;
    bool verifyWarning() const;
    QDateTime lastCompactDate() const;
    qint64 repositorySize() const;
    qint64 repositoryFree() const;
    qint64 volumeSize() const;
    qint64 volumeFree() const;

    // Sums the files directly inside the archive and reads its volume's size and free space.
    void updateSizes();
    // Read from the file system at most once per kVolumeAttributesLifetimeMs.
    VolumeAttributes volumeAttributes();
    void forgetVolumeAttributes();
    qint64 bestVolumeSize();
    qint64 bestVolumeFree();

    void save();
    // Deletes the mirror; false (logged) when it is still there.
    bool retire();

    QVariantMap eventState() const;
    // The keys whose value differs from the previous state; none when nothing changed.
    std::optional<QStringList> eventChangesFromPreviousState(const QVariantMap& previous) const;

    // Negative, zero or positive, as for a sort.
    int compareName(const RepositoryStatus& other) const;
    // Most recently modified first.
    int compareFreshness(const RepositoryStatus& other) const;

    // The keyed fields of the archived form; a decoded record starts clean.
    QVariantMap encodedFields() const;
    static std::shared_ptr<RepositoryStatus> fromEncodedFields(const QVariantMap& fields);
    static void registerArchivableClass();

private:
    RepositoryStatus() = default;

    void initWithRepository(const QString& repositoryPath);
    void detectCopy();
    void postDidChange();
    qint64 integerProperty(const QString& key) const;
    bool boolProperty(const QString& key) const;
    QDateTime dateProperty(const QString& key) const;

    QString m_repositoryStatusPath;
    std::optional<QString> m_mirrorStatusPath;
    QVariantMap m_properties;
    std::optional<VolumeAttributes> m_volumeAttributes;
    qint64 m_volumeAttributesRead = 0;
    QDateTime m_lastModified;
    bool m_dirty = false;
};

Q_DECLARE_METATYPE(std::shared_ptr<RepositoryStatus>)
