// The firewall services, each with where it comes from.
//
// The library lists them without their origin, so its list is laid beside what it was made from:
// the built-in table and the service files.
#ifndef TAVO_SERVICETOOL_PORTS_FIREWALL_SERVICES_H
#define TAVO_SERVICETOOL_PORTS_FIREWALL_SERVICES_H

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "input/library_owners.h"
#include "input/service_file.h"
#include "output/report.h"
#include "tavoserviceconf.h"

namespace tavo::tool {

// The settings that say what this model supports.
inline constexpr char kFactorySettings[] = "/etc.defaults/tavoinfo.conf";

struct FirewallService {
    const TAVO_FW_SERVICE *record = nullptr;
    const TAVO_FW_SERVICE_REG *row = nullptr;  // of rgServices, for a built-in service
    const ServiceFile *file = nullptr;         // that declares it, for any other
    std::optional<bool> supported;             // none: its settings cannot be read
};

struct FirewallServices {
    bool complete = true;                   // nothing that should be there was left out
    std::vector<FirewallService> services;  // of the table, then of files, in the order of each
    std::vector<const TAVO_FW_SERVICE_REG *> left_out;

    // What the services point into.
    OwnedFwServices records;
    std::vector<ServiceFile> files;
};

// Lists the firewall services, and reports what is left out and why. With `names`, the report is on
// services of these names only, and on files that may hold them.
FirewallServices ReadFirewallServices(Report &report, const std::vector<std::string> &names = {});

// Why a built-in service is left out.
Diagnostic WhyLeftOut(const TAVO_FW_SERVICE_REG &row);

// Where the service comes from: "built-in", "system/FILE" or "package/FILE"; "" when that cannot be
// told.
std::string OriginText(const FirewallService &service);

}  // namespace tavo::tool

#endif
