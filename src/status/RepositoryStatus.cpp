#include "status/RepositoryStatus.h"

#include "exception/KSException.h"
#include "foundation/KeyedArchive.h"
#include "foundation/KeyedDecoder.h"
#include "foundation/RelativeDate.h"
#include "logging/Logger.h"
#include "messaging/KSConnection.h"
#include "messaging/KSSwitchboardConnection.h"
#include "preferences/PreferenceStore.h"
#include "preferences/PropertyList.h"
#include "references/ResourceValues.h"

#include <QCollator>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QUuid>
#include <chrono>
#include <sys/statvfs.h>

namespace {

const QString kClassName = QStringLiteral("RepositoryStatus");

RepositoryStatus::Poster& poster()
{
    static RepositoryStatus::Poster s_poster;
    return s_poster;
}

RepositoryStatus::MonotonicClock& monotonicClock()
{
    static RepositoryStatus::MonotonicClock s_clock;
    return s_clock;
}

qint64 monotonicNow()
{
    if (monotonicClock()) {
        return monotonicClock()();
    }
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

QString newUUID()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
}

// A missing file gives none; anything that is there but is no dictionary throws.
std::optional<QVariantMap> readDictionary(const QString& path)
{
    const QFileInfo info(path);
    if (!info.exists()) {
        return std::nullopt;
    }
    QFile file(path);
    if (info.isDir() || !file.open(QIODevice::ReadOnly)) {
        KSException::exceptionWithName(QStringLiteral("IO"), QStringLiteral("unreadable status"))
            .setStrPath(path)
            .raise();
    }
    const PropertyList::Parsed parsed = PropertyList::fromData(file.readAll());
    if (!parsed.isValid() || PropertyList::kindOf(parsed.value) != PropertyList::Kind::Dictionary) {
        KSException::exceptionWithName(QStringLiteral("IO"),
                                       parsed.isValid() ? QStringLiteral("status is no dictionary")
                                                        : parsed.error)
            .setStrPath(path)
            .raise();
    }
    return parsed.value.toMap();
}

// An empty text on success, else why the file was not written.
QString writeDictionary(const QVariantMap& properties, const QString& path)
{
    const PropertyList::Serialized xml = PropertyList::xmlData(properties);
    if (!xml.isValid()) {
        return xml.error;
    }
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(xml.data) != xml.data.size() ||
        !file.commit()) {
        return file.errorString();
    }
    return {};
}

// A mirror names its archive and is named by the archive's UUID: without both as text it
// cannot stand for an archive (a damaged file, or one of a format this build does not know).
void checkMirrorTypes(const QVariantMap& properties, const QString& path)
{
    const QVariant uuid = properties.value(RepositoryStatus::kRepositoryUUID);
    const QVariant repository = properties.value(RepositoryStatus::kRepositoryPath);
    const bool uuidIsText = uuid.typeId() == QMetaType::QString && !uuid.toString().isEmpty();
    const bool pathIsText = !repository.isValid() || repository.typeId() == QMetaType::QString;
    if (!uuidIsText || !pathIsText) {
        KSException::exceptionWithName(QStringLiteral("IO"),
                                       uuidIsText ? QStringLiteral("archive path is no text")
                                                  : QStringLiteral("status has no UUID text"))
            .setStrPath(path)
            .raise();
    }
}

QString displayNameOfPath(const QString& path)
{
    const QFileInfo info(path);
    return info.fileName().isEmpty() ? QString()
                                     : ResourceValues::localizedName(info.fileName(), true);
}

} // namespace

std::shared_ptr<RepositoryStatus> RepositoryStatus::statusForRepository(const QString& path)
{
    std::shared_ptr<RepositoryStatus> status(new RepositoryStatus());
    try {
        status->initWithRepository(path);
    } catch (const std::exception& exception) {
        Logger::log(3, nullptr, QStringLiteral("Could not read the status of archive %1").arg(path),
                    &exception);
        return nullptr;
    }
    return status;
}

