#include "ports/firewall_services.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <span>
#include <string_view>
#include <utility>

#include "input/input_file.h"
#include "output/text.h"

namespace tavo::tool {
namespace {

// The built-in services whose ports are settings, the files that hold these, and those of the last
// one that have to name a port.
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

// ---- Reading ----

// What lint does not look into the library may well read: a file that is larger than any service
// file has a right to be.
void ReadFiles(FirewallServices &read, Report &report) {
    for (const ServiceFolder &folder : ServiceFolders(kEveryServiceFolder)) {
        FolderContents contents = ReadServiceFolder(folder, report);
        read.complete = contents.complete && read.complete;
        std::move(contents.files.begin(), contents.files.end(), std::back_inserter(read.files));
    }
    for (ServiceFile &file : read.files) {
        TAVO_SERVICE_CONF *conf = nullptr;
        if (!file.problem.empty() && TAVOServiceConfGet(file.path.c_str(), &conf) == 0) {
            file.conf.reset(conf);
        }
    }
}

bool ReadRecords(FirewallServices &read) {
    TAVO_FW_SERVICE *records = nullptr;
    const bool good = TAVOFwServiceEnum(&records) >= 0;
    read.records.reset(records);
    return good;
}

// ---- Origins ----

// The services of files, in the order of their list.
struct Declared {
    const ServiceFile *file;
    const char *name;
};

std::vector<Declared> DeclaredBy(const std::vector<ServiceFile> &files) {
    std::vector<Declared> declared;
    for (const ServiceFile &file : files) {
        for (const auto *section : InFileOrder(file.conf ? file.conf->pSections : nullptr)) {
            declared.push_back({&file, section->szName});
        }
    }
    return declared;
}

// The rows of the services, of which some may be left out. False when there is another name.
bool FindRows(std::span<FirewallService> services, FirewallServices &read) {
    auto service = services.begin();
    for (const auto *row = rgServices; row->szName != nullptr; ++row) {
        if (service != services.end() && std::strcmp(row->szName, service->record->szName) == 0) {
            (service++)->row = row;
        } else {
            read.left_out.push_back(row);
        }
    }
    return service == services.end();
}

bool FindFiles(std::span<FirewallService> services, const std::vector<Declared> &declared) {
    const auto is_of = [](const FirewallService &service, const Declared &section) {
        return std::strcmp(service.record->szName, section.name) == 0;
    };
    if (!std::equal(services.begin(), services.end(), declared.begin(), declared.end(), is_of)) {
        return false;
    }
    for (std::size_t i = 0; i < services.size(); ++i) {
        services[i].file = declared[i].file;
    }
    return true;
}

// The library's list has the services of files in their order and then the table backwards. False
// when the files do not fit to it, having changed between the two looks at them.
bool FindOrigins(FirewallServices &read) {
    const std::vector<Declared> declared = DeclaredBy(read.files);
    std::vector<FirewallService> services;
    for (const auto *record = read.records.get(); record != nullptr; record = record->pNext) {
        services.push_back({record, nullptr, nullptr, record->blSupported != 0});
    }
    const std::size_t of_files = std::min(declared.size(), services.size());
    std::reverse(services.begin() + static_cast<std::ptrdiff_t>(of_files), services.end());
    std::rotate(services.begin(), services.begin() + static_cast<std::ptrdiff_t>(of_files),
                services.end());
    read.services = std::move(services);
    const std::span all(read.services);
    const std::size_t built_in = all.size() - of_files;
    const bool rows = FindRows(all.first(built_in), read);
    return FindFiles(all.subspan(built_in), declared) && rows;
}

bool HasSupportKey(const FirewallService &service) {
    return service.row != nullptr ? service.row->szSupportKey != nullptr
                                  : service.file == nullptr || *service.file->conf->szSupportKey;
}

// Without its settings the library takes each service with a support key for not supported.
void ForgetSupport(FirewallServices &read) {
    if (ReadRegularFile(kFactorySettings).problem.empty()) {
        return;
    }
    for (FirewallService &service : read.services) {
        if (HasSupportKey(service)) {
            service.supported.reset();
        }
    }
}

// ---- What is left out ----

// True when there was something to tell.
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
    ReadFiles(read, report);
    if (!ReadRecords(read)) {
        report.TellError("", "failed", "the firewall services cannot be listed");
        read.complete = false;
        return read;
    }
    if (!FindOrigins(read)) {
        report.TellError("", "unreadable", "service files changed while they were read",
                         "run it again");
        read.complete = false;
        read.left_out.clear();
    }
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
    if (service.file == nullptr) {
        return {};
    }
    return std::string(LocationOf(service.file->path)) + '/' +
           std::filesystem::path(service.file->path).filename().string();
}

}  // namespace tavo::tool
