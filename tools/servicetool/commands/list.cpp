#include <string>

#include "commands/commands.h"
#include "input/service_file.h"
#include "output/text.h"

namespace tavo::tool {
namespace {

void List(const Arguments &arguments, Report &report) {
    const int folders = FoldersOf(arguments);
    auto [read, omissions] = ReadAndExplain([folders] { return ReadServiceFolders(folders); });
    ReportOmissions(omissions, report);
    Table table({"NAME", "FILE", "WHERE", "PORTS", "FORWARD", "TITLE"});
    ForEachService(read.report, [&](const auto &file, const auto &service) {
        table.Row({service.szName, LastPart(file.path), file.folder->name,
                   PortsText(service.pDstPorts), service.blPortForward != 0 ? "yes" : "no",
                   service.strTitle.szText});
        report.AddResult([&] { return ServiceJson(file, service); });
    });
    report.Print(table.Text(!arguments.Has("--no-legend"), report.Columns()));
}

constexpr Option kOptions[] = {
    {.name = "--system", .help = "Only system files"},
    {.name = "--package", .help = "Only package files"},
    kNoLegend,
};

}  // namespace

constinit const Command kListCommand = {
    .name = "list",
    .summary = "List the services that the service files declare",
    .options = kOptions,
    .examples = R"(Examples:
  servicetool list                       every service of the appliance
  servicetool list --package             only those of packages
  servicetool list --no-legend | wc -l   how many there are
  servicetool list --json | jq -r '.results[].name')",
    .run = List,
};

}  // namespace tavo::tool