std::shared_ptr<RepositoryStatus> RepositoryStatus::statusFromMirrorPath(const QString& mirrorPath,
                                                                         QString* problem)
{
    std::shared_ptr<RepositoryStatus> status(new RepositoryStatus());
    try {
        std::optional<QVariantMap> properties = readDictionary(mirrorPath);
        if (!properties) {
            if (problem) {
                *problem = QStringLiteral("the file is gone");
            }
            return nullptr;
        }
        status->m_properties = std::move(*properties);
        checkMirrorTypes(status->m_properties, mirrorPath);
    } catch (const std::exception& exception) {
        Logger::log(3, nullptr,
                    QStringLiteral("Could not read archive status mirror %1").arg(mirrorPath),
                    &exception);
        if (problem) {
            const auto* known = dynamic_cast<const KSException*>(&exception);
            *problem = known ? known->reason() : QString::fromLocal8Bit(exception.what());
        }
        return nullptr;
    }
    status->m_mirrorStatusPath = mirrorPath;
    const QString repository = status->repositoryPath();
    if (!repository.isEmpty()) {
        status->m_repositoryStatusPath = QDir(repository).filePath(kStatusFileName);
    }
    status->m_lastModified = QFileInfo(mirrorPath).lastModified().toUTC();
    return status;
}

QString RepositoryStatus::storedUUIDForRepositoryURL(const QString& repositoryPath)
{
    try {
        const auto properties = readDictionary(QDir(repositoryPath).filePath(kStatusFileName));
        return properties ? properties->value(kRepositoryUUID).toString() : QString();
    } catch (const std::exception&) {
        // Whoever opens the archive's status logs the bad file; a UUID query just has none.
        return {};
    }
}

QList<std::shared_ptr<RepositoryStatus>> RepositoryStatus::all()
{
    QList<std::shared_ptr<RepositoryStatus>> statuses;
    const QDir folder(statusFolder());
    const QStringList names =
        folder.entryList({QStringLiteral("*.plist")},
                         QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System);
    for (const QString& name : names) {
        if (auto status = statusFromMirrorPath(folder.filePath(name))) {
            statuses.append(std::move(status));
        }
    }
    return statuses;
}

QString RepositoryStatus::statusFolder()
{
    return QDir(PreferenceStore::defaultFolder()).filePath(kStatusFolderName);
}

void RepositoryStatus::setNotificationPoster(Poster newPoster)
{
    poster() = std::move(newPoster);
}

void RepositoryStatus::setMonotonicClock(MonotonicClock clock)
{
    monotonicClock() = std::move(clock);
}

std::optional<QString> RepositoryStatus::propertyKeyForSelector(const QString& selector,
                                                                bool* isSetter)
{
    const qsizetype colon = selector.indexOf(QLatin1Char(':'));
    const bool setter = colon >= 0;
    if (selector.isEmpty() ||
        (setter && (colon != selector.size() - 1 || !selector.startsWith(QStringLiteral("set")) ||
                    selector.size() <= 4))) {
        return std::nullopt;
    }
    if (isSetter) {
        *isSetter = setter;
    }
    if (!setter) {
        return selector;
    }
    QString key = selector.mid(3, selector.size() - 4);
    key[0] = key[0].toLower();
    return key;
}

void RepositoryStatus::initWithRepository(const QString& repositoryPath)
{
    const QString complete = QFileInfo(repositoryPath).absoluteFilePath();
    m_repositoryStatusPath = QDir(complete).filePath(kStatusFileName);
    if (std::optional<QVariantMap> stored = readDictionary(m_repositoryStatusPath)) {
        m_properties = std::move(*stored);
        m_lastModified = QFileInfo(m_repositoryStatusPath).lastModified().toUTC();
    }
    // A status without an identity could not be mirrored.
    if (repositoryUUID().isEmpty()) {
        setProperty(newUUID(), kRepositoryUUID);
    }
    if (!m_lastModified.isValid()) {
        m_lastModified = RelativeDate::now().toUTC();
    }
    setProperty(complete, kRepositoryPath);
    setProperty(displayNameOfPath(complete), kDisplayName);
    detectCopy();
}

