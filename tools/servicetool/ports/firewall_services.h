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
    const TAVO_FW_SERVICE_REG *row = nullptr;            // in rgServices; null unless built-in
    const ServiceFileRecord *file = nullptr;             // the declaring file; null if built-in
    const TAVO_SERVICE_CONF_SECTION *section = nullptr;  // in the file
    std::optional<bool> supported;                       // empty: the settings cannot be read
};

struct FirewallServices {
    bool complete = true;                   // no service was left out
    std::vector<FirewallService> services;  // those of the table, then those of files
    std::vector<const TAVO_FW_SERVICE_REG *> left_out;
    std::vector<ServiceFile> files;  // files that are not listed completely

    ServiceCatalogue catalogue;  // owns what the services point to
};

// Lists the firewall services, and reports what is left out and why. If `names` is not empty, only
// reports services of these names, and files that may contain them.
FirewallServices ReadFirewallServices(Report &report, const std::vector<std::string> &names = {});

// Why a built-in service is left out.
Diagnostic WhyLeftOut(const TAVO_FW_SERVICE_REG &row);

// The origin of the service: "built-in", "system/FILE" or "package/FILE".
std::string OriginText(const FirewallService &service);

}  // namespace tavo::tool

#endif
