// The catalogue of firewall services, each with its origin.
#ifndef TAVO_SRC_CATALOGUE_FIREWALL_SERVICE_H
#define TAVO_SRC_CATALOGUE_FIREWALL_SERVICE_H

#include "model/service_files.h"
#include "support/growing_array.h"
#include "support/owners.h"
#include "tavoserviceconf.h"

namespace tavo {

// The capacity that lists of port strings start with, a hint.
constexpr int kPortListCapacity = 128;

// A service of the catalogue with its origin: a row of rgServices, or a section of a service file.
struct CatalogueService {
    const TAVO_FW_SERVICE *service;
    const TAVO_FW_SERVICE_REG *row;            // null for a service of a file
    const ServiceFileRecord *file;             // null for a built-in service
    const TAVO_SERVICE_CONF_SECTION *section;  // of the file; null for a built-in service
};

// The catalogue at one moment.
struct ServiceCatalogue {
    OwnedServices services;  // as TAVOFwServiceEnum lists them
    int count = 0;           // the services in the list; -1 when the enumeration failed

    // One for each service, in the order of the list, unless memory ran out (0x200 in the report).
    GrowingArray<CatalogueService> origins;

    // The files, and what is left out: rows in front, then what the files lack. Its fault is 0 when
    // the catalogue is complete, but for what is absent or not valid. Otherwise it is the error
    // code of the first failure of memory (0x200) or of a system call (0x900, 0x2A00, or what a
    // port provider left): services may be missing, and a port that none of the others declares
    // must not count as free. Whether the model supports a service is not covered: no port depends
    // on it. Unless it left nothing out, the reading has written log lines as a rule.
    ReadingReport report;

    OwnedConf files;  // what the origins point into
};

// Reads the catalogue as TAVOFwServiceEnum does, with the same log lines.
ServiceCatalogue ReadCatalogue();

// Makes the firewall service of a row of rgServices, or of any row like those. `made` is set when
// the reading is good; a failure has been logged.
Reading ServiceFromRow(const TAVO_FW_SERVICE_REG &row, OwnedServices &made);

// The same for a section of a service file; `supported` is whether this model supports the file.
// pNext of the section is not looked at.
Reading ServiceFromSection(const TAVO_SERVICE_CONF_SECTION &section, bool supported,
                           OwnedServices &made);

}  // namespace tavo

#endif