// A copied archive carries the original's status, UUID included; sharing the mirror would
// have the two overwrite each other's record.
void RepositoryStatus::detectCopy()
{
    std::optional<QVariantMap> mirror;
    try {
        mirror = readDictionary(mirrorStatusPath());
    } catch (const std::exception& exception) {
        Logger::log(
            3, nullptr,
            QStringLiteral("Ignoring unreadable archive status mirror %1").arg(mirrorStatusPath()),
            &exception);
        return;
    }
    const QString other = mirror ? mirror->value(kRepositoryPath).toString() : QString();
    if (other.isEmpty() || other == repositoryPath() || !QFileInfo::exists(other)) {
        return;
    }
    const QString otherReal = QFileInfo(other).canonicalFilePath();
    if (otherReal == QFileInfo(repositoryPath()).canonicalFilePath() ||
        !QFileInfo::exists(QDir(other).filePath(kStatusFileName))) {
        return;
    }
    setProperty(newUUID(), kRepositoryUUID);
    m_mirrorStatusPath.reset();
}

QString RepositoryStatus::mirrorStatusPath()
{
    if (!m_mirrorStatusPath) {
        m_mirrorStatusPath =
            QDir(statusFolder()).filePath(repositoryUUID() + QStringLiteral(".plist"));
    }
    return *m_mirrorStatusPath;
}

QVariant RepositoryStatus::propertyForKey(const QString& key) const
{
    return m_properties.value(key);
}

void RepositoryStatus::setProperty(const QVariant& value, const QString& key)
{
    const QVariant current = m_properties.value(key);
    if (PropertyList::isEqual(current, value)) {
        return;
    }
    if (value.isValid()) {
        m_properties.insert(key, value);
    } else {
        m_properties.remove(key);
    }
    m_dirty = true;
}

qint64 RepositoryStatus::integerProperty(const QString& key) const
{
    return PropertyList::integerValue(m_properties.value(key)).value_or(0);
}

bool RepositoryStatus::boolProperty(const QString& key) const
{
    return PropertyList::boolValue(m_properties.value(key)).value_or(false);
}

QDateTime RepositoryStatus::dateProperty(const QString& key) const
{
    const QVariant value = m_properties.value(key);
    return value.metaType() == QMetaType::fromType<QDateTime>() ? value.toDateTime() : QDateTime();
}

QString RepositoryStatus::repositoryUUID() const
{
    return m_properties.value(kRepositoryUUID).toString();
}

QString RepositoryStatus::repositoryPath() const
{
    return m_properties.value(kRepositoryPath).toString();
}

QString RepositoryStatus::displayName() const
{
    const QString name = m_properties.value(kDisplayName).toString();
    return name.isEmpty() ? displayNameOfPath(repositoryPath()) : name;
}

bool RepositoryStatus::needsRepair() const
{
    return boolProperty(kNeedsRepair);
}

QString RepositoryStatus::logLineIdentifier() const
{
    return m_properties.value(kLogLineIdentifier).toString();
}

QDateTime RepositoryStatus::lastCaptureDate() const
{
    return dateProperty(kLastCaptureDate);
}

double RepositoryStatus::meanCaptureInterval() const
{
    return PropertyList::doubleValue(m_properties.value(kMeanCaptureInterval)).value_or(0);
}

bool RepositoryStatus::captureWarning() const
{
    return boolProperty(kCaptureWarning);
}

QDateTime RepositoryStatus::lastVerifyDate() const
{
    return dateProperty(kLastVerifyDate);
}

bool RepositoryStatus::verifyWarning() const
{
    return boolProperty(kVerifyWarning);
}

QDateTime RepositoryStatus::lastCompactDate() const
{
    return dateProperty(kLastCompactDate);
}

qint64 RepositoryStatus::repositorySize() const
{
    return integerProperty(kRepositorySize);
}

qint64 RepositoryStatus::repositoryFree() const
{
    return integerProperty(kRepositoryFree);
}

qint64 RepositoryStatus::volumeSize() const
{
    return integerProperty(kVolumeSize);
}

qint64 RepositoryStatus::volumeFree() const
{
    return integerProperty(kVolumeFree);
}

