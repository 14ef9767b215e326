// servicetool services. Converts the records of firewall services to sections, to print them like
// the other commands.
#include <strings.h>

#include <algorithm>
#include <cstring>
#include <optional>

#include "base/system_files.h"
#include "catalogue/firewall_service.h"
#include "commands/commands.h"
#include "input/input_file.h"
#include "input/library.h"
#include "input/service_file.h"
#include "output/text.h"
#include "ports/port_query.h"
#include "ports/port_sources.h"
#include "support/held_file.h"

namespace tavo::tool {
namespace {

// A built-in service in the form of a section of a file. No built-in service has source ports. Its
// destination ports may be settings with invalid values; these are reported and left out.
OwnedSection SectionOf(const TAVO_FW_SERVICE &service, Report &report) {
    OwnedSection section = OrThrow(NewRecord<OwnedSection>());
    std::memcpy(section->szName, service.szName, sizeof(section->szName));
    section->strTitle = service.strTitle;
    section->strDesc = service.strDesc;
    section->blPortForward = service.blPortForward;
    for (int i = 0; i < TLIBCSzListCount(service.pDstPortList); ++i) {
        const std::string port = TLIBCSzListGet(service.pDstPortList, i);
        TAVO_SERVICE_CONF_PORT *one = nullptr;
        const std::string text =
            Replaced(port, "-", ":") + '/' + ProtocolsText(service.nDstProtocol);
        if (TAVOServiceConfPortsGet(text.c_str(), TAVO_PORT_DIRECTION_DST, &one) == 0) {
            Prepend(OwnedPorts(one), &section->pDstPorts);
        } else {
            report.TellError("", "bad-service",
                             "firewall service " + std::string(service.szName) + " has " +
                                 Quoted(port) + " for a port");
        }
    }
    return section;
}

// The support key of a built-in service; "" if there is none.
const char *SupportKeyOf(const TAVO_FW_SERVICE &service) {
    const auto *row = rgServices;
    while (std::strcmp(row->szName, service.szName) != 0) {
        ++row;
    }
    return row->szSupportKey == nullptr ? "" : row->szSupportKey;
}

// A service of the firewall: a built-in one, or a section of a file.
struct Service {
    const char *name;
    const char *support_key;                             // "" if there is none
    const TAVO_FW_SERVICE *built_in = nullptr;           // null for a section
    const ServiceFileRecord *file = nullptr;             // null for a built-in service
    const TAVO_SERVICE_CONF_SECTION *section = nullptr;  // the same
};

std::vector<Service> ServicesIn(const DeclaredServices &read) {
    std::vector<Service> services;
    for (const TAVO_FW_SERVICE *service : InFileOrder(read.built_in.get())) {
        services.push_back(
            {.name = service->szName, .support_key = SupportKeyOf(*service), .built_in = service});
    }
    ForEachService(read.report, [&services](const auto &file, const auto &section) {
        services.push_back({.name = section.szName,
                            .support_key = file.conf->szSupportKey,
                            .file = &file,
                            .section = &section});
    });
    return services;
}

// Adds a service to the table and the JSON. `supported` is empty if unknown.
void AddService(const Service &service, std::optional<bool> supported, Table &table,
                Report &report) {
    constexpr char kBuiltIn[] = "built-in";
    const ServiceFileRecord *file = service.file;
    const OwnedSection converted = file == nullptr ? SectionOf(*service.built_in, report) : nullptr;
    const TAVO_SERVICE_CONF_SECTION &section = file == nullptr ? *converted : *service.section;
    table.Row({section.szName, supported ? (*supported ? "yes" : "no") : "",
               section.blPortForward != 0 ? "yes" : "no", PortsText(section.pDstPorts),
               file == nullptr ? kBuiltIn : FolderAndName(file->path), section.strTitle.szText});
    report.AddResult([&] {
        Json json = {{"name", section.szName}, {"supported", supported}};
        if (file != nullptr) {
            json.Merge(ServiceJson(*file, section));
            return json;
        }
        json.Merge({{"file", nullptr},
                    {"real_path", nullptr},
                    {"location", kBuiltIn},
                    {"version", nullptr},
                    {"support_key", TextOrNull(service.support_key)},
                    {"run_key", nullptr}});
        json.Merge(SectionJson(section));
        return json;
    });
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

// Reports the wanted services that do not exist. Those that are left out do.
void TellNotFound(const std::vector<std::string> &wanted, const std::vector<Service> &services,
                  const ReadingReport &read, Report &report) {
    std::vector<std::string> names;
    std::ranges::transform(services, std::back_inserter(names), &Service::name);
    std::ranges::copy(NamesLeftOut(read.Omissions()), std::back_inserter(names));
    for (const std::string &name : wanted) {
        if (Holds(names, name)) {
            continue;
        }
        const auto similar = std::ranges::find_if(names, [&name](const std::string &known) {
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
    auto [read, omissions] = ReadAndExplain([] { return ReadDeclaredServices(); }, wanted);
    TellBuiltInLeftOut(read.report, wanted, report);
    TellOmissions(omissions, report);
    Table table({"NAME", "SUPPORTED", "FORWARD", "PORTS", "FROM", "TITLE"});
    const std::string problem = ReadRegularFile(kFactorySettingsFile).problem;
    bool support_known = true;
    const HeldFile held(kFactorySettingsFile);
    const std::vector<Service> services = ServicesIn(read);
    for (const Service &service : services) {
        if (!IsWanted(service.name, wanted)) {
            continue;
        }
        std::optional<bool> supported = service.file == nullptr
                                            ? service.built_in->blSupported != 0
                                            : IsFileSupported(service.support_key);
        if (!problem.empty() && *service.support_key != '\0') {
            supported.reset();
            support_known = false;
        }
        if (!arguments.Has("--supported") || supported.value_or(false)) {
            AddService(service, supported, table, report);
        }
    }
    if (!support_known) {
        report.TellError(kFactorySettingsFile, "unreadable",
                         "it is unknown what this model supports: " + problem);
    }
    if (!wanted.empty()) {
        TellNotFound(wanted, services, read.report, report);
    }
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

}  // namespace

constinit const Command kServicesCommand = {
    .name = "services",
    .summary = "List the services that the firewall can offer",
    .operands = kOperands,
    .options = kOptions,
    .examples = R"(Examples:
  servicetool services                   every service that the firewall can offer
  servicetool services --supported       those that this model supports
  servicetool services ssh ftp           these two
  servicetool services --json ssh | jq '.results[0].ports')",
    .check = [](const Arguments &arguments) { return ProblemOfEmptyName(arguments.Operands()); },
    .run = Services,
};

}  // namespace tavo::tool
