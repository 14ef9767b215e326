#include "input/service_file.h"

#include <cstring>
#include <filesystem>
#include <new>
#include <stdexcept>
#include <utility>

#include "base/system_files.h"
#include "input/input_file.h"
#include "input/library.h"
#include "model/service_file_keys.h"
#include "output/text.h"
#include "ports/port_query.h"

namespace tavo::tool {
namespace {

bool IsGlobal(const LeftOut &omission) {
    return omission.section != nullptr && std::strcmp(omission.section, kGlobalSection) == 0;
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

// A service is left out because of its first error.
Diagnostic WhyServiceIsLeftOut(const LintedFile &file, const LintedService &service,
                               Severity severity) {
    Diagnostic diagnostic;
    const std::string consequence = "section [" + Shortened(service.name) + "] is left out";
    if (service.first_error) {
        diagnostic = file.lint.diagnostics[*service.first_error];
        diagnostic.message = consequence + ": " + AboutIt(diagnostic.message, service.name);
    } else {
        // The error is not among those that lint lists.
        diagnostic = {.file = file.name, .rule = "unreadable", .message = consequence};
    }
    diagnostic.severity = severity;
    return diagnostic;
}

// The omission of a whole file is the last of the file.
bool IsWholeFile(std::span<const LeftOut> omissions) {
    return omissions.back().section == nullptr;
}

bool IsAnyReadable(const LintResult &lint) {
    return std::any_of(lint.services.begin(), lint.services.end(),
                       [](const LintedService &service) { return service.readable; });
}

// Whether lint finds errors in exactly those services of a file that the library left out. If not,
// the file was changed in between, or a system error kept the library from reading it.
bool IsExplained(std::span<const LeftOut> omissions, const LintResult &lint) {
    std::vector<std::string> invalid;
    for (const LintedService &service : lint.services) {
        if (!service.readable) {
            invalid.push_back(service.name);
        }
    }
    return invalid == NamesLeftOut(omissions) && IsWholeFile(omissions) != IsAnyReadable(lint);
}

// Adds what is left out of one file. A [global] section that cannot be read is ignored.
void ExplainFile(std::span<const LeftOut> left_out, const std::vector<std::string> &names,
                 Severity severity, Omissions &omissions) {
    if (std::all_of(left_out.begin(), left_out.end(), IsGlobal)) {
        return;
    }
    LintedFile file = ReadAndLint(left_out.front().path);
    if (file.problem.empty() && !IsExplained(left_out, file.lint)) {
        file.problem = "changed while it was read";
        omissions.any_change = true;
    }
    if (file.problem.empty()) {
        for (Diagnostic &reason : WhyLeftOut(file, names, severity)) {
            omissions.diagnostics.push_back(std::move(reason));
        }
    } else {
        omissions.diagnostics.push_back(
            {.file = file.name,
             .severity = IsWholeFile(left_out) ? Severity::kError : severity,
             .rule = "unreadable",
             .message = file.problem});
    }
}

void CheckMemory(const ReadingReport &read) {
    if (read.Fault() == TLIBC_ERR_NO_MEMORY) {
        throw std::bad_alloc();
    }
}

Json PortsJson(const TAVO_SERVICE_CONF_PORT *list) {
    return Json::ArrayOf(InFileOrder(list), [](const TAVO_SERVICE_CONF_PORT *port) -> Json {
        return {{"start", port->nPortStart},
                {"end", port->nPortType == 0 ? port->nPortStart : port->nPortEnd},
                {"protocols", ProtocolNames(port->nProtocol)}};
    });
}

// Whether the text also has a reference into a string table.
bool HasReference(const TAVO_SERVICE_CONF_STRING &string) {
    return *string.szSource != '\0' || *string.szSection != '\0' || *string.szKey != '\0';
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

// Does not follow a symbolic link of the file itself: the folder of the link counts.
const ServiceFolder *ServiceFolderOf(const std::string &path) {
    const std::string parent = std::filesystem::path(path).parent_path();
    const std::string folder = RealPathOf(parent.empty() ? "." : parent);
    for (const ServiceFolder &candidate : kServiceFolders) {
        if (!folder.empty() && folder == RealPathOf(candidate.path)) {
            return &candidate;
        }
    }
    return nullptr;
}

ServiceFiles ReadServiceFolders(int selector) {
    ServiceFiles read;
    TAVO_SERVICE_CONF *list = nullptr;
    ReadServiceFiles(&list, selector, &read.report);
    read.list.reset(list);
    return read;
}

OwnedConf ReadServices(const std::string &text) {
    const MemoryFile copy(text);
    ReadingReport read;
    TAVO_SERVICE_CONF *list = nullptr;
    read.NoteFault(ReadServiceFile(copy.Path().c_str(), &list, &read));
    OwnedConf conf(list);
    CheckMemory(read);
    if (read.Fault() != 0) {
        throw std::runtime_error("the services cannot be read: " + SystemReason(read.Fault()));
    }
    return conf;
}

std::vector<std::string> NamesLeftOut(std::span<const LeftOut> omissions) {
    std::vector<std::string> names;
    for (const LeftOut &omission : omissions) {
        if (omission.section != nullptr && !IsGlobal(omission)) {
            names.emplace_back(omission.section);
        }
    }
    return names;
}

// The omissions of a file are adjacent.
Omissions ExplainOmissions(const ReadingReport &read, const std::vector<std::string> &names,
                           Severity severity) {
    CheckMemory(read);
    Omissions omissions;
    const LeftOut *const end = read.Omissions().end();
    for (const LeftOut *first = read.Omissions().begin(); first != end;) {
        const LeftOut *const next = std::find_if(first + 1, end, [first](const LeftOut &other) {
            return first->path == nullptr || other.path != first->path;
        });
        if (first->path != nullptr) {
            ExplainFile({first, next}, names, severity, omissions);
        } else if (first->row == nullptr) {
            omissions.diagnostics.push_back({.file = first->folder->path,
                                             .rule = "unreadable",
                                             .message = ErrorText(first->error)});
        }
        first = next;
    }
    return omissions;
}

bool TellOmissions(const Omissions &omissions, Report &report, Status status) {
    bool any_error = false;
    for (const Diagnostic &diagnostic : omissions.diagnostics) {
        any_error = any_error || diagnostic.severity == Severity::kError;
        report.Tell(diagnostic);
    }
    report.Raise(any_error ? status : Status::kOk);
    return any_error;
}

std::vector<Diagnostic> WhyLeftOut(const LintedFile &file, const std::vector<std::string> &names,
                                   Severity severity) {
    if (names.empty() && !IsAnyReadable(file.lint)) {
        const auto &findings = file.lint.diagnostics;
        Diagnostic reason = *std::find_if(
            findings.begin(), findings.end(),
            [](const Diagnostic &finding) { return finding.severity == Severity::kError; });
        reason.severity = severity;
        reason.message = "not read as a service file: " + reason.message;
        return {reason};
    }
    std::vector<Diagnostic> reasons;
    for (const LintedService &service : file.lint.services) {
        if (!service.readable && (names.empty() || Holds(names, service.name))) {
            reasons.push_back(WhyServiceIsLeftOut(file, service, severity));
        }
    }
    return reasons;
}

std::string PortsText(const TAVO_SERVICE_CONF_PORT *list) {
    if (list == nullptr) {
        return {};
    }
    std::string ports;
    for (const TAVO_SERVICE_CONF_PORT *port : InFileOrder(list)) {
        ports += (ports.empty() ? "" : ",") + std::to_string(port->nPortStart);
        ports += port->nPortType == 0 ? "" : ':' + std::to_string(port->nPortEnd);
    }
    return ports + '/' + ProtocolsText(list->nProtocol);
}

std::string ReferenceText(const TAVO_SERVICE_CONF_STRING &string) {
    if (!HasReference(string)) {
        return {};
    }
    const std::string source = string.szSource;
    return (source.empty() ? "" : source + ':') + string.szSection + ':' + string.szKey;
}

std::string_view LocationOf(const ServiceFileRecord &file) {
    return file.folder != nullptr ? file.folder->name : "";
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

Json ServiceJson(const ServiceFileRecord &file, const TAVO_SERVICE_CONF_SECTION &section) {
    Json json = {{"name", section.szName},
                 {"file", Utf8Text(file.path)},
                 {"real_path", TextOrNull(RealPathOf(file.path))},
                 {"location", TextOrNull(LocationOf(file))},
                 {"version", file.conf->nVersion},
                 {"support_key", TextOrNull(file.conf->szSupportKey)},
                 {"run_key", TextOrNull(file.conf->szRunKey)}};
    json.Merge(SectionJson(section));
    return json;
}

}  // namespace tavo::tool