void RepositoryStatus::updateSizes()
{
    qint64 total = 0;
    const QFileInfoList files =
        QDir(repositoryPath()).entryInfoList(QDir::Files | QDir::Hidden | QDir::NoSymLinks);
    for (const QFileInfo& file : files) {
        total += file.size();
    }
    setProperty(total, kRepositorySize);
    forgetVolumeAttributes();
    const VolumeAttributes volume = volumeAttributes();
    setProperty(volume.size, kVolumeSize);
    setProperty(volume.free, kVolumeFree);
}

RepositoryStatus::VolumeAttributes RepositoryStatus::volumeAttributes()
{
    const qint64 now = monotonicNow();
    if (m_volumeAttributes && now - m_volumeAttributesRead < kVolumeAttributesLifetimeMs) {
        return *m_volumeAttributes;
    }
    VolumeAttributes attributes;
    struct statvfs volume = {};
    if (!repositoryPath().isEmpty() &&
        ::statvfs(QFile::encodeName(repositoryPath()).constData(), &volume) == 0) {
        attributes.size = qint64(volume.f_blocks) * qint64(volume.f_frsize);
        attributes.free = qint64(volume.f_bavail) * qint64(volume.f_frsize);
    }
    m_volumeAttributes = attributes;
    m_volumeAttributesRead = now;
    return attributes;
}

void RepositoryStatus::forgetVolumeAttributes()
{
    m_volumeAttributes.reset();
}

qint64 RepositoryStatus::bestVolumeSize()
{
    const qint64 live = volumeAttributes().size;
    return live != 0 ? live : volumeSize();
}

qint64 RepositoryStatus::bestVolumeFree()
{
    const qint64 live = volumeAttributes().free;
    return live != 0 ? live : volumeFree();
}

void RepositoryStatus::save()
{
    if (!m_dirty) {
        return;
    }
    m_dirty = false;
    const QString archiveFailure = writeDictionary(m_properties, m_repositoryStatusPath);
    if (!archiveFailure.isEmpty()) {
        const LogLine line = Logger::log(2, QStringLiteral("Could not update archive status"));
        Logger::log(7, line, QStringLiteral("Path"), m_repositoryStatusPath);
        Logger::log(7, line, QStringLiteral("Error"), archiveFailure);
    }
    try {
        if (!QDir().mkpath(statusFolder())) {
            KSException::exceptionWithName(QStringLiteral("IO"),
                                           QStringLiteral("cannot create the status folder"))
                .setStrPath(statusFolder())
                .raise();
        }
        const QString mirrorFailure = writeDictionary(m_properties, mirrorStatusPath());
        if (!mirrorFailure.isEmpty()) {
            KSException::exceptionWithName(QStringLiteral("IO"), mirrorFailure)
                .setStrPath(mirrorStatusPath())
                .raise();
        }
        postDidChange();
    } catch (const std::exception& exception) {
        Logger::log(2, nullptr, QStringLiteral("Could not update archive mirror status"),
                    &exception);
    }
}

void RepositoryStatus::postDidChange()
{
    const QVariantMap info{{QStringLiteral("StatusUUID"), repositoryUUID()},
                           {QStringLiteral("StatusMirror"), mirrorStatusPath()},
                           {QStringLiteral("RepositoryPath"), repositoryPath()}};
    if (poster()) {
        poster()(kDidChangeNotification, kNotificationSource, info);
    } else if (const auto switchboard = KSConnection::switchboardConnection()) {
        switchboard->postNotification(kDidChangeNotification, kNotificationSource, info);
    }
}

bool RepositoryStatus::retire()
{
    QFile mirror(mirrorStatusPath());
    if (!mirror.remove()) {
        const LogLine line = Logger::log(
            3, QStringLiteral("Unable to forget the status of archive %1").arg(displayName()));
        Logger::log(7, line, QStringLiteral("Path"), mirrorStatusPath());
        Logger::log(7, line, QStringLiteral("Error"), mirror.errorString());
        return false;
    }
    return true;
}

QVariantMap RepositoryStatus::eventState() const
{
    return {{kRepairEvent, needsRepair()}};
}

