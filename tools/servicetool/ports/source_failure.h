// Why a source of taken ports could not be read, in words for people.
#ifndef TAVO_SERVICETOOL_PORTS_SOURCE_FAILURE_H
#define TAVO_SERVICETOOL_PORTS_SOURCE_FAILURE_H

#include "base/system_files.h"
#include "engine/conflicts.h"
#include "output/diagnostic.h"
#include "output/report.h"

namespace tavo::tool {

inline constexpr char kRuleFile[] = "/usr/tavo/etc/portforward/rule.conf";

// The failure at its place in the file, if it has one.
Diagnostic WhyUnknown(const SourceFailure &failure);

// Lines of the rules or the settings, one of TAVO_PORT_CHECK_*, that the readers ignore without a
// word. Returns false when there is nothing to report.
bool FindIgnoredLines(int source, Diagnostic &finding);

// Reports the service files and folders that could not be read, as errors, and the services that
// are left out of the others, as warnings: they declare nothing. Returns false after an error.
bool TellUnreadServiceFiles(const ServiceCatalogue &catalogue, Report &report);

}  // namespace tavo::tool

#endif
