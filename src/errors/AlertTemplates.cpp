#include "errors/AlertTemplates.h"

#include "errors/AlertActionSet.h"

namespace {
// Styles and actions are spelt out in each template so that a row reads like the table it
// was copied from.
constexpr AlertTemplate kDiskFull{
    AlertTemplate::kCriticalStyle,
    u"{Command} ran out of disk space",
    u"There was insufficient free disk space to finish. Free some disk space by deleting "
    u"unneccessary files, or make the archive smaller by increasing compression or merging layers.",
    {},
    {AlertActionSet::kOK, AlertActionSet::kOpenLog, AlertActionSet::kNoAction}};
constexpr AlertTemplate kRecallFull{
    AlertTemplate::kCriticalStyle,
    u"{Command} ran out of disk space",
    u"There was not enough free disk space to finish recalling the items. Some items were not "
    u"successfully recalled. Free some disk space by deleting any unnecessary files and try again.",
    {},
    {AlertActionSet::kOK, AlertActionSet::kOpenLog, AlertActionSet::kNoAction}};
constexpr AlertTemplate kSoftSize{
    AlertTemplate::kCriticalStyle,
    u"Archive exceeds maximum size",
    u"The archive has reached its maximum size. Compact the archive, and possibly merge or delete "
    u"layers, to make the archive smaller.",
    {},
    {AlertActionSet::kOK, AlertActionSet::kNoAction, AlertActionSet::kNoAction}};
constexpr AlertTemplate kNullCapture{
    AlertTemplate::kInformationalStyle,
    u"Nothing Captured",
    u"There was nothing new to add to the archive.",
    {},
    {AlertActionSet::kOK, AlertActionSet::kNoAction, AlertActionSet::kNoAction}};
constexpr AlertTemplate kIffyCapture{
    AlertTemplate::kWarningStyle,
    u"{Command} encountered problems",
    u"One or more problems were encountered during the capture. See 'Capture issues' in the log "
    u"for additional details.",
    u"captureissues",
    {AlertActionSet::kOK, AlertActionSet::kOpenLog, AlertActionSet::kNoAction}};
constexpr AlertTemplate kIffyRecall{
    AlertTemplate::kWarningStyle,
    u"{Command} encountered problems",
    u"One or more problems were encountered while recalling the items. See the log for additional "
    u"details.",
    {},
    {AlertActionSet::kOK, AlertActionSet::kOpenLog, AlertActionSet::kNoAction}};
constexpr AlertTemplate kIffyOpen{
    AlertTemplate::kWarningStyle,
    u"{Command} could not open some items",
    u"Some recalled items could not be opened. See the log for additional details.",
    {},
    {AlertActionSet::kOK, AlertActionSet::kOpenLog, AlertActionSet::kNoAction}};
constexpr AlertTemplate kNoblessAPFS{
    AlertTemplate::kWarningStyle,
    u"{Command} could not bless the volume",
    u"Some versions of macOS cannot make a restored APFS volume bootable. Run the macOS Installer "
    u"and reinstall macOS on the restored volume.",
    u"blessapfs",
    {AlertActionSet::kOK, AlertActionSet::kNoAction, AlertActionSet::kNoAction}};
constexpr AlertTemplate kItemsOverlap{
    AlertTemplate::kWarningStyle,
    u"Item layers overlap",
    u"The items being combined have overlapping captures. The last capture of the first item must "
    u"have happened before to the earliest capture of the second item.",
    u"combineitems",
    {AlertActionSet::kOK, AlertActionSet::kNoAction, AlertActionSet::kNoAction}};
constexpr AlertTemplate kNoSessions{
    AlertTemplate::kWarningStyle,
    u"No free session IDs (internal)",
    u"Combining these items require a layer to be split, and there are no usable layer identifiers "
    u"available. Merge the layer with a subsequent layer and try again.",
    u"combineitems",
    {AlertActionSet::kOK, AlertActionSet::kNoAction, AlertActionSet::kNoAction}};
constexpr AlertTemplate kProhibitedAccess{
    AlertTemplate::kWarningStyle,
    u"Access Prohibited",
    u"Access to an item was denied. You may need to grant access to your private data (use the "
    u"Capture Assistant).",
    u"assistfda",
    {AlertActionSet::kOK, AlertActionSet::kNoAction, AlertActionSet::kNoAction}};
constexpr AlertTemplate kCaptureStopped{
    AlertTemplate::kWarningStyle,
    u"Capture Stopped",
    u"The layer created by this capture is incomplete and may be missing items. Use caution when "
    u"recalling items in this layer.",
    {},
    {AlertActionSet::kOK, AlertActionSet::kNoAction, AlertActionSet::kNoAction}};
constexpr AlertTemplate kRecallStopped{
    AlertTemplate::kWarningStyle,
    u"{Command} Stopped",
    u"Some items were not recalled.",
    {},
    {AlertActionSet::kOK, AlertActionSet::kNoAction, AlertActionSet::kNoAction}};
constexpr AlertTemplate kMergeStopped{
    AlertTemplate::kWarningStyle,
    u"Merge Stopped",
    u"No layers were merged. The archive was not changed.",
    {},
    {AlertActionSet::kOK, AlertActionSet::kNoAction, AlertActionSet::kNoAction}};
constexpr AlertTemplate kCombineStopped{
    AlertTemplate::kWarningStyle,
    u"Combine Stopped",
    u"No items were combined. The archive was not changed.",
    {},
    {AlertActionSet::kOK, AlertActionSet::kNoAction, AlertActionSet::kNoAction}};
constexpr AlertTemplate kDeleteLayersStopped{
    AlertTemplate::kWarningStyle,
    u"Delete Layers Stopped",
    u"No layers were deleted. The archive was not changed.",
    {},
    {AlertActionSet::kOK, AlertActionSet::kNoAction, AlertActionSet::kNoAction}};
constexpr AlertTemplate kDeleteItemsStopped{
    AlertTemplate::kWarningStyle,
    u"Delete Items Stopped",
    u"No items were deleted. The archive was not changed.",
    {},
    {AlertActionSet::kOK, AlertActionSet::kNoAction, AlertActionSet::kNoAction}};
constexpr AlertTemplate kCompactStopped{
    AlertTemplate::kWarningStyle,
    u"Compact Stopped",
    u"Archive size was not changed.",
    {},
    {AlertActionSet::kOK, AlertActionSet::kNoAction, AlertActionSet::kNoAction}};
constexpr AlertTemplate kVerifyStopped{
    AlertTemplate::kWarningStyle,
    u"Verify Stopped",
    u"No problems were found up to the point that the verify was stopped.",
    {},
    {AlertActionSet::kOK, AlertActionSet::kNoAction, AlertActionSet::kNoAction}};
constexpr AlertTemplate kEncryptStopped{
    AlertTemplate::kWarningStyle,
    u"Encrypt/Decrypt Stopped",
    u"No archive data was modified.",
    {},
    {AlertActionSet::kOK, AlertActionSet::kNoAction, AlertActionSet::kNoAction}};
constexpr AlertTemplate kCorrectionStopped{
    AlertTemplate::kWarningStyle,
    u"Data Inflation Stopped",
    u"No archive data was modified.",
    {},
    {AlertActionSet::kOK, AlertActionSet::kNoAction, AlertActionSet::kNoAction}};
constexpr AlertTemplate kReindexStopped{
    AlertTemplate::kWarningStyle,
    u"Reindex Stopped",
    u"The archive will need to be reindexed before it can be used.",
    u"trblrepair",
    {AlertActionSet::kOK, AlertActionSet::kNoAction, AlertActionSet::kNoAction}};
constexpr AlertTemplate kRepairStopped{
    AlertTemplate::kWarningStyle,
    u"Repair Stopped",
    u"The archive was not repaired. If the contents were being copied to a new archive, that "
    u"archive is incomplete.",
    u"repair",
    {AlertActionSet::kOK, AlertActionSet::kNoAction, AlertActionSet::kNoAction}};
constexpr AlertTemplate kNoArchive{
    AlertTemplate::kCriticalStyle,
    u"{Command} could not find archive",
    u"The archive is offline or has been moved. Make the archive available or update the location "
    u"of the archive in the action.",
    u"trblnoarchive",
    {AlertActionSet::kClose, AlertActionSet::kNoAction, AlertActionSet::kNoAction}};
constexpr AlertTemplate kArchiveAccessDenied{
    AlertTemplate::kCriticalStyle,
    u"{Command} could not access archive",
    u"{Command} did not have permission to access the archive. The archive might belong to another "
    u"user or is locked.",
    u"trblusearchive",
    {AlertActionSet::kOK, AlertActionSet::kNoAction, AlertActionSet::kNoAction}};
constexpr AlertTemplate kDataWriteIO{
    AlertTemplate::kCriticalStyle,
    u"{Command} failed",
    u"A storage or disk error occurred while writing to the archive data. This could indicate a "
    u"hard drive failure, or the drive or volume was disconnected. The archive may need to be "
    u"repaired.",
    u"trblioerr",
    {AlertActionSet::kClose, AlertActionSet::kRepair, AlertActionSet::kOpenLog}};
constexpr AlertTemplate kDisconnect{
    AlertTemplate::kCriticalStyle,
    u"Lost connection with process",
    u"The process may have quit abnormally or may still be running. See the log for the details.",
    u"trblipc",
    {AlertActionSet::kClose, AlertActionSet::kNoAction, AlertActionSet::kNoAction}};
constexpr AlertTemplate kReadFuture{
    AlertTemplate::kCriticalStyle,
    u"Archive format is too new",
    u"This archive contains data structures that this version cannot interpret. To read this "
    u"archive, upgrade the application to version {Expected} or later.",
    {},
    {AlertActionSet::kClose, AlertActionSet::kOpenLog, AlertActionSet::kNoAction}};
constexpr AlertTemplate kWriteFuture{
    AlertTemplate::kCriticalStyle,
    u"Archive format is too new",
    u"This archive cannot be modified with this version of Kestrom. To use this archive, upgrade "
    u"the application to version {Expected} or later.",
    {},
    {AlertActionSet::kClose, AlertActionSet::kOpenLog, AlertActionSet::kNoAction}};
constexpr AlertTemplate kNoKey{
    AlertTemplate::kCriticalStyle,
    u"Cannot access encrypted archive",
    u"The archive data appears to be encrypted, but there is no encryption key installed.",
    u"encryption",
    {AlertActionSet::kClose, AlertActionSet::kOpenLog, AlertActionSet::kNoAction}};
constexpr AlertTemplate kMissingKey{
    AlertTemplate::kCriticalStyle,
    u"Missing encryption key",
    u"The archive's encryption key file is missing or malformed. Fix this by importing the "
    u"archive's backup encryption key file.",
    u"encryption",
    {AlertActionSet::kClose, AlertActionSet::kImportKey, AlertActionSet::kOpenLog}};
constexpr AlertTemplate kMissingKeyRecover{
    AlertTemplate::kCriticalStyle,
    u"Missing encryption key",
    u"The archive's encryption key file is missing or malformed. Recover the archive's encryption "
    u"key or import its backup key file.",
    u"encryption",
    {AlertActionSet::kClose, AlertActionSet::kRecoverKey, AlertActionSet::kImportKey}};
constexpr AlertTemplate kBadPassword{
    AlertTemplate::kCriticalStyle,
    u"Invalid password",
    u"The password is incorrect.",
    u"encryption",
    {AlertActionSet::kClose, AlertActionSet::kOpenLog, AlertActionSet::kNoAction}};
constexpr AlertTemplate kNeedPassword{
    AlertTemplate::kCriticalStyle,
    u"Password Required",
    u"A password is required to access this archive.",
    u"encryption",
    {AlertActionSet::kClose, AlertActionSet::kNoAction, AlertActionSet::kNoAction}};
constexpr AlertTemplate kNoKeychain{
    AlertTemplate::kCriticalStyle,
    u"Password not available",
    u"The password could not be retrieved from the keychain.",
    u"encryption",
    {AlertActionSet::kClose, AlertActionSet::kOpenLog, AlertActionSet::kNoAction}};
constexpr AlertTemplate kArchiveIOFailure{
    AlertTemplate::kCriticalStyle,
    u"Archive access failure",
    u"An I/O error was encountered while reading or writing the archive. This could indicate a "
    u"hard drive failure, or the drive or volume was disconnected.",
    u"trblioerr",
    {AlertActionSet::kRepair, AlertActionSet::kClose, AlertActionSet::kNoAction}};
constexpr AlertTemplate kDataFailed{
    AlertTemplate::kCriticalStyle,
    u"{Command} failed",
    u"A data integrity problem in the archive was encountered. See the log for the details. "
    u"Consider reindexing or repairing the archive.",
    u"trblrepair",
    {AlertActionSet::kClose, AlertActionSet::kOpenLog, AlertActionSet::kRepair}};
constexpr AlertTemplate kIOFailed{
    AlertTemplate::kCriticalStyle,
    u"{Command} failed",
    u"A network or disk error was encountered. See the log for the details.",
    u"trblioerr",
    {AlertActionSet::kClose, AlertActionSet::kOpenLog, AlertActionSet::kNoAction}};
constexpr AlertTemplate kOutOfMemory{
    AlertTemplate::kCriticalStyle,
    u"{Command} ran out of memory",
    u"The requested action exceeds the memory capacity of this system.",
    {},
    {AlertActionSet::kClose, AlertActionSet::kNoAction, AlertActionSet::kNoAction}};
constexpr AlertTemplate kDamagedData{
    AlertTemplate::kCriticalStyle,
    u"{Command} failed",
    u"The archive data is damaged or incomplete. Use the Repair command to recover the valid "
    u"information in the archive.",
    u"trblrepair",
    {AlertActionSet::kRepair, AlertActionSet::kClose, AlertActionSet::kNoAction}};
constexpr AlertTemplate kBadIndex{
    AlertTemplate::kCriticalStyle,
    u"{Command} failed",
    u"The index of the archive is incorrect and needs to be recreated.",
    u"trblrepair",
    {AlertActionSet::kReindex, AlertActionSet::kClose, AlertActionSet::kNoAction}};
constexpr AlertTemplate kInternalError{
    AlertTemplate::kCriticalStyle,
    u"{Command} failed",
    u"An internal program error occurred. Review the log for the details. Please report this "
    u"problem to the developer.",
    {},
    {AlertActionSet::kClose, AlertActionSet::kOpenLog, AlertActionSet::kNoAction}};
constexpr AlertTemplate kLastResort{
    AlertTemplate::kCriticalStyle,
    u"{Command} failed",
    u"",
    {},
    {AlertActionSet::kClose, AlertActionSet::kOpenLog, AlertActionSet::kNoAction}};

constexpr AlertAssociation kFileCommandAlerts[] = {
    {u"diskfull", &kDiskFull},
    {u"recallfull", &kRecallFull},
    {u"softsize", &kSoftSize},
    {u"nullcapture", &kNullCapture},
    {u"iffycapture", &kIffyCapture},
    {u"iffyrecall", &kIffyRecall},
    {u"iffyopen", &kIffyOpen},
    {u"noblessAPFS", &kNoblessAPFS},
    {u"itemsoverlap", &kItemsOverlap},
    {u"nosessions", &kNoSessions},
    {u"prohibaccess", &kProhibitedAccess},
};
constexpr AlertAssociation kCanceledAlerts[] = {
    {u"capture", &kCaptureStopped},       {u"recall", &kRecallStopped},
    {u"restore", &kRecallStopped},        {u"merge", &kMergeStopped},
    {u"combine", &kCombineStopped},       {u"delete", &kDeleteLayersStopped},
    {u"erase", &kDeleteItemsStopped},     {u"compact", &kCompactStopped},
    {u"verify", &kVerifyStopped},         {u"encrypt", &kEncryptStopped},
    {u"correction", &kCorrectionStopped}, {u"reindex", &kReindexStopped},
    {u"repair", &kRepairStopped},
};
constexpr AlertAssociation kArchiveAlerts[] = {
    {u"norep", &kNoArchive},
    {u"noaccess", &kArchiveAccessDenied},
    {u"datawrio", &kDataWriteIO},
    {u"disconnect", &kDisconnect},
    {u"readfuture", &kReadFuture},
    {u"writefuture", &kWriteFuture},
    {u"nokey", &kNoKey},
    {u"missingkey", &kMissingKey},
    {u"missingkey-recover", &kMissingKeyRecover},
    {u"badpass", &kBadPassword},
    {u"needpass", &kNeedPassword},
    {u"nokeychain", &kNoKeychain},
};
constexpr AlertAssociation kPOSIXErrorAlerts[] = {
    {u"5", &kArchiveIOFailure},
    {u"13", &kArchiveAccessDenied},
};
constexpr AlertAssociation kOSErrorAlerts[] = {
    {u"-36", &kArchiveIOFailure},
    {u"-5000", &kArchiveAccessDenied},
};
constexpr AlertAssociation kExceptionNameAlerts[] = {
    {u"Data", &kDataFailed},
    {u"IO", &kIOFailed},
    {u"Memory", &kOutOfMemory},
};
} // namespace

std::span<const AlertAssociation> AlertTemplates::fileCommandAlerts()
{
    return kFileCommandAlerts;
}

std::span<const AlertAssociation> AlertTemplates::canceledAlerts()
{
    return kCanceledAlerts;
}

std::span<const AlertAssociation> AlertTemplates::archiveAlerts()
{
    return kArchiveAlerts;
}

std::span<const AlertAssociation> AlertTemplates::posixErrorAlerts()
{
    return kPOSIXErrorAlerts;
}

std::span<const AlertAssociation> AlertTemplates::osErrorAlerts()
{
    return kOSErrorAlerts;
}

std::span<const AlertAssociation> AlertTemplates::exceptionNameAlerts()
{
    return kExceptionNameAlerts;
}

const AlertTemplate& AlertTemplates::damagedData()
{
    return kDamagedData;
}

const AlertTemplate& AlertTemplates::badIndex()
{
    return kBadIndex;
}

const AlertTemplate& AlertTemplates::internalError()
{
    return kInternalError;
}

const AlertTemplate& AlertTemplates::lastResort()
{
    return kLastResort;
}
