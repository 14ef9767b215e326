#include <filesystem>
#include <utility>

#include "commands/commands.h"
#include "input/service_file.h"

namespace tavo::tool {
namespace {

void AddServices(const ServiceFileRecord &file, Table &table, Report &report) {
    for (const TAVO_SERVICE_CONF_SECTION *service : InFileOrder(file.conf->pSections)) {
        table.Row({service->szName, std::filesystem::path(file.path).filename(), file.folder->name,
                   PortsText(service->pDstPorts), service->blPortForward != 0 ? "yes" : "no",
                   service->strTitle.szText});
        report.AddResult([&] { return ServiceJson(file, *service); });
    }
}

void List(const Arguments &arguments, Report &report) {
    const int folders = FoldersOf(arguments);
    auto [read, omissions] = ReadAndExplain([folders] { return ReadServiceFolders(folders); });
    TellOmissions(std::move(omissions), report);
    Table table({"NAME", "FILE", "WHERE", "PORTS", "FORWARD", "TITLE"});
    for (const ServiceFileRecord &file : read.report.Files()) {
        if (file.conf != nullptr) {
            AddServices(file, table, report);
        }
    }
    report.Print(table.Text(!arguments.Has("--no-legend"), report.Columns()));
}

constexpr Option kOptions[] = {
    {.name = "--system", .help = "Only system files"},
    {.name = "--package", .help = "Only package files"},
    kNoLegend,
};

constexpr char kExamples[] = R"(Examples:
  servicetool list                       every service of the appliance
  servicetool list --package             only those of packages
  servicetool list --no-legend | wc -l   how many there are
  servicetool list --json | jq -r '.results[].name')";

}  // namespace

constinit const Command kListCommand = {
    .name = "list",
    .summary = "List the services that the service files declare",
    .operands = {},
    .options = kOptions,
    .examples = kExamples,
    .run = List,
};

}  // namespace tavo::tool
