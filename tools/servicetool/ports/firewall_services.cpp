#include "ports/firewall_services.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <string_view>

#include "input/input_file.h"
#include "output/text.h"

namespace tavo::tool {
namespace {

// A built-in service with configurable ports, the files with its settings, and the keys in the last
// file of which one must name a port.
struct PortSettings {
    std::string_view service;
    std::vector<std::string> files;
    std::string keys;
};
const PortSettings kPortSettings[] = {
    {"ssh", {"/etc/tavoinfo.conf", "/etc/ssh/sshd_config"}, "Port"},
    {"nfs", {"/etc/nfs/tavo_nfs_conf"}, "statd_port or nlm_port"},
    {"ftp", {"/etc/tavoinfo.conf"}, "ftpport, ftplowport or ftphighport"},
};

void ReadRecords(FirewallServices &read) {
    read.catalogue = ReadCatalogue();
    const ServiceCatalogue &catalogue = read.catalogue;
    CheckMemory(catalogue.report);
    for (const CatalogueService &one : catalogue.origins) {
        read.services.push_back(
            {one.service, one.row, one.file, one.section, one.service->blSupported != 0});
    }
    // The catalogue lists the services of files in order, then the table in reverse order.
    const auto first_row =
        std::find_if(read.services.begin(), read.services.end(),
                     [](const FirewallService &service) { return service.row != nullptr; });
    std::reverse(first_row, read.services.end());
    std::rotate(read.services.begin(), first_row, read.services.end());
    for (const LeftOut &omission : catalogue.report.Omissions()) {
        if (omission.row != nullptr) {
            read.left_out.push_back(omission.row);
        }
    }
    read.files = FilesWithOmissions(catalogue.report);
}

bool HasSupportKey(const FirewallService &service) {
    return service.row != nullptr ? service.row->szSupportKey != nullptr
                                  : *service.file->conf->szSupportKey != '\0';
}

// If the factory settings cannot be read, the library reports services with a support key as not
// supported. Here that is unknown.
void ForgetSupport(FirewallServices &read) {
    if (ReadRegularFile(kFactorySettingsFile).problem.empty()) {
        return;
    }
    for (FirewallService &service : read.services) {
        if (HasSupportKey(service)) {
            service.supported.reset();
        }
    }
}

// ---- What is left out ----

// Returns true if anything was reported.
bool TellSectionsLeftOut(const ServiceFile &file, const std::vector<std::string> &names,
                         Report &report) {
    if (names.empty() || !file.problem.empty()) {
        return TellWhatIsMissing(file, report);
    }
    bool missing = false;
    for (const LintedService &service : file.lint.services) {
        if (!service.readable && Holds(names, service.name)) {
            TellLeftOut(file, service, report);
            missing = true;
        }
    }
    return missing;
}

void TellLeftOut(FirewallServices &read, const std::vector<std::string> &names, Report &report) {
    for (const TAVO_FW_SERVICE_REG *row : read.left_out) {
        if (names.empty() || Holds(names, row->szName)) {
            report.Tell(WhyLeftOut(*row));
            read.complete = false;
        }
    }
    for (const ServiceFile &file : read.files) {
        read.complete = !TellSectionsLeftOut(file, names, report) && read.complete;
    }
}

}  // namespace

FirewallServices ReadFirewallServices(Report &report, const std::vector<std::string> &names) {
    FirewallServices read;
    ReadRecords(read);
    read.complete = !TellUnlistedFolders(read.catalogue.report, report);
    TellLeftOut(read, names, report);
    ForgetSupport(read);
    return read;
}

Diagnostic WhyLeftOut(const TAVO_FW_SERVICE_REG &row) {
    const auto because = [&row](const std::string &file, const char *rule,
                                const std::string &reason) {
        Diagnostic diagnostic;
        diagnostic.file = file;
        diagnostic.rule = rule;
        diagnostic.message =
            "built-in service " + std::string(row.szName) + " is left out: " + reason;
        return diagnostic;
    };
    const auto settings =
        std::find_if(std::begin(kPortSettings), std::end(kPortSettings),
                     [&row](const PortSettings &of) { return of.service == row.szName; });
    if (settings == std::end(kPortSettings)) {
        return because("", "failed", "it cannot be listed");
    }
    for (const std::string &file : settings->files) {
        const std::string problem = ReadRegularFile(file).problem;
        if (!problem.empty()) {
            return because(file, "unreadable", problem);
        }
    }
    return because(settings->files.back(), "bad-service", settings->keys + " names no port");
}

std::string OriginText(const FirewallService &service) {
    if (service.row != nullptr) {
        return "built-in";
    }
    return std::string(service.file->folder->name) + '/' +
           std::filesystem::path(service.file->path).filename().string();
}

}  // namespace tavo::tool
