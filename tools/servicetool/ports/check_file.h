// servicetool check --file: the ports of a service file, section by section.
#ifndef TAVO_SERVICETOOL_PORTS_CHECK_FILE_H
#define TAVO_SERVICETOOL_PORTS_CHECK_FILE_H

#include <string>

#include "output/report.h"
#include "ports/port_sources.h"
#include "tavoserviceconf.h"

namespace tavo::tool {

// Whom the library asks about a whole file.
inline constexpr int kSourcesOfFiles =
    TAVO_PORT_CHECK_FW_SERVICE | TAVO_PORT_CHECK_SYS_KEY | TAVO_PORT_CHECK_RUNTIME;

struct FileQuestion {
    const std::string &path;  // "-" for standard input
    const SkippedNames &skipped;
    bool as_library;  // the sections are asked for as the library does it for a whole file
    bool header;
};

// Lints the file, then asks for the destination ports of each section, which skips itself.
void CheckFile(const FileQuestion &question, PortSources &sources, Report &report);

}  // namespace tavo::tool

#endif
