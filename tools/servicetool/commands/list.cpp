#include <filesystem>

#include <nlohmann/json.hpp>

#include "commands/commands.h"
#include "input/service_file.h"
#include "output/table.h"

namespace tavo::tool {
namespace {

int SelectorOf(const ListOptions &options) {
    const int selector = (options.system ? TAVO_SERVICE_CONF_DIR_SYSTEM : 0) |
                         (options.package ? TAVO_SERVICE_CONF_DIR_PACKAGE : 0);
    return selector != 0 ? selector : kEveryServiceFolder;
}

void AddServices(const ServiceFile &file, Table &table, Report &report) {
    if (file.conf == nullptr) {
        return;
    }
    for (const TAVO_SERVICE_CONF_SECTION *service : InFileOrder(file.conf->pSections)) {
        table.Row({service->szName, std::filesystem::path(file.path).filename(),
                   std::string(file.location), PortsText(service->pDstPorts),
                   service->blPortForward != 0 ? "yes" : "no", service->strTitle.szText});
        if (report.Json()) {
            report.AddResult(ServiceJson(file.path, file.location, *file.conf, *service));
        }
    }
}

}  // namespace

void List(const ListOptions &options, Report &report) {
    Table table({"NAME", "FILE", "WHERE", "PORTS", "FORWARD", "TITLE"});
    for (const ServiceFolder &folder : ServiceFolders(SelectorOf(options))) {
        const FolderContents contents = ReadServiceFolder(folder, report);
        bool complete = contents.complete;
        for (const ServiceFile &file : contents.files) {
            complete = !TellWhatIsMissing(file, report) && complete;
            AddServices(file, table, report);
        }
        if (!complete) {
            report.Raise(Status::kFailed);
        }
    }
    report.Print(table.Text(!options.no_legend, report.Columns()));
}

}  // namespace tavo::tool
