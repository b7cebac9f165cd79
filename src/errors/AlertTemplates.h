#pragma once

#include "errors/AlertTemplate.h"

#include <span>

// The constant template tables from which every command alert is chosen, and the single
// templates the rules fall back on. The texts are the product's, misspellings included, since
// users and support staff search for them.
class AlertTemplates
{
public:
    // Keyed by the ".Explain" detail of a file command's exception.
    static std::span<const AlertAssociation> fileCommandAlerts();
    // Keyed by the command name of a canceled command.
    static std::span<const AlertAssociation> canceledAlerts();
    // Keyed by the ".Explain" detail of any command's exception.
    static std::span<const AlertAssociation> archiveAlerts();
    // Keyed by the text of the "POSIXErr" and "OSErr" details of a "Data" exception.
    static std::span<const AlertAssociation> posixErrorAlerts();
    static std::span<const AlertAssociation> osErrorAlerts();
    // Keyed by the exception's name.
    static std::span<const AlertAssociation> exceptionNameAlerts();

    static const AlertTemplate& damagedData();
    static const AlertTemplate& badIndex();
    static const AlertTemplate& internalError();
    static const AlertTemplate& lastResort();
};