std::optional<QStringList>
RepositoryStatus::eventChangesFromPreviousState(const QVariantMap& previous) const
{
    QStringList changed;
    const QVariantMap current = eventState();
    for (auto it = current.cbegin(); it != current.cend(); ++it) {
        if (!PropertyList::isEqual(it.value(), previous.value(it.key()))) {
            changed.append(it.key());
        }
    }
    if (changed.isEmpty()) {
        return std::nullopt;
    }
    return changed;
}

int RepositoryStatus::compareName(const RepositoryStatus& other) const
{
    QCollator collator;
    collator.setNumericMode(true);
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    const QString mine = displayName().normalized(QString::NormalizationForm_KC);
    const QString theirs = other.displayName().normalized(QString::NormalizationForm_KC);
    const int order = collator.compare(mine, theirs);
    // Names that only differ in case or width still get one fixed order.
    return order != 0 ? order : displayName().compare(other.displayName());
}

int RepositoryStatus::compareFreshness(const RepositoryStatus& other) const
{
    if (m_lastModified == other.m_lastModified) {
        return 0;
    }
    return m_lastModified > other.m_lastModified ? -1 : 1;
}

QVariantMap RepositoryStatus::encodedFields() const
{
    QVariantMap fields{{QStringLiteral("statusURL"), m_repositoryStatusPath},
                       {QStringLiteral("props"), m_properties},
                       {QStringLiteral("modified"), m_lastModified},
                       {QStringLiteral("dirty"), m_dirty}};
    if (m_mirrorStatusPath) {
        fields.insert(QStringLiteral("mirrorURL"), *m_mirrorStatusPath);
    }
    if (m_volumeAttributes) {
        fields.insert(QStringLiteral("volAttrs"),
                      QVariantMap{{QStringLiteral("size"), m_volumeAttributes->size},
                                  {QStringLiteral("free"), m_volumeAttributes->free}});
    }
    return fields;
}

std::shared_ptr<RepositoryStatus> RepositoryStatus::fromEncodedFields(const QVariantMap& fields)
{
    std::shared_ptr<RepositoryStatus> status(new RepositoryStatus());
    status->m_repositoryStatusPath = fields.value(QStringLiteral("statusURL")).toString();
    if (fields.contains(QStringLiteral("mirrorURL"))) {
        status->m_mirrorStatusPath = fields.value(QStringLiteral("mirrorURL")).toString();
    }
    status->m_properties = fields.value(QStringLiteral("props")).toMap();
    status->m_lastModified = fields.value(QStringLiteral("modified")).toDateTime();
    const QVariantMap volume = fields.value(QStringLiteral("volAttrs")).toMap();
    if (!volume.isEmpty()) {
        status->m_volumeAttributes = VolumeAttributes{
            PropertyList::integerValue(volume.value(QStringLiteral("size"))).value_or(0),
            PropertyList::integerValue(volume.value(QStringLiteral("free"))).value_or(0)};
        status->m_volumeAttributesRead = monotonicNow();
    }
    return status;
}

void RepositoryStatus::registerArchivableClass()
{
    KeyedArchive::registerClass<std::shared_ptr<RepositoryStatus>>(
        kClassName,
        [](const QVariant& object) {
            const auto status = object.value<std::shared_ptr<RepositoryStatus>>();
            return status ? status->encodedFields() : QVariantMap();
        },
        [](const KeyedDecoder& coder) {
            const QSet<QString> plist = KeyedArchive::propertyListClasses();
            QVariantMap fields;
            for (const QString& key :
                 {QStringLiteral("statusURL"), QStringLiteral("mirrorURL"), QStringLiteral("props"),
                  QStringLiteral("volAttrs"), QStringLiteral("modified")}) {
                const QVariant value = coder.decodeObject(key, plist);
                if (value.isValid()) {
                    fields.insert(key, value);
                }
            }
            return QVariant::fromValue(fromEncodedFields(fields));
        });
}

namespace {
[[maybe_unused]] const bool s_registered = (RepositoryStatus::registerArchivableClass(), true);
}
