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

// The ports of a built-in service, which may be settings with invalid values; these are reported
// and left out.
OwnedPorts PortsOf(const TAVO_FW_SERVICE &service, Report &report) {
    OwnedPorts ports;
    for (int i = 0; i < TLIBCSzListCount(service.pDstPortList); ++i) {
        const std::string port = TLIBCSzListGet(service.pDstPortList, i);
        TAVO_SERVICE_CONF_PORT *one = nullptr;
        const std::string text =
            Replaced(port, "-", ":") + '/' + ProtocolsText(service.nDstProtocol);
        if (TAVOServiceConfPortsGet(text.c_str(), TAVO_PORT_DIRECTION_DST, &one) != 0) {
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

// A built-in service in the form of a section of a file. No built-in service has source ports.
OwnedSection SectionOf(const TAVO_FW_SERVICE &service, Report &report) {
    OwnedSection section = OrThrow(NewRecord<OwnedSection>());
    std::memcpy(section->szName, service.szName, sizeof(section->szName));
    section->strTitle = service.strTitle;
    section->strDesc = service.strDesc;
    section->blPortForward = service.blPortForward;
    section->pDstPorts = PortsOf(service, report).release();
    return section;
}

constexpr char kBuiltIn[] = "built-in";

Json BuiltInJson(const TAVO_SERVICE_CONF_SECTION &section, const char *support_key) {
    Json json = {{"file", nullptr},
                 {"real_path", nullptr},
                 {"location", kBuiltIn},
                 {"version", nullptr},
                 {"support_key", TextOrNull(support_key)},
                 {"run_key", nullptr}};
    json.Merge(SectionJson(section));
    return json;
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

// The support key of a built-in service; "" if there is none.
const char *SupportKeyOf(const TAVO_FW_SERVICE &service) {
    const auto *row = rgServices;
    while (std::strcmp(row->szName, service.szName) != 0) {
        ++row;
    }
    return row->szSupportKey == nullptr ? "" : row->szSupportKey;
}

// The names of all services, including those left out.
std::vector<std::string> NamesOf(const DeclaredServices &read) {
    std::vector<std::string> names;
    for (const TAVO_FW_SERVICE *service : InFileOrder(read.built_in.get())) {
        names.emplace_back(service->szName);
    }
    ForEachService(read.report, [&names](const auto &, const auto &service) {
        names.emplace_back(service.szName);
    });
    for (const LeftOut &omission : read.report.Omissions()) {
        if (omission.row != nullptr) {
            names.emplace_back(omission.row->szName);
        }
    }
    for (std::string &name : NamesLeftOut(read.report.Omissions())) {
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
        const auto similar = std::ranges::find_if(names, [&name](const std::string &known) {
            return strcasecmp(known.c_str(), name.c_str()) == 0;
        });
        report.TellError("", "not-found", "no firewall service is named " + Quoted(name),
                         similar == names.end() ? "" : "write " + *similar, Status::kNo);
    }
}

// Adds a service to the table and the JSON. `file` is null for a built-in service; `supported` is
// empty if unknown.
void AddService(const TAVO_SERVICE_CONF_SECTION &section, const ServiceFileRecord *file,
                const char *support_key, std::optional<bool> supported, Table &table,
                Report &report) {
    table.Row({section.szName, supported ? (*supported ? "yes" : "no") : "",
               section.blPortForward != 0 ? "yes" : "no", PortsText(section.pDstPorts),
               file == nullptr ? kBuiltIn : FolderAndName(file->path), section.strTitle.szText});
    report.AddResult([&] {
        Json json = {{"name", section.szName}, {"supported", supported}};
        json.Merge(file == nullptr ? BuiltInJson(section, support_key)
                                   : ServiceJson(*file, section));
        return json;
    });
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
    // Calls add(supported) if the service is listed.
    const auto list = [&](const char *key, bool is_supported, auto add) {
        const bool known = problem.empty() || *key == '\0';
        support_known = support_known && known;
        const auto supported = known ? std::optional(is_supported) : std::nullopt;
        if (!arguments.Has("--supported") || supported.value_or(false)) {
            add(supported);
        }
    };
    for (const TAVO_FW_SERVICE *service : InFileOrder(read.built_in.get())) {
        if (IsWanted(service->szName, wanted)) {
            const char *key = SupportKeyOf(*service);
            list(key, service->blSupported != 0, [&](std::optional<bool> supported) {
                AddService(*SectionOf(*service, report), nullptr, key, supported, table, report);
            });
        }
    }
    const HeldFile held(kFactorySettingsFile);
    ForEachService(read.report, [&](const auto &file, const auto &section) {
        if (IsWanted(section.szName, wanted)) {
            const char *key = file.conf->szSupportKey;
            list(key, IsFileSupported(key), [&](std::optional<bool> supported) {
                AddService(section, &file, key, supported, table, report);
            });
        }
    });
    if (!support_known) {
        report.TellError(kFactorySettingsFile, "unreadable",
                         "it is unknown what this model supports: " + problem);
    }
    if (!wanted.empty()) {
        TellNotFound(wanted, NamesOf(read), report);
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
