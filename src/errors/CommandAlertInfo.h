#pragma once

#include "errors/ContextualAlertInfo.h"

#include <QVariantMap>
#include <memory>

class Exception;

// How the alert for a failed, canceled or troubled command is chosen. Each rule answers none
// when it has nothing to say, so that the caller can try the next; an alert a rule does give
// has its context made from the exception. A null exception is a programming error
// (std::logic_error).

// For panes of file commands: the exception's ".Explain" in the file-command table.
std::unique_ptr<ContextualAlertInfo> AlertInfoForFileException(const Exception* exception);
// Only for an exception named "Cancel": its ".Command" in the canceled table.
std::unique_ptr<ContextualAlertInfo> AlertInfoForCanceledCommand(const Exception* cancelException);
// Never none: the most specific of the archive, error-number, damaged-data, bad-index and
// exception-name templates, else the internal-error one.
std::unique_ptr<ContextualAlertInfo> AlertInfoForAnyCommand(const Exception* exception);

// For where only a stored summary of an earlier failure is at hand: a dictionary with
// ".Explain", ".DataBad", ".IndexBad" and ".Exception" (an exception name). The alert has no
// context, so its placeholders remain until one is set; none when nothing matches.
std::unique_ptr<ContextualAlertInfo> AlertInfoForFailureSummary(const QVariantMap& summary);
