#include <strings.h>
#include <sys/stat.h>

#include <cerrno>
#include <utility>

#include "commands/commands.h"
#include "input/input_file.h"
#include "input/service_file.h"
#include "output/text.h"

namespace tavo::tool {
namespace {

// Labels and values, printed as "Label: value" lines with aligned values. A pair without a label is
// an empty line.
using Fields = std::vector<std::pair<std::string, std::string>>;

std::string FieldsText(const Fields &fields) {
    std::size_t width = 0;
    for (const auto &[label, value] : fields) {
        width = std::max(width, label.size());
    }
    std::string text;
    for (const auto &[label, value] : fields) {
        if (!label.empty()) {
            text += label + ": " + std::string(width - label.size(), ' ') +
                    (value.empty() ? "-" : Escaped(value));
        }
        text += '\n';
    }
    return text;
}

void AddFile(const ServiceFileRecord &file, Fields &fields) {
    const std::string real_path = RealPathOf(file.path);
    fields.emplace_back("File", file.path);
    if (!real_path.empty() && real_path != file.path) {
        fields.emplace_back("Real path", real_path);
    }
    fields.insert(fields.end(), {{"Where", file.folder != nullptr ? file.folder->name : ""},
                                 {"Version", std::to_string(file.conf->nVersion)},
                                 {"Support key", file.conf->szSupportKey},
                                 {"Run key", file.conf->szRunKey}});
}

void AddService(const TAVO_SERVICE_CONF_SECTION &service, Fields &fields) {
    fields.insert(fields.end(), {{"", ""},
                                 {"Service", service.szName},
                                 {"Title", service.strTitle.szText},
                                 {"Title key", ReferenceText(service.strTitle)},
                                 {"Description", service.strDesc.szText},
                                 {"Description key", ReferenceText(service.strDesc)},
                                 {"Extra text", service.strDesc.szExtra},
                                 {"Port forward", service.blPortForward != 0 ? "yes" : "no"},
                                 {"Source ports", PortsText(service.pSrcPorts)},
                                 {"Destination ports", PortsText(service.pDstPorts)}});
}

void ShowFile(const std::string &path, Report &report) {
    const LintedFile file = ReadAndLint(path);
    if (!file.problem.empty()) {
        report.TellError(file.name, "unreadable", file.problem);
        return;
    }
    const OwnedConf conf = ReadServices(file.text);
    TellOmissions({.diagnostics = WhyLeftOut(file)}, report);
    if (conf == nullptr) {
        return;
    }
    const ServiceFolder *folder = path == kStandardInput ? nullptr : ServiceFolderOf(path);
    const ServiceFileRecord record = {folder, file.name.c_str(), conf.get()};
    Fields fields;
    AddFile(record, fields);
    for (const TAVO_SERVICE_CONF_SECTION *service : InFileOrder(conf->pSections)) {
        AddService(*service, fields);
        report.AddResult([&] { return ServiceJson(record, *service); });
    }
    report.Print(FieldsText(fields));
}

// The path of a file of that name in a service folder, otherwise the name of a service that differs
// in case only; empty if there is neither.
std::string MeantBy(const std::string &name, const ReadingReport &read) {
    std::string similar;
    const auto note = [&](const std::string &known) {
        if (strcasecmp(known.c_str(), name.c_str()) == 0) {
            similar = known;
        }
    };
    for (const ServiceFileRecord &file : read.Files()) {
        if (LastPart(file.path) == name) {
            return file.path;
        }
    }
    ForEachService(read, [&note](const auto &, const auto &service) { note(service.szName); });
    for (const std::string &left_out : NamesLeftOut(read.Omissions())) {
        note(left_out);
    }
    return similar;
}

// Whether the current folder may contain a file of that name, other than a folder. If that is
// unknown, returns true, and reading the file reports the reason.
bool IsFileHere(const std::string &name) {
    struct stat status {};
    if (lstat(name.c_str(), &status) != 0) {
        return errno != ENOENT && errno != ENAMETOOLONG;
    }
    return stat(name.c_str(), &status) != 0 || !S_ISDIR(status.st_mode);
}

// A service takes precedence over a file of that name in the current folder; a file can be named by
// its path. A file in a service folder that cannot be read may also contain the service, so the
// answer may be incomplete.
void ShowName(const std::string &name, Report &report) {
    auto [read, omissions] =
        ReadAndExplain([] { return ReadServiceFolders(kEveryServiceFolder); }, {name});
    TellOmissions(omissions, report);
    Fields fields;
    ForEachService(read.report, [&](const auto &file, const auto &service) {
        if (name == service.szName) {
            if (!fields.empty()) {
                fields.emplace_back();
            }
            AddFile(file, fields);
            AddService(service, fields);
            report.AddResult([&] { return ServiceJson(file, service); });
        }
    });
    report.Print(FieldsText(fields));
    if (!fields.empty() || Holds(NamesLeftOut(read.report.Omissions()), name)) {
        return;
    }
    if (IsFileHere(name)) {
        ShowFile(name, report);
        return;
    }
    const std::string meant = MeantBy(name, read.report);
    report.TellError("", "not-found", "no service or file is named " + Quoted(name),
                     meant.empty() ? "" : "write " + meant, Status::kNo);
}

void Show(const std::string &target, Report &report) {
    if (target == kStandardInput || target.find('/') != std::string::npos) {
        ShowFile(target, report);
    } else {
        ShowName(target, report);
    }
}

constexpr Operand kOperands[] = {
    {.value = {"NAME|FILE", Completion::kServicesAndFiles},
     .help = "Name of a service, or a file; - is standard input"},
};

}  // namespace

constinit const Command kShowCommand = {
    .name = "show",
    .summary = "Show everything that a service or a service file declares",
    .operands = kOperands,
    .examples = R"(Examples:
  servicetool show ntp                   the service ntp, from any file
  servicetool show ./mypackage.sc        all services of a file
  servicetool show --json ntp | jq '.results[0].ports')",
    .check = [](const Arguments &arguments) { return ProblemOfNames(arguments.Operands()); },
    .run = [](const Arguments &arguments, Report &report) { Show(arguments.Word(0), report); },
};

}  // namespace tavo::tool
