// Diagnostics about sources of taken ports that could not be read.
#ifndef TAVO_SERVICETOOL_PORTS_SOURCE_FAILURE_H
#define TAVO_SERVICETOOL_PORTS_SOURCE_FAILURE_H

#include "base/system_files.h"
#include "engine/conflicts.h"
#include "output/diagnostic.h"
#include "output/report.h"

namespace tavo::tool {

inline constexpr char kRuleFile[] = "/usr/tavo/etc/portforward/rule.conf";

// The failure as a diagnostic, with its position in the file if it has one.
Diagnostic WhyUnknown(const SourceFailure &failure);

// Finds lines that the readers of the rules or the settings silently ignore. `source` is one of
// TAVO_PORT_CHECK_*. Returns false if there is nothing to report.
bool FindIgnoredLines(int source, Diagnostic &finding);

// Reports service files and folders that could not be read as errors, and services missing from the
// other files as warnings: they declare nothing. Returns false after an error.
bool TellUnreadServiceFiles(const ServiceCatalogue &catalogue, Report &report);

}  // namespace tavo::tool

#endif
