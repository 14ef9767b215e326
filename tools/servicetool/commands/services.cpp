// servicetool services. Converts the records of firewall services to sections, to print them like
// the other commands.
#include <strings.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <optional>

#include "base/system_files.h"
#include "catalogue/firewall_service.h"
#include "commands/commands.h"
#include "input/input_file.h"
#include "input/library.h"
#include "input/service_file.h"
#include "output/table.h"
#include "output/text.h"
#include "ports/port_query.h"
#include "ports/source_failure.h"

namespace tavo::tool {
namespace {

// "1000:2000" for "1000-2000".
std::string InFileNotation(std::string port) {
    std::replace(port.begin(), port.end(), '-', ':');
    return port;
}

// The ports of a built-in service, which may be settings with invalid values; these are reported
// and left out.
OwnedPorts PortsOf(const TAVO_FW_SERVICE &service, const TLIBCSzList *list, std::uint32_t protocols,
                   unsigned int direction, Report &report) {
    OwnedPorts ports;
    for (int i = 0; i < TLIBCSzListCount(list); ++i) {
        const std::string port = TLIBCSzListGet(list, i);
        TAVO_SERVICE_CONF_PORT *one = nullptr;
        const std::string text = InFileNotation(port) + '/' + ProtocolsText(protocols);
        if (TAVOServiceConfPortsGet(text.c_str(), direction, &one) != 0) {
            report.TellError("", "bad-service",
                             "firewall service " + std::string(service.szName) + " has " +
                                 Quoted(port) + " for a port");
            continue;
        }
        one->pNext = ports.release();
        ports.reset(one);
    }
    return ports;
}

// A built-in service in the form of a section of a file.
OwnedSection SectionOf(const TAVO_FW_SERVICE &service, Report &report) {
    OwnedSection section = OrThrow(NewRecord<OwnedSection>());
    std::memcpy(section->szName, service.szName, sizeof(section->szName));
    section->strTitle = service.strTitle;
    section->strDesc = service.strDesc;
    section->blPortForward = service.blPortForward;
    section->pSrcPorts = PortsOf(service, service.pSrcPortList, service.nSrcProtocol,
                                 TAVO_PORT_DIRECTION_SRC, report)
                             .release();
    section->pDstPorts = PortsOf(service, service.pDstPortList, service.nDstProtocol,
                                 TAVO_PORT_DIRECTION_DST, report)
                             .release();
    return section;
}

constexpr char kBuiltIn[] = "built-in";

// "built-in", "system/FILE" or "package/FILE".
std::string OriginText(const CatalogueService &service) {
    if (service.file == nullptr) {
        return kBuiltIn;
    }
    const std::filesystem::path path = service.file->path;
    return service.file->folder->name + ('/' + path.filename().string());
}

Json FirewallServiceJson(const CatalogueService &service, std::optional<bool> supported,
                         const TAVO_SERVICE_CONF_SECTION &section) {
    Json json = {{"name", section.szName}, {"supported", supported}};
    if (service.file != nullptr) {
        json.Merge(ServiceJson(*service.file, section));
        return json;
    }
    const char *support_key = service.row->szSupportKey;
    json.Merge({{"file", nullptr},
                {"real_path", nullptr},
                {"location", kBuiltIn},
                {"version", nullptr},
                {"support_key", TextOrNull(support_key == nullptr ? "" : support_key)},
                {"run_key", nullptr}});
    json.Merge(SectionJson(section));
    return json;
}

void AddService(const CatalogueService &service, std::optional<bool> supported, Table &table,
                Report &report) {
    const bool built_in = service.section == nullptr;
    const OwnedSection made = built_in ? SectionOf(*service.service, report) : nullptr;
    const TAVO_SERVICE_CONF_SECTION &section = built_in ? *made : *service.section;
    if (report.PrintsJson()) {
        report.AddResult(FirewallServiceJson(service, supported, section));
        return;
    }
    table.Row({section.szName, supported ? (*supported ? "yes" : "no") : "",
               section.blPortForward != 0 ? "yes" : "no", PortsText(section.pDstPorts),
               OriginText(service), section.strTitle.szText});
}

// The built-in services in the order of their table, then those of files. The catalogue begins with
// those of files and ends with the table in reverse order.
std::vector<CatalogueService> TableFirst(const ServiceCatalogue &catalogue) {
    std::vector<CatalogueService> services(catalogue.origins.begin(), catalogue.origins.end());
    const auto last = std::find_if(services.begin(), services.end(),
                                   [](const auto &service) { return service.row != nullptr; });
    std::reverse(last, services.end());
    std::rotate(services.begin(), last, services.end());
    return services;
}

bool HasSupportKey(const CatalogueService &service) {
    return service.row != nullptr ? service.row->szSupportKey != nullptr
                                  : *service.file->conf->szSupportKey != '\0';
}

bool IsWanted(const std::string &name, const std::vector<std::string> &wanted) {
    return wanted.empty() || Holds(wanted, name);
}

// Reports the built-in services that are left out; raises the status if one of them is wanted.
void TellBuiltInLeftOut(const ReadingReport &read, const std::vector<std::string> &wanted,
                        Report &report) {
    for (const LeftOut &omission : read.Omissions()) {
        if (omission.row != nullptr && IsWanted(omission.row->szName, wanted)) {
            report.Tell(WhyLeftOut(omission.row->szName, omission.reading.Fault()));
            report.Raise(Status::kFailed);
        }
    }
}

// The names of all services, including those left out.
std::vector<std::string> NamesOf(const std::vector<CatalogueService> &services,
                                 const ReadingReport &read) {
    std::vector<std::string> names;
    for (const CatalogueService &service : services) {
        names.emplace_back(service.service->szName);
    }
    for (const LeftOut &omission : read.Omissions()) {
        if (omission.row != nullptr) {
            names.emplace_back(omission.row->szName);
        }
    }
    for (std::string &name : NamesLeftOut(read.Omissions())) {
        names.push_back(std::move(name));
    }
    return names;
}

void TellNotFound(const std::vector<std::string> &wanted, const std::vector<std::string> &names,
                  Report &report) {
    for (const std::string &name : wanted) {
        if (Holds(names, name)) {
            continue;
        }
        const auto similar =
            std::find_if(names.begin(), names.end(), [&name](const std::string &known) {
                return strcasecmp(known.c_str(), name.c_str()) == 0;
            });
        report.TellError("", "not-found", "no firewall service is named " + Quoted(name),
                         similar == names.end() ? "" : "write " + *similar, Status::kNo);
    }
}

// If the factory settings cannot be read, the library lists services with a support key as not
// supported. Here that is unknown.
void Services(const Arguments &arguments, Report &report) {
    const std::vector<std::string> &wanted = arguments.Operands();
    const bool only_supported = arguments.Has("--supported");
    Table table({"NAME", "SUPPORTED", "FORWARD", "PORTS", "FROM", "TITLE"});
    auto [catalogue, omissions] = ReadAndExplain(ReadCatalogue, wanted);
    TellBuiltInLeftOut(catalogue.report, wanted, report);
    if (TellOmissions(std::move(omissions), report)) {
        report.Raise(Status::kFailed);
    }
    const std::string problem = ReadRegularFile(kFactorySettingsFile).problem;
    const std::vector<CatalogueService> services = TableFirst(catalogue);
    bool support_known = true;
    for (const CatalogueService &service : services) {
        if (!IsWanted(service.service->szName, wanted)) {
            continue;
        }
        std::optional<bool> supported = service.service->blSupported != 0;
        if (!problem.empty() && HasSupportKey(service)) {
            supported.reset();
            support_known = false;
        }
        if (!only_supported || supported.value_or(false)) {
            AddService(service, supported, table, report);
        }
    }
    if (!support_known) {
        report.TellError(kFactorySettingsFile, "unreadable",
                         "it is unknown what this model supports: " + problem);
    }
    TellNotFound(wanted, NamesOf(services, catalogue.report), report);
    report.Print(table.Text(!arguments.Has("--no-legend"), report.Columns()));
}

constexpr Operand kOperands[] = {
    {.value = {"NAME", Completion::kFirewallServices},
     .help = "Only services of these names",
     .count = Count::kAny},
};

constexpr Option kOptions[] = {
    {.name = "--supported", .help = "Only services that this model supports"},
    kNoLegend,
};

constexpr char kExamples[] = R"(Examples:
  servicetool services                   every service that the firewall can offer
  servicetool services --supported       those that this model supports
  servicetool services ssh ftp           these two
  servicetool services --json ssh | jq '.results[0].ports')";

}  // namespace

constinit const Command kServicesCommand = {
    .name = "services",
    .summary = "List the services that the firewall can offer",
    .operands = kOperands,
    .options = kOptions,
    .examples = kExamples,
    .check = [](const Arguments &arguments) { return ProblemOfEmptyName(arguments.Operands()); },
    .run = Services,
};

}  // namespace tavo::tool
