#include "change/section_target.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <optional>
#include <set>
#include <stdexcept>
#include <utility>

#include "commands/commands.h"
#include "config_lines.h"
#include "input/input_file.h"
#include "input/library.h"
#include "lint/lint.h"
#include "model/service_file_keys.h"
#include "model/service_files.h"
#include "output/text.h"
#include "ports/port_sources.h"

namespace tavo::tool {
namespace {

constexpr char kCannotStage[] = "the change cannot be computed";

// The longest port list that the library writes.
constexpr std::size_t kLongestPortsValue = kPortTextSize - 1;

// ---- The section

// Why no service can have that name; empty if it is valid.
std::string NameProblem(const std::string &section) {
    if (section.empty()) {
        return "is empty";
    }
    if (section == kGlobalSection) {
        return "is reserved";
    }
    if (section.size() >= TAVO_SERVICE_CONF_NAME_SIZE) {
        return "is longer than " + std::to_string(TAVO_SERVICE_CONF_NAME_SIZE - 1) + " bytes";
    }
    return section.find_first_not_of(kNameCharacters) == std::string::npos
               ? ""
               : R"(contains characters other than letters, digits, "-", "." and "_")";
}

void ReadSection(SectionTarget &target) {
    const MemoryFile copy(*target.change.file.text);
    OwnedTable keys;
    TAVO_SERVICE_CONF_SECTION *today = nullptr;
    const Reading reading =
        ReadServiceSection(copy.Path().c_str(), target.change.section.c_str(), keys, &today);
    target.today.reset(today);
    ThrowIfSystemFailed("the section cannot be read", reading.Fault());
    const char *key = nullptr;
    const char *value = nullptr;
    target.present = TLIBCSzHashEnum(keys.get(), 0, &key, &value) == 0;
}

// A section without keys is visible in the file, but the library ignores it.
bool ReportMissing(const Change &change, Report &report) {
    const std::string section = "section [" + change.section + ']';
    std::string message = "has no " + section;
    std::string fix;
    for (const LintedService &service : LintText(*change.file.text, change.file.path).services) {
        if (service.name == change.section) {
            message = section + " has no keys";
            fix = "write servicetool set, or remove its line by hand";
            break;
        }
        if (LowerCase(service.name) == LowerCase(change.section)) {
            fix = "write " + service.name;
        }
    }
    report.AddError(change.file.path, "not-found", message + kSoUnchanged, fix, Status::kNo);
    return false;
}

// ---- The new text

// Returns nullopt if the list is too long for a service file.
std::optional<PortText> TextOfPorts(const TAVO_SERVICE_CONF_PORT *ports) {
    PortText text;
    ForgetFailure();
    if (ports != nullptr && text.Print(ports) < 0) {
        ThrowIfSystemFailed("the ports cannot be written");
        return {};
    }
    return text.IsCut() ? std::nullopt : std::optional(text);
}

// ---- The change

// The numbers of the lines of a section, including its headers.
std::set<std::size_t> LinesOfSection(const std::string &text, const std::string &section) {
    std::set<std::size_t> numbers;
    bool inside = false;
    ConfigLineReader reader(text);
    for (ConfigLine line; reader.Next(line);) {
        inside = line.kind == ConfigLineKind::kSection ? line.name == section : inside;
        if (inside) {
            numbers.insert(line.number);
        }
    }
    return numbers;
}

// Reports the findings of lint in the new section, and checks its ports for conflicts, as the
// library also does when it makes the change. Refuses the change and returns false if the library
// would not read the new section. Errors in other sections are ignored.
bool CheckSection(Change &change, ChangeReport &change_report, Report &report) {
    const std::string &section = change.section;
    const std::set<std::size_t> own = LinesOfSection(*change.after, section);
    const LintResult lint = LintText(*change.after, change.file.path);
    for (const Diagnostic &diagnostic : lint.diagnostics) {
        if (own.contains(diagnostic.line)) {
            report.Add(diagnostic);
        }
    }
    if (std::ranges::any_of(lint.services, [&](const LintedService &service) {
            return service.name == section && !service.readable;
        })) {
        return change_report.Refuse("invalid",
                                    "the library would not read section [" + section + ']');
    }
    SectionQuery &ports = change.ports.front();
    ports.answer = PortSources(kEverySource, report).Ask({{ports.query, {section}}}).front();
    return true;
}

}  // namespace

bool FindSection(const Arguments &arguments, Missing missing, SectionTarget &target,
                 Report &report) {
    Change &change = target.change;
    change = ChangeAskedFor(arguments);
    const std::string problem = NameProblem(change.section);
    if (!problem.empty()) {
        report.AddUsageError("section name " + Quoted(change.section) + ' ' + problem);
        return false;
    }
    if (!FindInstalledFile(FoldersOf(arguments), missing, change.dry_run, change.file, report)) {
        return false;
    }
    SetParam &param = target.param;
    param.nRestartMode =
        arguments.Has("--no-restart") ? TAVO_RESTART_MODE_NONE : TAVO_RESTART_MODE_RESTART;
    param.nRestartFlags = TAVO_RESTART_FIREWALL;
    param.nWriteMode = TAVO_WRITE_MODE_SET;
    param.nCheckFlags = kEverySource;
    param.nLocation = static_cast<std::uint32_t>(change.file.location);
    CopyText(param.szFileName, change.file.name);
    CopyText(param.szSectionName, change.section);
    if (change.file.text) {
        ReadSection(target);
    }
    return target.present || missing == Missing::kAllow || ReportMissing(change, report);
}

OwnedPorts ReadPorts(const std::string &text, unsigned int direction, Report &report) {
    PortQuery query;
    if (const auto problem = ReadPortQuery(text, query)) {
        ReportBadQuery(text, *problem, report);
        return nullptr;
    }
    TAVO_SERVICE_CONF_PORT *list = nullptr;
    ForgetFailure();
    if (TAVOServiceConfPortsGet(text.c_str(), direction, &list) < 0) {
        ThrowIfSystemFailed("the ports cannot be read");
    }
    OwnedPorts ports(list);
    if (ports == nullptr) {
        report.AddUsageError(Quoted(text) + " is not a valid port list");
    } else if (!TextOfPorts(list)) {
        report.AddUsageError(Quoted(text) + " is longer than " +
                                 std::to_string(kLongestPortsValue) +
                                 " bytes, the limit for ports in a service file",
                             "join ports into ranges, or move some to another service");
        return nullptr;
    }
    return ports;
}

TAVO_SERVICE_CONF_PORT *Reversed(TAVO_SERVICE_CONF_PORT *ports) {
    TAVO_SERVICE_CONF_PORT *reversed = nullptr;
    while (ports != nullptr) {
        TAVO_SERVICE_CONF_PORT *next = std::exchange(ports->pNext, reversed);
        reversed = std::exchange(ports, next);
    }
    return reversed;
}

PortText RequiredPorts(const TAVO_SERVICE_CONF_PORT *ports) {
    const std::optional<PortText> text = TextOfPorts(ports);
    if (!text) {
        throw std::runtime_error("the ports take more than " + std::to_string(kLongestPortsValue) +
                                 " bytes, the limit in a service file");
    }
    return *text;
}

// The library reports success even if a file without services could not be removed. A failure that
// is neither out of memory nor a system error is invalid input.
FileText TextAfter(const FileText &before, const FileChange &change) {
    const PrivateFolder folder;
    const std::string path = folder.Make("staged.sc", before.value_or(""));
    StepFailure failure;
    ForgetFailure();
    if (change(path.c_str(), failure) >= 0 && !failure.HasFailed()) {
        return TextOf(path, kCannotStage);
    }
    if (failure.error == ENOMEM) {
        throw std::bad_alloc();
    }
    std::string reason = "a text is too long, or contains what a service file cannot";
    if (failure.error != 0) {
        reason = ErrorText(failure.error);
    } else {
        ThrowIfSystemFailed(kCannotStage);
    }
    throw std::runtime_error(kCannotStage + (": " + reason));
}

void ChangeSection(SectionTarget &target, Report &report, const ChangeReport::Operation &make) {
    Change &change = target.change;
    std::vector<Listener> &listeners = change.listeners;
    const bool removes = target.param.nWriteMode == TAVO_WRITE_MODE_REMOVE;
    listeners = {removes ? Listener::kFirewall : Listener::kRouterTool};
    if (target.param.nRestartMode == TAVO_RESTART_MODE_RESTART) {
        listeners.insert(listeners.end(), {Listener::kFirewall, Listener::kRelayDaemon});
        listeners.erase(std::unique(listeners.begin(), listeners.end()), listeners.end());
    }
    ChangeReport change_report(change, report);
    if ((removes || CheckSection(change, change_report, report)) && change_report.Begin()) {
        change_report.Do(make);
    }
}

}  // namespace tavo::tool
