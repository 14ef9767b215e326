// servicetool check --file: the ports of a service file, section by section.
#ifndef TAVO_SERVICETOOL_PORTS_CHECK_FILE_H
#define TAVO_SERVICETOOL_PORTS_CHECK_FILE_H

#include <string>
#include <vector>

#include "output/report.h"
#include "ports/port_sources.h"
#include "tavoserviceconf.h"

namespace tavo::tool {

// The sources that an install compares a file with.
inline constexpr int kSourcesOfFiles =
    TAVO_PORT_CHECK_FW_SERVICE | TAVO_PORT_CHECK_SYS_KEY | TAVO_PORT_CHECK_RUNTIME;

struct FileQuestion {
    const std::vector<std::string> &paths;  // "-" for standard input
    const SkippedNames &skipped;
    bool as_install;  // the question is that of an install: also report where the answers differ
    bool header;
};

// Lints the files, then checks the destination ports of every section. A section does not conflict
// with its own installed declaration.
void CheckFiles(const FileQuestion &question, PortSources &sources, Report &report);

}  // namespace tavo::tool

#endif
