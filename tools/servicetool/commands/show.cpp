#include <strings.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
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

void AddFile(const ServiceFile &file, Fields &fields) {
    const std::string real_path = RealPathOf(file.path);
    fields.emplace_back("File", file.path);
    if (!real_path.empty() && real_path != file.path) {
        fields.emplace_back("Real path", real_path);
    }
    fields.emplace_back("Where", file.location);
    fields.emplace_back("Version", std::to_string(file.conf->nVersion));
    fields.emplace_back("Support key", file.conf->szSupportKey);
    fields.emplace_back("Run key", file.conf->szRunKey);
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
    const ServiceFile file = ReadServiceFile(path);
    if (TellWhatIsMissing(file, report)) {
        report.Raise(Status::kFailed);
    }
    if (file.conf == nullptr) {
        return;
    }
    Fields fields;
    AddFile(file, fields);
    for (const TAVO_SERVICE_CONF_SECTION *service : InFileOrder(file.conf->pSections)) {
        AddService(*service, fields);
        report.AddResult(ServiceJson(file.path, file.location, *file.conf, *service));
    }
    report.Print(FieldsText(fields));
}

// Searches all service folders for a service by name.
class Search {
  public:
    Search(const std::string &name, Report &report) : name_(name), report_(report) {}

    // Returns false if no service of that name was found; the caller must then report this.
    bool Run();

    void TellNotFound();

  private:
    void LookAt(const ServiceFile &file);
    void LookAtUnreadable(const ServiceFile &file);
    void NoteSimilar(const std::string &name);

    const std::string &name_;
    Report &report_;
    Fields fields_;
    bool found_ = false;   // true even if the service cannot be read
    std::string similar_;  // a name that differs in case only
    std::string path_;     // path of a file of that name in a service folder
};

bool Search::Run() {
    for (const ServiceFolder &folder : ServiceFolders(kEveryServiceFolder)) {
        const FolderContents contents = ReadServiceFolder(folder, report_);
        if (!contents.complete) {
            report_.Raise(Status::kFailed);
        }
        for (const ServiceFile &file : contents.files) {
            LookAt(file);
        }
    }
    report_.Print(FieldsText(fields_));
    return found_;
}

void Search::LookAt(const ServiceFile &file) {
    const auto *sections = file.conf != nullptr ? file.conf->pSections : nullptr;
    for (const TAVO_SERVICE_CONF_SECTION *service : InFileOrder(sections)) {
        NoteSimilar(service->szName);
        if (name_ == service->szName) {
            found_ = true;
            if (!fields_.empty()) {
                fields_.emplace_back();
            }
            AddFile(file, fields_);
            AddService(*service, fields_);
            report_.AddResult(ServiceJson(file.path, file.location, *file.conf, *service));
        }
    }
    LookAtUnreadable(file);
    if (path_.empty() && std::filesystem::path(file.path).filename() == name_) {
        path_ = file.path;
    }
}

// A file that cannot be read may also contain the service, so the answer may be incomplete.
void Search::LookAtUnreadable(const ServiceFile &file) {
    if (!file.problem.empty()) {
        report_.Raise(Status::kFailed);
        report_.TellError(file.path, "unreadable", file.problem);
    }
    for (const LintedService &service : file.lint.services) {
        NoteSimilar(service.name);
        if (!service.readable && service.name == name_) {
            found_ = true;
            TellLeftOut(file, service, report_);
            report_.Raise(Status::kFailed);
        }
    }
}

void Search::NoteSimilar(const std::string &name) {
    if (name != name_ && strcasecmp(name.c_str(), name_.c_str()) == 0) {
        similar_ = name;
    }
}

void Search::TellNotFound() {
    const std::string &meant = path_.empty() ? similar_ : path_;
    report_.TellError("", "not-found", "no service or file is named " + Quoted(name_),
                      meant.empty() ? "" : "write " + meant);
    report_.Raise(Status::kNo);
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
// its path.
void ShowName(const std::string &name, Report &report) {
    Search search(name, report);
    if (search.Run()) {
        return;
    }
    if (IsFileHere(name)) {
        ShowFile(name, report);
    } else {
        search.TellNotFound();
    }
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

constexpr char kExamples[] = R"(Examples:
  servicetool show ntp                   the service ntp, from any file
  servicetool show ./mypackage.sc        all services of a file
  servicetool show --json ntp | jq '.results[0].ports')";

}  // namespace

constinit const Command kShowCommand = {
    .name = "show",
    .summary = "Show everything that a service or a service file declares",
    .operands = kOperands,
    .options = {},
    .examples = kExamples,
    .check = [](const Arguments &arguments) { return ProblemOfNames(arguments.Operands()); },
    .run = [](const Arguments &arguments, Report &report) { Show(arguments.Word(0), report); },
};

}  // namespace tavo::tool
