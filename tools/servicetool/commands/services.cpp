// servicetool services. Converts the records of firewall services to sections, to print them like
// the other commands.
#include <strings.h>

#include <algorithm>
#include <cstring>

#include "commands/commands.h"
#include "input/input_file.h"
#include "output/table.h"
#include "output/text.h"
#include "ports/firewall_services.h"
#include "ports/port_query.h"

namespace tavo::tool {
namespace {

// "1000:2000" for "1000-2000".
std::string InFileNotation(std::string port) {
    std::replace(port.begin(), port.end(), '-', ':');
    return port;
}

// A built-in service in the form of a section of a file. Its ports may be settings with invalid
// values, which are reported and left out.
class BuiltInSection {
  public:
    BuiltInSection(const FirewallService &service, Report &report);

    const TAVO_SERVICE_CONF_SECTION &Section() const { return section_; }

  private:
    OwnedPorts Ports(const TLIBCSzList *list, std::uint32_t protocols, unsigned int direction);

    const FirewallService &service_;
    Report &report_;
    OwnedPorts source_ports_;
    OwnedPorts ports_;
    TAVO_SERVICE_CONF_SECTION section_{};
};

BuiltInSection::BuiltInSection(const FirewallService &service, Report &report)
    : service_(service), report_(report) {
    const TAVO_FW_SERVICE &record = *service.record;
    source_ports_ = Ports(record.pSrcPortList, record.nSrcProtocol, TAVO_PORT_DIRECTION_SRC);
    ports_ = Ports(record.pDstPortList, record.nDstProtocol, TAVO_PORT_DIRECTION_DST);
    std::memcpy(section_.szName, record.szName, sizeof(section_.szName));
    section_.strTitle = record.strTitle;
    section_.strDesc = record.strDesc;
    section_.blPortForward = record.blPortForward;
    section_.pSrcPorts = source_ports_.get();
    section_.pDstPorts = ports_.get();
}

OwnedPorts BuiltInSection::Ports(const TLIBCSzList *list, std::uint32_t protocols,
                                 unsigned int direction) {
    OwnedPorts ports;
    for (int i = 0; i < TLIBCSzListCount(list); ++i) {
        const std::string port = TLIBCSzListGet(list, i);
        TAVO_SERVICE_CONF_PORT *one = nullptr;
        const std::string text = InFileNotation(port) + '/' + ProtocolsText(protocols);
        if (TAVOServiceConfPortsGet(text.c_str(), direction, &one) != 0) {
            report_.TellError("", "bad-service",
                              "firewall service " + std::string(service_.record->szName) + " has " +
                                  Quoted(port) + " for a port");
            report_.Raise(Status::kFailed);
            continue;
        }
        one->pNext = ports.release();
        ports.reset(one);
    }
    return ports;
}

Json FirewallServiceJson(const FirewallService &service, const TAVO_SERVICE_CONF_SECTION &section) {
    Json json = {{"name", section.szName}, {"supported", service.supported}};
    if (service.file != nullptr) {
        json.Merge(ServiceJson(service.file->path, service.file->folder->name, *service.file->conf,
                               section));
        return json;
    }
    const char *support_key = service.row->szSupportKey;
    json.Merge({{"file", nullptr},
                {"real_path", nullptr},
                {"location", TextOrNull(OriginText(service))},
                {"version", nullptr},
                {"support_key", TextOrNull(support_key == nullptr ? "" : support_key)},
                {"run_key", nullptr}});
    json.Merge(SectionJson(section));
    return json;
}

void AddSection(const FirewallService &service, const TAVO_SERVICE_CONF_SECTION &section,
                Table &table, Report &report) {
    if (report.PrintsJson()) {
        report.AddResult(FirewallServiceJson(service, section));
        return;
    }
    table.Row({section.szName, service.supported ? (*service.supported ? "yes" : "no") : "",
               section.blPortForward != 0 ? "yes" : "no", PortsText(section.pDstPorts),
               OriginText(service), section.strTitle.szText});
}

void AddService(const FirewallService &service, Table &table, Report &report) {
    if (service.section != nullptr) {
        AddSection(service, *service.section, table, report);
    } else {
        AddSection(service, BuiltInSection(service, report).Section(), table, report);
    }
}

// The names of all services, including those left out.
std::vector<std::string> NamesOf(const FirewallServices &read) {
    std::vector<std::string> names;
    for (const FirewallService &service : read.services) {
        names.emplace_back(service.record->szName);
    }
    for (const TAVO_FW_SERVICE_REG *row : read.left_out) {
        names.emplace_back(row->szName);
    }
    for (const ServiceFile &file : read.files) {
        for (const LintedService &service : file.lint.services) {
            names.push_back(service.name);
        }
    }
    return names;
}

void TellNotFound(const std::vector<std::string> &wanted, const FirewallServices &read,
                  Report &report) {
    const std::vector<std::string> names = NamesOf(read);
    for (const std::string &name : wanted) {
        if (Holds(names, name)) {
            continue;
        }
        const auto similar =
            std::find_if(names.begin(), names.end(), [&name](const std::string &known) {
                return strcasecmp(known.c_str(), name.c_str()) == 0;
            });
        report.TellError("", "not-found", "no firewall service is named " + Quoted(name),
                         similar == names.end() ? "" : "write " + *similar);
        report.Raise(Status::kNo);
    }
}

void TellSupportUnknown(Report &report) {
    report.TellError(
        kFactorySettingsFile, "unreadable",
        "it is unknown what this model supports: " + ReadRegularFile(kFactorySettingsFile).problem);
    report.Raise(Status::kFailed);
}

void Services(const Arguments &arguments, Report &report) {
    const std::vector<std::string> &names = arguments.Operands();
    const bool only_supported = arguments.Has("--supported");
    Table table({"NAME", "SUPPORTED", "FORWARD", "PORTS", "FROM", "TITLE"});
    const FirewallServices read = ReadFirewallServices(report, names);
    bool support_known = true;
    for (const FirewallService &service : read.services) {
        if (!names.empty() && !Holds(names, service.record->szName)) {
            continue;
        }
        support_known = support_known && service.supported.has_value();
        if (!only_supported || service.supported.value_or(false)) {
            AddService(service, table, report);
        }
    }
    if (!support_known) {
        TellSupportUnknown(report);
    }
    if (!read.complete) {
        report.Raise(Status::kFailed);
    }
    TellNotFound(names, read, report);
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
