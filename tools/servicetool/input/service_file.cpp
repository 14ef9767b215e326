#include "input/service_file.h"

#include <cstring>
#include <filesystem>
#include <new>

#include "base/system_files.h"
#include "input/input_file.h"
#include "input/library.h"
#include "model/service_file_keys.h"
#include "output/text.h"
#include "ports/port_query.h"

namespace tavo::tool {
namespace {

// The message of lint about a section, for use after the section's name.
std::string AboutIt(const std::string &message, const std::string &section) {
    const std::string subject = "section [" + Shortened(section) + "] ";
    if (message.starts_with(subject)) {
        return "it " + message.substr(subject.size());
    }
    const std::string name = "section name " + Quoted(section);
    return message.starts_with(name) ? "its name" + message.substr(name.size()) : message;
}

// A service is left out because of its first error.
Diagnostic WhyServiceIsLeftOut(const LintedFile &file, const LintedService &service) {
    const std::string consequence = "section [" + Shortened(service.name) + "] is left out";
    if (!service.first_error) {
        // The error is not among those that lint lists.
        return Error(file.name, "unreadable", consequence);
    }
    Diagnostic diagnostic = file.lint.diagnostics[*service.first_error];
    diagnostic.message = consequence + ": " + AboutIt(diagnostic.message, service.name);
    return diagnostic;
}

// Whether lint finds errors in exactly those services of a file that the library left out. If not,
// the file was changed in between, or a system error kept the library from reading it.
bool IsExplained(const std::vector<std::string> &left_out, bool whole_file,
                 const LintResult &lint) {
    std::vector<std::string> invalid;
    for (const LintedService &service : lint.services) {
        if (!service.readable) {
            invalid.push_back(service.name);
        }
    }
    return invalid == left_out && whole_file == (invalid.size() == lint.services.size());
}

// Adds what is left out of one file. A [global] section that cannot be read is ignored.
void ExplainFile(std::span<const LeftOut> left_out, const std::vector<std::string> &names,
                 Severity severity, Omissions &omissions) {
    // The omission of a whole file is the last of the file.
    const bool whole_file = left_out.back().section == nullptr;
    const std::vector<std::string> services = NamesLeftOut(left_out);
    if (!whole_file && services.empty()) {
        return;
    }
    LintedFile file = ReadAndLint(left_out.front().path);
    if (file.problem.empty() && !IsExplained(services, whole_file, file.lint)) {
        file.problem = "changed while it was read";
        omissions.any_change = true;
    }
    if (file.problem.empty()) {
        std::ranges::move(WhyLeftOut(file, names, severity),
                          std::back_inserter(omissions.diagnostics));
    } else {
        omissions.diagnostics.push_back(Error(file.name, "unreadable", file.problem));
        omissions.diagnostics.back().severity = whole_file ? Severity::kError : severity;
    }
}

Json PortsJson(const TAVO_SERVICE_CONF_PORT *list) {
    return Json::ArrayOf(InFileOrder(list), [](const TAVO_SERVICE_CONF_PORT *port) -> Json {
        return {{"start", port->nPortStart},
                {"end", port->nPortType == 0 ? port->nPortStart : port->nPortEnd},
                {"protocols", ProtocolNames(port->nProtocol)}};
    });
}

Json ReferenceJson(const TAVO_SERVICE_CONF_STRING &string) {
    if (ReferenceText(string).empty()) {
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
    ThrowIfSystemFailed("the services cannot be read", read.Fault());
    return conf;
}

std::vector<std::string> NamesLeftOut(std::span<const LeftOut> omissions) {
    std::vector<std::string> names;
    for (const LeftOut &omission : omissions) {
        const char *name = omission.row != nullptr ? omission.row->szName : omission.section;
        if (name != nullptr && std::strcmp(name, kGlobalSection) != 0) {
            names.emplace_back(name);
        }
    }
    return names;
}

// The omissions of a file are adjacent.
Omissions ExplainOmissions(const ReadingReport &read, const std::vector<std::string> &names,
                           Severity severity) {
    if (read.Fault() == TLIBC_ERR_NO_MEMORY) {
        throw std::bad_alloc();
    }
    Omissions omissions;
    const LeftOut *const end = read.Omissions().end();
    for (const LeftOut *first = read.Omissions().begin(); first != end;) {
        const LeftOut *const next = std::find_if(first + 1, end, [first](const LeftOut &other) {
            return first->path == nullptr || other.path != first->path;
        });
        if (first->path != nullptr) {
            ExplainFile({first, next}, names, severity, omissions);
        } else if (first->row == nullptr) {
            omissions.diagnostics.push_back(
                Error(first->folder->path, "unreadable", ErrorText(first->error)));
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
    std::vector<Diagnostic> reasons;
    if (names.empty() && std::ranges::none_of(file.lint.services, &LintedService::readable)) {
        reasons.push_back(
            *std::ranges::find(file.lint.diagnostics, Severity::kError, &Diagnostic::severity));
        reasons[0].message.insert(0, "not read as a service file: ");
    } else {
        for (const LintedService &service : file.lint.services) {
            if (!service.readable && (names.empty() || Holds(names, service.name))) {
                reasons.push_back(WhyServiceIsLeftOut(file, service));
            }
        }
    }
    for (Diagnostic &reason : reasons) {
        reason.severity = severity;
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
    const std::string source = *string.szSource == '\0' ? "" : std::string(string.szSource) + ':';
    const std::string text = source + string.szSection + ':' + string.szKey;
    return text == ":" ? "" : text;  // without any part there is no reference
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
                 {"location", TextOrNull(file.folder != nullptr ? file.folder->name : "")},
                 {"version", file.conf->nVersion},
                 {"support_key", TextOrNull(file.conf->szSupportKey)},
                 {"run_key", TextOrNull(file.conf->szRunKey)}};
    json.Merge(SectionJson(section));
    return json;
}

}  // namespace tavo::tool
