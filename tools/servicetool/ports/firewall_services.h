// The firewall services, each with its origin.
#ifndef TAVO_SERVICETOOL_PORTS_FIREWALL_SERVICES_H
#define TAVO_SERVICETOOL_PORTS_FIREWALL_SERVICES_H

#include <optional>
#include <string>
#include <vector>

#include "base/system_files.h"
#include "catalogue/firewall_service.h"
#include "input/service_file.h"
#include "output/report.h"
#include "tavoserviceconf.h"

namespace tavo::tool {

struct FirewallService {
    const TAVO_FW_SERVICE *record = nullptr;
    const TAVO_FW_SERVICE_REG *row = nullptr;            // of rgServices, for a built-in service
    const ServiceFileRecord *file = nullptr;             // that declares it, for any other
    const TAVO_SERVICE_CONF_SECTION *section = nullptr;  // of the file
    std::optional<bool> supported;                       // none: its settings cannot be read
};

struct FirewallServices {
    bool complete = true;                   // nothing that should be there was left out
    std::vector<FirewallService> services;  // of the table, then of files, in the order of each
    std::vector<const TAVO_FW_SERVICE_REG *> left_out;
    std::vector<ServiceFile> files;  // of which something is left out

    ServiceCatalogue catalogue;  // what the services point into
};

// Lists the firewall services, and reports what is left out and why. With `names`, the report is on
// services of these names only, and on files that may hold them.
FirewallServices ReadFirewallServices(Report &report, const std::vector<std::string> &names = {});

// Why a built-in service is left out.
Diagnostic WhyLeftOut(const TAVO_FW_SERVICE_REG &row);

// Where the service comes from: "built-in", "system/FILE" or "package/FILE".
std::string OriginText(const FirewallService &service);

}  // namespace tavo::tool

#endif
