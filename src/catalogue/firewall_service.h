// What the sources of the catalogue share: how one firewall service is made.
#ifndef TAVO_SRC_CATALOGUE_FIREWALL_SERVICE_H
#define TAVO_SRC_CATALOGUE_FIREWALL_SERVICE_H

#include "support/owners.h"
#include "tavoserviceconf.h"

namespace tavo {

// The capacity that lists of port strings start with, a hint.
constexpr int kPortListCapacity = 128;

// The firewall service that a row of rgServices, or any row like those, stands for. Null when it
// cannot be made, which has been logged.
OwnedServices ServiceFromRow(const TAVO_FW_SERVICE_REG &row);

// The same for a section of a service file, of which the caller knows whether this model supports
// it. pNext of the section is not looked at.
OwnedServices ServiceFromSection(const TAVO_SERVICE_CONF_SECTION &section, bool blSupported);

}  // namespace tavo

#endif
