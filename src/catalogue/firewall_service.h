// The catalogue of firewall services, each with its origin.
#ifndef TAVO_SRC_CATALOGUE_FIREWALL_SERVICE_H
#define TAVO_SRC_CATALOGUE_FIREWALL_SERVICE_H

#include "model/service_files.h"
#include "support/owners.h"
#include "tavoserviceconf.h"

namespace tavo {

// The initial capacity of lists of port strings, a hint.
constexpr int kPortListCapacity = 128;

// The firewall services where they are declared: in rgServices and in the service files.
struct DeclaredServices {
    OwnedServices built_in;  // in reverse order of rgServices
    OwnedConf files;

    // The files read and everything that was left out: rows first, then files and sections. Its
    // fault is 0 if nothing else can be missing than what is absent or invalid. Otherwise it is the
    // error code of the first failure, out of memory (0x200) or a system call (0x900, 0x2A00, or
    // the code set by a port provider): services may be missing, and a port that no listed service
    // declares must not count as free. If anything was left out, the reading has usually written
    // log lines.
    ReadingReport report;
};

// Reads the rows of rgServices, then the service files. With a visitor, `files` is null.
DeclaredServices ReadDeclaredServices(const FileVisitor *visitor = nullptr);

// Whether this model supports the services of a file with this support key, "" for none, according
// to the factory settings. A failed check counts as no. It is not a fault of the catalogue, because
// it affects no ports.
bool IsFileSupported(const char *support_key);

// A snapshot of the catalogue as one list, in the order of TAVOFwServiceEnum.
struct ServiceCatalogue {
    OwnedServices services;
    int count = 0;         // number of services; -1 if the enumeration failed
    ReadingReport report;  // that of DeclaredServices, and what could not be converted
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
