// The comparison of ports that somebody asks for with ports that somebody has declared, for the
// tests and fuzzers of the conflict engine.
#ifndef TAVO_SRC_ENGINE_SERVICE_IS_PORT_CONFLICT_H
#define TAVO_SRC_ENGINE_SERVICE_IS_PORT_CONFLICT_H

#include "tavoserviceconf.h"

namespace tavo {

// nEnd of a query for the one port nBegin.
constexpr int kSinglePort = -1;

// Compares the ports nBegin..nEnd with the declared ones, a list between commas whose ranges are
// written with cRangeSep. 1 when they collide, 0 when they do not, -1 on failure; each collision is
// put in front of *ppConflictPorts.
int CompareDeclaredPorts(int nBegin, int nEnd, const char *szDeclared, char cRangeSep,
                         TAVO_SERVICE_CONF_PORT **ppConflictPorts);

// The same for a list of ports and START:END ranges. Declared ranges are written START-END.
int CompareQueryPorts(const char *szQuery, const char *szDeclared,
                      TAVO_SERVICE_CONF_PORT **ppConflictPorts);

}  // namespace tavo

#endif
