#include "input/service_file.h"

#include <cstring>
#include <filesystem>
#include <new>
#include <optional>
#include <set>
#include <utility>

#include "base/system_files.h"
#include "input/input_file.h"
#include "model/service_file_keys.h"
#include "output/text.h"
#include "ports/port_query.h"

namespace tavo::tool {
namespace {

// The paths of files with services left out. A [global] section that cannot be read is ignored.
std::set<const char *> PathsWithOmissions(const ReadingReport &read) {
    std::set<const char *> paths;
    for (const LeftOut &omission : read.Omissions()) {
        const bool global =
            omission.section != nullptr && std::strcmp(omission.section, kGlobalSection) == 0;
        if (omission.path != nullptr && !global) {
            paths.insert(omission.path);
        }
    }
    return paths;
}

OwnedConf TakeFirst(OwnedConf &list) {
    OwnedConf first = std::move(list);
    list.reset(std::exchange(first->pNext, nullptr));
    return first;
}

// `path` is the path for the library, which for standard input is not the name for messages.
void ReadWithLibrary(const std::string &path, ServiceFile &file) {
    TAVO_SERVICE_CONF *conf = nullptr;
    if (TAVOServiceConfGet(path.c_str(), &conf) == 0) {
        file.conf.reset(conf);
    }
}

// The message of lint about a section, for use after the section's name.
std::string AboutIt(const std::string &message, const std::string &section) {
    const std::string subjects[][2] = {
        {"section [" + Shortened(section) + "] ", "it "},
        {"section name " + Quoted(section) + " ", "its name "},
    };
    for (const auto &[subject, pronoun] : subjects) {
        if (message.starts_with(subject)) {
            return pronoun + message.substr(subject.size());
        }
    }
    return message;
}

// Reports `consequence`, which may be about a service, with a finding of lint as the reason.
void TellBecause(const ServiceFile &file, const std::string &consequence,
                 std::optional<std::size_t> finding, const LintedService *service,
                 Severity severity, Report &report) {
    if (!finding) {
        // The finding is not among those that lint lists.
        report.Tell({file.path, 0, 0, severity, "unreadable", consequence, "", {}});
        return;
    }
    Diagnostic diagnostic = file.lint.diagnostics[*finding];
    diagnostic.severity = severity;
    diagnostic.message =
        consequence + ": " +
        (service != nullptr ? AboutIt(diagnostic.message, service->name) : diagnostic.message);
    report.Tell(std::move(diagnostic));
}

void TellRefused(const ServiceFile &file, Severity severity, Report &report) {
    const auto &diagnostics = file.lint.diagnostics;
    std::optional<std::size_t> finding;
    for (std::size_t i = 0; i < diagnostics.size() && !finding; ++i) {
        if (diagnostics[i].severity == Severity::kError) {
            finding = i;
        }
    }
    TellBecause(file, "not read as a service file", finding, nullptr, severity, report);
}

constexpr char kChanged[] = "changed while it was read";

bool LacksNothing(const ServiceFile &file) {
    return file.conf != nullptr &&
           std::all_of(file.lint.services.begin(), file.lint.services.end(),
                       [](const LintedService &service) { return service.readable; });
}

ServiceFile ProblemFile(const std::string &path, std::string problem) {
    ServiceFile file;
    file.path = path;
    file.problem = std::move(problem);
    return file;
}

ServiceFile ReadStandardInputFile() {
    const std::string name(kStandardInputName);
    const FileContents contents = ReadStandardInput();
    ServiceFile file = ProblemFile(name, contents.problem);
    if (file.problem.empty()) {
        ReadWithLibrary(MemoryFile(contents.text).Path(), file);
        file.lint = LintText(contents.text, name);
    }
    return file;
}

ServiceFile ReadNamedFile(const std::string &path) {
    const FileContents contents = ReadRegularFile(path);
    ServiceFile file = ProblemFile(path, contents.problem);
    file.location = LocationOf(path);
    if (file.problem.empty()) {
        ReadWithLibrary(path, file);
        file.lint = LintText(contents.text, path);
    }
    return file;
}

std::string PortText(const TAVO_SERVICE_CONF_PORT &port) {
    const std::string start = std::to_string(port.nPortStart);
    return port.nPortType == 0 ? start : start + ':' + std::to_string(port.nPortEnd);
}

Json PortsJson(const TAVO_SERVICE_CONF_PORT *list) {
    return Json::ArrayOf(InFileOrder(list), [](const TAVO_SERVICE_CONF_PORT *port) -> Json {
        return {{"start", port->nPortStart},
                {"end", port->nPortType == 0 ? port->nPortStart : port->nPortEnd},
                {"protocols", ProtocolNames(port->nProtocol)}};
    });
}

Json ReferenceJson(const TAVO_SERVICE_CONF_STRING &string) {
    if (!HasReference(string)) {
        return nullptr;
    }
    return {{"source", TextOrNull(string.szSource)},
            {"section", Utf8Text(string.szSection)},
            {"key", Utf8Text(string.szKey)}};
}

}  // namespace

bool LibraryAndLintAgree(const TAVO_SERVICE_CONF *conf, const LintResult &lint) {
    auto read = InFileOrder(conf != nullptr ? conf->pSections : nullptr);
    auto next = read.begin();
    for (const LintedService &service : lint.services) {
        const std::string kept = service.name.substr(0, TAVO_SERVICE_CONF_NAME_SIZE - 1);
        if (service.readable && (next == read.end() || kept != (*next++)->szName)) {
            return false;
        }
    }
    return next == read.end();
}

bool HasReference(const TAVO_SERVICE_CONF_STRING &string) {
    return *string.szSource != '\0' || *string.szSection != '\0' || *string.szKey != '\0';
}

std::string ReferenceText(const TAVO_SERVICE_CONF_STRING &string) {
    if (!HasReference(string)) {
        return {};
    }
    const std::string source = string.szSource;
    return (source.empty() ? "" : source + ':') + string.szSection + ':' + string.szKey;
}

// Does not follow a symbolic link of the file itself: the folder of the link counts.
std::string_view LocationOf(const std::string &path) {
    if (path == kStandardInputName) {
        return {};
    }
    const std::string parent = std::filesystem::path(path).parent_path();
    const std::string folder = RealPathOf(parent.empty() ? "." : parent);
    for (const ServiceFolder &candidate : kServiceFolders) {
        if (!folder.empty() && folder == RealPathOf(std::string(candidate.path))) {
            return candidate.name;
        }
    }
    return {};
}

std::string RealPathOf(const std::string &path) {
    std::error_code error;
    return std::filesystem::canonical(path, error);
}

std::vector<ServiceFolder> ServiceFolders(int selector) {
    std::vector<ServiceFolder> folders;
    for (const ServiceFolder &folder : kServiceFolders) {
        if ((selector & folder.selector) != 0) {
            folders.push_back(folder);
        }
    }
    return folders;
}

// Tries again if the file was changed between its readings by the library and by lint.
ServiceFile ReadServiceFile(const std::string &path) {
    constexpr int kAttempts = 3;
    if (path == kStandardInput) {
        return ReadStandardInputFile();
    }
    ServiceFile file;
    for (int i = 0; i < kAttempts; ++i) {
        file = ReadNamedFile(path);
        if (!file.problem.empty() || LibraryAndLintAgree(file.conf.get(), file.lint)) {
            return file;
        }
    }
    return ProblemFile(path, kChanged);
}

bool TellUnlistedFolders(const ReadingReport &read, Report &report) {
    bool any = false;
    for (const LeftOut &omission : read.Omissions()) {
        if (omission.row == nullptr && omission.path == nullptr) {
            report.TellError(omission.folder->path, "unreadable", ErrorText(omission.error));
            any = true;
        }
    }
    return any;
}

void CheckMemory(const ReadingReport &read) {
    if (read.Fault() == TLIBC_ERR_NO_MEMORY) {
        throw std::bad_alloc();
    }
}

// Also reports a file that was left out but has become readable since.
std::vector<ServiceFile> FilesWithOmissions(const ReadingReport &read) {
    const std::set<const char *> paths = PathsWithOmissions(read);
    std::vector<ServiceFile> files;
    for (const ServiceFileRecord &record : read.Files()) {
        if (paths.contains(record.path)) {
            ServiceFile file = ReadServiceFile(record.path);
            files.push_back(LacksNothing(file) ? ProblemFile(record.path, kChanged)
                                               : std::move(file));
        }
    }
    return files;
}

FolderContents ReadServiceFolder(const ServiceFolder &folder, Report &report) {
    ReadingReport read;
    OwnedConf list;
    TAVO_SERVICE_CONF *head = nullptr;
    ReadServiceFiles(&head, folder.selector, &read);
    list.reset(head);
    CheckMemory(read);
    FolderContents contents;
    contents.complete = !TellUnlistedFolders(read, report);
    const std::set<const char *> linted = PathsWithOmissions(read);
    for (std::size_t i = read.Files().Count(); i > 0; --i) {
        const ServiceFileRecord &record = read.Files()[i - 1];
        OwnedConf conf = record.conf != nullptr ? TakeFirst(list) : nullptr;
        contents.files.push_back(linted.contains(record.path)
                                     ? ReadServiceFile(record.path)
                                     : ServiceFile{.path = record.path, .conf = std::move(conf)});
        contents.files.back().location = folder.name;
    }
    std::reverse(contents.files.begin(), contents.files.end());
    return contents;
}

bool TellWhatIsMissing(const ServiceFile &file, Report &report, Severity severity) {
    if (!file.problem.empty()) {
        report.Tell({file.path, 0, 0, severity, "unreadable", file.problem, "", {}});
        return true;
    }
    if (file.conf == nullptr) {
        TellRefused(file, severity, report);
        return true;
    }
    bool missing = false;
    for (const LintedService &service : file.lint.services) {
        if (!service.readable) {
            TellLeftOut(file, service, report, severity);
            missing = true;
        }
    }
    return missing;
}

void TellLeftOut(const ServiceFile &file, const LintedService &service, Report &report,
                 Severity severity) {
    TellBecause(file, "section [" + Shortened(service.name) + "] is left out", service.first_error,
                &service, severity, report);
}

std::string PortsText(const TAVO_SERVICE_CONF_PORT *list) {
    if (list == nullptr) {
        return {};
    }
    std::string ports;
    for (const TAVO_SERVICE_CONF_PORT *port : InFileOrder(list)) {
        ports += (ports.empty() ? "" : ",") + PortText(*port);
    }
    return ports + '/' + ProtocolsText(list->nProtocol);
}

Json SectionJson(const TAVO_SERVICE_CONF_SECTION &section) {
    return {{"ports", PortsJson(section.pDstPorts)},
            {"source_ports", PortsJson(section.pSrcPorts)},
            {"forward", section.blPortForward != 0},
            {"title", Utf8Text(section.strTitle.szText)},
            {"title_key", ReferenceJson(section.strTitle)},
            {"description", Utf8Text(section.strDesc.szText)},
            {"description_key", ReferenceJson(section.strDesc)},
            {"description_extra", TextOrNull(section.strDesc.szExtra)}};
}

Json ServiceJson(const std::string &path, std::string_view location, const TAVO_SERVICE_CONF &conf,
                 const TAVO_SERVICE_CONF_SECTION &section) {
    Json json = {{"name", section.szName},
                 {"file", Utf8Text(path)},
                 {"real_path", TextOrNull(RealPathOf(path))},
                 {"location", TextOrNull(location)},
                 {"version", conf.nVersion},
                 {"support_key", TextOrNull(conf.szSupportKey)},
                 {"run_key", TextOrNull(conf.szRunKey)}};
    json.Merge(SectionJson(section));
    return json;
}

}  // namespace tavo::tool
