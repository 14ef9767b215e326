// What writing a section and setting its ports have in common: the ports as text, the check of
// them, and who is told.
#ifndef TAVO_SRC_LIFECYCLE_SECTION_WRITE_H
#define TAVO_SRC_LIFECYCLE_SECTION_WRITE_H

#include <cstddef>

#include "lifecycle/set_param.h"
#include "lifecycle/temporary_copy.h"
#include "tavoserviceconf.h"

namespace tavo {

// Room for the ports of a section in a service file.
constexpr std::size_t kPortTextSize = 1024;

struct PortText {
    char szPorts[kPortTextSize] = "";
    char szProtocols[kPortTextSize] = "";
    char szValue[kPortTextSize] = ""; /* PORTS/PROTOCOLS, cut to fit */

    // Prints a list; -1 when it cannot be printed.
    int Print(const TAVO_SERVICE_CONF_PORT *pPorts);
};

// -1 when the ports are taken or it cannot be told.
int RefuseConflict(const SetParam &param, const PortText &ports);

// Whether the service file is to be changed at all, or the ports only checked.
bool ChangesFile(const SetParam &param);

// Copies the file, as it is before the change, for the router tool.
int MakeBackup(const Target &target, TemporaryCopy &backup);

// Tells the router tool, where that is wanted, that the file is no longer what its copy says.
void TellRouter(const SetParam &param, const TemporaryCopy &backup, const char *szPath);

// Restarts the services that are to take the change up, where that is wanted.
void RestartServices(const SetParam &param);

}  // namespace tavo

#endif
