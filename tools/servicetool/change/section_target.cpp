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
        return "is not that of a service";
    }
    if (section.size() >= TAVO_SERVICE_CONF_NAME_SIZE) {
        return "is longer than " + std::to_string(TAVO_SERVICE_CONF_NAME_SIZE - 1) + " bytes";
    }
    return section.find_first_not_of(kNameCharacters) == std::string::npos
               ? ""
               : R"(contains characters other than letters, digits, "-", "." and "_")";
}

void ReadSection(SectionTarget &target) {
    const MemoryFile copy(*target.file.text);
    OwnedTable keys;
    TAVO_SERVICE_CONF_SECTION *today = nullptr;
    const Reading reading =
        ReadServiceSection(copy.Path().c_str(), target.section.c_str(), keys, &today);
    target.today.reset(today);
    ThrowIfSystemFailed("the section cannot be read", reading.Fault());
    const char *key = nullptr;
    const char *value = nullptr;
    target.present = TLIBCSzHashEnum(keys.get(), 0, &key, &value) == 0;
}

struct SectionLines {
    std::set<std::size_t> numbers;  // of its lines, including its headers
    std::string similar;            // name of another section that differs only in case
};

SectionLines LinesOfSection(const std::string &text, const std::string &section) {
    SectionLines found;
    bool inside = false;
    ConfigLineReader reader(text);
    for (ConfigLine line; reader.Next(line);) {
        if (line.kind == ConfigLineKind::kSection) {
            inside = line.name == section;
            if (!inside && LowerCase(line.name) == LowerCase(section)) {
                found.similar = line.name;
            }
        }
        if (inside) {
            found.numbers.insert(line.number);
        }
    }
    return found;
}

// A section without keys is visible in the file, but the library ignores it.
bool TellMissing(const SectionTarget &target, Report &report) {
    const SectionLines found = LinesOfSection(*target.file.text, target.section);
    const std::string section = "section [" + target.section + ']';
    std::string message = "has no " + section;
    std::string fix = found.similar.empty() ? "" : "write " + found.similar;
    if (!found.numbers.empty()) {
        message = section + " has no keys";
        fix = "write servicetool set, or remove its line by hand";
    }
    report.TellError(target.file.path, "not-found", message + kSoUnchanged, fix, Status::kNo);
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

// Reports the findings of lint in the new section, and checks its ports for conflicts, as the
// library also does when it makes the change. Refuses the change and returns false if the library
// would not read the new section. Errors in other sections are ignored.
bool CheckSection(const SectionTarget &target, const PortQuery &query, ChangeReport &change,
                  Report &report) {
    const std::string &text = *change.Plan().after;
    const std::set<std::size_t> own = LinesOfSection(text, target.section).numbers;
    const LintResult lint = LintText(text, target.file.path);
    for (const Diagnostic &diagnostic : lint.diagnostics) {
        if (own.count(diagnostic.line) != 0) {
            report.Tell(diagnostic);
        }
    }
    if (std::any_of(lint.services.begin(), lint.services.end(), [&](const auto &service) {
            return service.name == target.section && !service.readable;
        })) {
        return change.Refuse("invalid",
                             "the library would not read section [" + target.section + ']');
    }
    change.Add(target.section, query,
               PortSources(kEverySource, report).Ask({{query, {target.section}}}).front());
    return true;
}

// The library's record for writing to the section.
SetParam ParamOf(const Arguments &arguments, const SectionTarget &target) {
    SetParam param{};
    param.nRestartMode =
        arguments.Has("--no-restart") ? TAVO_RESTART_MODE_NONE : TAVO_RESTART_MODE_RESTART;
    param.nRestartFlags = TAVO_RESTART_FIREWALL;
    param.nWriteMode = TAVO_WRITE_MODE_SET;
    param.nCheckFlags = kEverySource;
    param.nLocation = static_cast<std::uint32_t>(target.file.folder.selector);
    CopyText(param.szFileName, target.file.name);
    CopyText(param.szSectionName, target.section);
    return param;
}

}  // namespace

bool FindSection(const Arguments &arguments, Missing missing, SectionTarget &target,
                 Report &report) {
    target.section = arguments.Word(1);
    const std::string problem = NameProblem(target.section);
    if (!problem.empty()) {
        report.TellUsage("section name " + Quoted(target.section) + ' ' + problem);
        return false;
    }
    if (!FindInstalledFile(arguments.Word(0), FoldersOf(arguments), missing,
                           arguments.Has("--dry-run"), target.file, report)) {
        return false;
    }
    if (target.file.text) {
        ReadSection(target);
    }
    return target.present || missing == Missing::kAllow || TellMissing(target, report);
}

OwnedPorts ReadPorts(const std::string &text, unsigned int direction, Report &report) {
    PortQuery query;
    if (const auto problem = ReadPortQuery(text, query)) {
        TellBadQuery(text, *problem, report);
        return nullptr;
    }
    TAVO_SERVICE_CONF_PORT *list = nullptr;
    ForgetFailure();
    if (TAVOServiceConfPortsGet(text.c_str(), direction, &list) < 0) {
        ThrowIfSystemFailed("the ports cannot be read");
    }
    OwnedPorts ports(list);
    if (ports == nullptr) {
        report.TellUsage(Quoted(text) + " is not a valid port list");
    } else if (!TextOfPorts(list)) {
        report.TellUsage(Quoted(text) + " is longer than " + std::to_string(kLongestPortsValue) +
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

void ChangeSection(const Arguments &arguments, const SectionTarget &target,
                   const SectionChange &wanted, Report &report) {
    Change plan = ChangeOf(arguments, target.file, wanted.after, {wanted.listener});
    SetParam param = ParamOf(arguments, target);
    if (param.nRestartMode == TAVO_RESTART_MODE_RESTART) {
        plan.listeners = {wanted.listener, Listener::kFirewall, Listener::kRelayDaemon};
        plan.listeners.erase(std::unique(plan.listeners.begin(), plan.listeners.end()),
                             plan.listeners.end());
    }
    if (!wanted.taken_fix.empty()) {
        plan.taken_fix = wanted.taken_fix;
    }
    ChangeReport change(std::move(plan), report);
    if ((!wanted.ports || CheckSection(target, *wanted.ports, change, report)) &&
        change.Begin(wanted.what)) {
        change.Do([&](ChangeOutcome &outcome) { return wanted.make(param, outcome); });
    }
}

}  // namespace tavo::tool
