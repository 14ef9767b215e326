// Whether a process is the program of the service that declares a port.
#ifndef TAVO_SERVICETOOL_SERVICE_PROGRAMS_H
#define TAVO_SERVICETOOL_SERVICE_PROGRAMS_H

#include "port_holders.h"
#include "socket_holders.h"

namespace tavo {

// There is no record of which program belongs to which service, so names decide: those that the
// process goes by (its unit, its program), the sections that the library names for each of them,
// and the folders its program lies in, against the names of the service and of its file.
bool IsProgramOf(const HoldingProcess &process, const PortHolder &service);

}  // namespace tavo

#endif
