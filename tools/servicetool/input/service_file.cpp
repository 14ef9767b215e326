#include "input/service_file.h"

#include <dirent.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

#include "base/system_files.h"
#include "input/input_file.h"
#include "output/text.h"
#include "ports/protocols.h"

namespace tavo::tool {
namespace {

using Json = nlohmann::ordered_json;

constexpr ServiceFolder kServiceFolders[] = {
    {TAVO_SERVICE_CONF_DIR_SYSTEM, "system", kSystemServiceDirectory},
    {TAVO_SERVICE_CONF_DIR_PACKAGE, "package", kPackageServiceDirectory},
};

// The names that the library would try, in its order: regular files and symbolic links. False with
// errno set when the folder cannot be listed.
bool ListFolder(const std::string &path, std::vector<std::string> &names) {
    dirent **entries = nullptr;
    const int count = scandir(path.c_str(), &entries, nullptr, alphasort);
    for (int i = 0; i < count; ++i) {
        if (entries[i]->d_type == DT_REG || entries[i]->d_type == DT_LNK) {
            names.emplace_back(entries[i]->d_name);
        }
        std::free(entries[i]);
    }
    std::free(entries);
    return count >= 0;
}

// `path` is what the library opens, which for standard input is not the name that is shown.
void ReadWithLibrary(const std::string &path, ServiceFile &file) {
    TAVO_SERVICE_CONF *conf = nullptr;
    if (TAVOServiceConfGet(path.c_str(), &conf) == 0) {
        file.conf.reset(conf);
    }
}

// What lint says about the section, for a sentence that has named it already.
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

// Tells what a finding of lint means for the reader: `consequence`, which may be about a service,
// and the finding as its reason.
void TellBecause(const ServiceFile &file, const std::string &consequence,
                 std::optional<std::size_t> finding, const LintedService *service,
                 Severity severity, Report &report) {
    if (!finding) {
        // Beyond what lint lists.
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
    Json ports = Json::array();
    for (const TAVO_SERVICE_CONF_PORT *port : InFileOrder(list)) {
        ports.push_back({{"start", port->nPortStart},
                         {"end", port->nPortType == 0 ? port->nPortStart : port->nPortEnd},
                         {"protocols", ProtocolNames(port->nProtocol)}});
    }
    return ports;
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

// The file itself may be a symbolic link: what counts is where the name stands.
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

// The library and lint each open the file, which someone may be writing at that time.
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
    return ProblemFile(path, "changed while it was read");
}

// A folder that is not there holds no service; one that cannot be listed may.
FolderContents ReadServiceFolder(const ServiceFolder &folder, Report &report) {
    FolderContents contents;
    const std::string path(folder.path);
    std::vector<std::string> names;
    if (!ListFolder(path, names) && errno != ENOENT) {
        report.TellError(path, "unreadable", ErrorText(errno));
        contents.complete = false;
    }
    for (const std::string &name : names) {
        contents.files.push_back(ReadServiceFile(path + '/' + name));
    }
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

Json ServiceJson(const ServiceFile &file, const TAVO_SERVICE_CONF_SECTION &section) {
    const TAVO_SERVICE_CONF &conf = *file.conf;
    Json json = {{"name", section.szName},
                 {"file", Utf8Text(file.path)},
                 {"real_path", TextOrNull(RealPathOf(file.path))},
                 {"location", TextOrNull(LocationOf(file.path))},
                 {"version", conf.nVersion},
                 {"support_key", TextOrNull(conf.szSupportKey)},
                 {"run_key", TextOrNull(conf.szRunKey)}};
    json.update(SectionJson(section));
    return json;
}

}  // namespace tavo::tool
