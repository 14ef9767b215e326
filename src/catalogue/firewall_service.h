// The catalogue inside the library: reading it whole, and how one firewall service is made.
#ifndef TAVO_SRC_CATALOGUE_FIREWALL_SERVICE_H
#define TAVO_SRC_CATALOGUE_FIREWALL_SERVICE_H

#include "support/owners.h"
#include "tavoserviceconf.h"

namespace tavo {

// The capacity that lists of port strings start with, a hint.
constexpr int kPortListCapacity = 128;

// The catalogue at one moment.
struct ServiceCatalogue {
    OwnedServices services;
    int count = 0;           // the services in the list; -1 when the enumeration failed
    unsigned int fault = 0;  // see ReadCatalogue
    bool logged = false;     // whether anything was left out, which has been logged as a rule
};

// Reads the catalogue as TAVOFwServiceEnum does, with the same log lines. `fault` is 0 when the
// catalogue is complete, but for what is absent or holds no valid service. Otherwise it is the
// error code of the first failure of memory (0x200) or of a system call (0x900, 0x2A00, or what a
// port provider left): services may be missing, and a port that none of the others declares must
// not count as free. Whether the model supports a service is not covered, no port depends on it.
ServiceCatalogue ReadCatalogue();

// The firewall service that a row of rgServices, or any row like those, stands for. Null when it
// cannot be made, which has been logged.
OwnedServices ServiceFromRow(const TAVO_FW_SERVICE_REG &row);

// The same for a section of a service file, of which the caller knows whether this model supports
// it. pNext of the section is not looked at.
OwnedServices ServiceFromSection(const TAVO_SERVICE_CONF_SECTION &section, bool blSupported);

}  // namespace tavo

#endif
