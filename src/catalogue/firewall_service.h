// The catalogue of firewall services, each with its origin.
#ifndef TAVO_SRC_CATALOGUE_FIREWALL_SERVICE_H
#define TAVO_SRC_CATALOGUE_FIREWALL_SERVICE_H

#include "model/service_files.h"
#include "support/growing_array.h"
#include "support/owners.h"
#include "tavoserviceconf.h"

namespace tavo {

// The initial capacity of lists of port strings, a hint.
constexpr int kPortListCapacity = 128;

// A service of the catalogue and its origin: a row of rgServices, or a section of a service file.
struct CatalogueService {
    const TAVO_FW_SERVICE *service;
    const TAVO_FW_SERVICE_REG *row;            // null for a service of a service file
    const ServiceFileRecord *file;             // null for a built-in service
    const TAVO_SERVICE_CONF_SECTION *section;  // of the file; null for a built-in service
};

// A snapshot of the catalogue.
struct ServiceCatalogue {
    OwnedServices services;  // in the order of TAVOFwServiceEnum
    int count = 0;           // number of services; -1 if the enumeration failed

    // One for each service, in list order, unless memory ran out (0x200 in the report).
    GrowingArray<CatalogueService> origins;

    // The files read and everything that was left out: rows first, then files and sections. Its
    // fault is 0 if the catalogue is complete, apart from what is absent or invalid. Otherwise it
    // is the error code of the first failure, out of memory (0x200) or a system call (0x900,
    // 0x2A00, or the code set by a port provider): services may be missing, and a port that no
    // listed service declares must not count as free. A failed check whether the model supports a
    // service is not a fault, because it affects no ports. If anything was left out, the reading
    // has usually written log lines.
    ReadingReport report;

    OwnedConf files;  // the files that the origins point to
};

// Reads the catalogue like TAVOFwServiceEnum, with the same log lines.
ServiceCatalogue ReadCatalogue();

// Creates the firewall service of a row of rgServices or of a similar row. Sets `made` if the
// reading is good; a failure is logged.
Reading ServiceFromRow(const TAVO_FW_SERVICE_REG &row, OwnedServices &made);

// The same for a section of a service file; `supported`: this model supports the file. Ignores
// pNext of the section.
Reading ServiceFromSection(const TAVO_SERVICE_CONF_SECTION &section, bool supported,
                           OwnedServices &made);

}  // namespace tavo

#endif
