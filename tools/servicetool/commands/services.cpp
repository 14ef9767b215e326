// servicetool services. Converts the records of firewall services to sections, to print them like
// the other commands.
#include <strings.h>

#include <algorithm>
#include <cstring>
#include <exception>
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

// A service as it is printed, apart from whether it is supported.
struct ListedService {
    std::string name;
    std::string support_key;         // "" if there is none
    std::vector<std::string> cells;  // those after SUPPORTED
    Json json;
};

// `file` is null for a built-in service. Makes either the cells or the JSON.
ListedService Listed(const TAVO_SERVICE_CONF_SECTION &section, const ServiceFileRecord *file,
                     const char *support_key, bool json) {
    ListedService listed = {section.szName, support_key, {}, nullptr};
    if (!json) {
        listed.cells = {section.blPortForward != 0 ? "yes" : "no", PortsText(section.pDstPorts),
                        file == nullptr ? kBuiltIn : FolderAndName(file->path),
                        section.strTitle.szText};
    } else if (file != nullptr) {
        listed.json = ServiceJson(*file, section);
    } else {
        listed.json = {{"file", nullptr},
                       {"real_path", nullptr},
                       {"location", kBuiltIn},
                       {"version", nullptr},
                       {"support_key", TextOrNull(support_key)},
                       {"run_key", nullptr}};
        listed.json.Merge(SectionJson(section));
    }
    return listed;
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

// Reads all services. Of those in files it keeps only what is printed, because an appliance has
// thousands.
class ServiceReading {
  public:
    ServiceReading(const std::vector<std::string> &wanted, bool json)
        : wanted_(wanted), json_(json) {
        const FileVisitor visitor = {[](void *self, const ServiceFileRecord &file) {
                                         static_cast<ServiceReading *>(self)->Visit(file);
                                     },
                                     this};
        DeclaredServices declared = ReadDeclaredServices(&visitor);
        if (failure_) {
            std::rethrow_exception(failure_);
        }
        built_in = std::move(declared.built_in);
        report = std::move(declared.report);
    }

    OwnedServices built_in;
    ReadingReport report;
    std::vector<ListedService> of_files;  // those that are wanted
    std::vector<std::string> file_names;  // the names of all services of files

  private:
    // The library is compiled without exceptions, so none may pass through it.
    void Visit(const ServiceFileRecord &file) {
        try {
            for (const TAVO_SERVICE_CONF_SECTION *section : InFileOrder(file.conf->pSections)) {
                file_names.emplace_back(section->szName);
                if (IsWanted(section->szName, wanted_)) {
                    of_files.push_back(Listed(*section, &file, file.conf->szSupportKey, json_));
                }
            }
        } catch (...) {
            failure_ = std::current_exception();
        }
    }

    const std::vector<std::string> &wanted_;
    bool json_;
    std::exception_ptr failure_;
};

// The support key of a built-in service; "" if there is none.
const char *SupportKeyOf(const TAVO_FW_SERVICE &service) {
    const auto *row = rgServices;
    while (std::strcmp(row->szName, service.szName) != 0) {
        ++row;
    }
    return row->szSupportKey == nullptr ? "" : row->szSupportKey;
}

// The names of all services, including those left out.
std::vector<std::string> NamesOf(const ServiceReading &read) {
    std::vector<std::string> names;
    for (const TAVO_FW_SERVICE *service : InFileOrder(read.built_in.get())) {
        names.emplace_back(service->szName);
    }
    names.insert(names.end(), read.file_names.begin(), read.file_names.end());
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
        const auto similar =
            std::find_if(names.begin(), names.end(), [&name](const std::string &known) {
                return strcasecmp(known.c_str(), name.c_str()) == 0;
            });
        report.TellError("", "not-found", "no firewall service is named " + Quoted(name),
                         similar == names.end() ? "" : "write " + *similar, Status::kNo);
    }
}

void Print(ListedService service, std::optional<bool> supported, Table &table, Report &report) {
    if (report.PrintsJson()) {
        Json json = {{"name", service.name}, {"supported", supported}};
        json.Merge(service.json);
        report.AddResult(json);
        return;
    }
    service.cells.insert(service.cells.begin(),
                         {service.name, supported ? (*supported ? "yes" : "no") : ""});
    table.Row(service.cells);
}

// If the factory settings cannot be read, the library lists services with a support key as not
// supported. Here that is unknown.
void Services(const Arguments &arguments, Report &report) {
    const std::vector<std::string> &wanted = arguments.Operands();
    const bool json = report.PrintsJson();
    auto [read, omissions] = ReadAndExplain([&] { return ServiceReading(wanted, json); }, wanted);
    TellBuiltInLeftOut(read.report, wanted, report);
    TellOmissions(std::move(omissions), report);
    Table table({"NAME", "SUPPORTED", "FORWARD", "PORTS", "FROM", "TITLE"});
    const std::string problem = ReadRegularFile(kFactorySettingsFile).problem;
    bool support_known = true;
    const auto print = [&](const char *support_key, bool is_supported, auto make) {
        std::optional<bool> supported = is_supported;
        if (!problem.empty() && *support_key != '\0') {
            supported.reset();
            support_known = false;
        }
        if (!arguments.Has("--supported") || supported.value_or(false)) {
            Print(make(), supported, table, report);
        }
    };
    for (const TAVO_FW_SERVICE *service : InFileOrder(read.built_in.get())) {
        if (IsWanted(service->szName, wanted)) {
            const char *key = SupportKeyOf(*service);
            print(key, service->blSupported != 0,
                  [&] { return Listed(*SectionOf(*service, report), nullptr, key, json); });
        }
    }
    const HeldFile held(kFactorySettingsFile);
    for (ListedService &service : read.of_files) {
        const char *key = service.support_key.c_str();
        print(key, IsFileSupported(key), [&service] { return std::move(service); });
    }
    if (!support_known) {
        report.TellError(kFactorySettingsFile, "unreadable",
                         "it is unknown what this model supports: " + problem);
    }
    TellNotFound(wanted, NamesOf(read), report);
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
