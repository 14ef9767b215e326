// Diagnostics about sources of taken ports that could not be read.
#ifndef TAVO_SERVICETOOL_PORTS_SOURCE_FAILURE_H
#define TAVO_SERVICETOOL_PORTS_SOURCE_FAILURE_H

#include <string>

#include "engine/conflicts.h"
#include "output/report.h"

namespace tavo::tool {

// The failure as a diagnostic, with its position in the file if it has one.
Diagnostic WhyUnknown(const SourceFailure &failure);

// Finds lines that the readers of the rules or the settings silently ignore. `source` is one of
// TAVO_PORT_CHECK_*. Returns false if there is nothing to report.
bool FindIgnoredLines(int source, Diagnostic &finding);

// Why a built-in service is left out of the catalogue; `code` is the error code of its reading, 0
// if its settings are absent or invalid.
Diagnostic WhyLeftOut(const std::string &service, unsigned int code);

}  // namespace tavo::tool

#endif
