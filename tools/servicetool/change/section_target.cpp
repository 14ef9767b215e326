#include "change/section_target.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <optional>
#include <set>
#include <stdexcept>
#include <utility>

#include "change/private_folder.h"
#include "config_lines.h"
#include "input/input_file.h"
#include "input/library_failure.h"
#include "lifecycle/change.h"
#include "lint/lint.h"
#include "model/service_file_keys.h"
#include "output/text.h"
#include "ports/port_sources.h"
#include "ports/section_queries.h"

namespace tavo::tool {
namespace {

constexpr char kUnreadSection[] = "the section cannot be read";

// Why no service can have that name; empty if it is valid.
std::string NameProblem(const std::string &section) {
    if (section.empty()) {
        return "is empty";
    }
    if (section == kGlobalSection) {
        return "is that of a section that is no service";
    }
    if (section.size() >= TAVO_SERVICE_CONF_NAME_SIZE) {
        return "is longer than " + std::to_string(TAVO_SERVICE_CONF_NAME_SIZE - 1) + " bytes";
    }
    return section.find_first_not_of(kNameCharacters) == std::string::npos
               ? ""
               : R"(holds something else than letters, digits, "-", "." and "_")";
}

void ReadSection(SectionTarget &target) {
    if (!target.file.text) {
        return;
    }
    const MemoryFile copy(*target.file.text);
    const OwnedTable keys = OrThrow(OwnedTable(TLIBCSzHashAlloc(1)));
    TLIBCSzHash *table = keys.get();
    ForgetFailure();
    const int count = TLIBCFileGetSection(copy.Path().c_str(), target.section.c_str(), &table);
    if (count < 0) {
        ThrowIfSystemFailed(kUnreadSection);
        throw std::runtime_error(kUnreadSection);
    }
    target.present = count > 0;
    TAVO_SERVICE_CONF_SECTION *today = nullptr;
    ForgetFailure();
    if (TAVOServiceConfSectionGet(copy.Path().c_str(), target.section.c_str(), &today) != 0) {
        ThrowIfSystemFailed(kUnreadSection);
    }
    target.today.reset(today);
}

// The numbers of the lines of a section, including its headers.
std::set<std::size_t> LinesOfSection(const std::string &text, const std::string &section) {
    std::set<std::size_t> lines;
    bool inside = false;
    ConfigLineReader reader(text);
    for (ConfigLine line; reader.Next(line);) {
        if (line.kind == ConfigLineKind::kSection) {
            inside = line.name == section;
        }
        if (inside) {
            lines.insert(line.number);
        }
    }
    return lines;
}

bool LintChange(const Change &change, Report &report) {
    const std::string &text = *change.after;
    const std::set<std::size_t> own = LinesOfSection(text, change.section);
    LintResult lint = LintText(text, change.path);
    for (Diagnostic &diagnostic : lint.diagnostics) {
        if (own.count(diagnostic.line) != 0) {
            report.Tell(std::move(diagnostic));
        }
    }
    return std::all_of(lint.services.begin(), lint.services.end(), [&](const auto &service) {
        return service.name != change.section || service.readable;
    });
}

// The name of a section in the file, ignoring case; an exact match is preferred.
std::string NameInFile(const std::string &text, const std::string &section) {
    std::string similar;
    ConfigLineReader reader(text);
    for (ConfigLine line; reader.Next(line);) {
        if (line.kind != ConfigLineKind::kSection) {
            continue;
        }
        if (line.name == section) {
            return section;
        }
        if (LowerCase(line.name) == LowerCase(section)) {
            similar = line.name;
        }
    }
    return similar;
}

// A section without keys is visible in the file, but the library ignores it.
bool TellMissing(const SectionTarget &target, Report &report) {
    const std::string name = NameInFile(*target.file.text, target.section);
    const bool empty = name == target.section;
    report.TellError(target.file.path, "not-found",
                     (empty ? "section [" + target.section + "] has no keys"
                            : "has no section [" + target.section + ']') +
                         std::string(kSoUnchanged),
                     empty          ? "write servicetool set, or take its line out by hand"
                     : name.empty() ? ""
                                    : "write " + name);
    report.Raise(Status::kNo);
    return false;
}

OwnedPorts ParsePorts(const std::string &text, unsigned int direction) {
    TAVO_SERVICE_CONF_PORT *ports = nullptr;
    ForgetFailure();
    if (TAVOServiceConfPortsGet(text.c_str(), direction, &ports) < 0) {
        ThrowIfSystemFailed("the ports cannot be read");
    }
    return OwnedPorts(ports);
}

}  // namespace

bool FindSection(const SectionOptions &options, Missing missing, SectionTarget &target,
                 Report &report) {
    const std::string problem = NameProblem(options.section);
    if (!problem.empty()) {
        report.TellUsage("section name " + Quoted(options.section) + ' ' + problem, "");
        return false;
    }
    if (!FindInstalledFile(options.file, options.folder, missing, options.dry_run, target.file,
                           report)) {
        return false;
    }
    target.section = options.section;
    ReadSection(target);
    return target.present || missing == Missing::kAllow || TellMissing(target, report);
}

Change ChangeOf(std::string_view operation, const SectionTarget &target,
                const SectionOptions &options, FileText after) {
    Change change;
    change.operation = operation;
    change.path = target.file.path;
    change.section = target.section;
    change.before = target.file.text;
    change.after = std::move(after);
    change.dry_run = options.dry_run;
    return change;
}

std::vector<Listener> ListenersOf(Listener first, const SectionOptions &options) {
    std::vector<Listener> listeners = {first};
    if (!options.no_restart) {
        listeners = {first, Listener::kFirewall, Listener::kRelayDaemon};
        listeners.erase(std::unique(listeners.begin(), listeners.end()), listeners.end());
    }
    return listeners;
}

OwnedPorts ReadPorts(const std::string &text, unsigned int direction, Report &report) {
    PortQuery query;
    QueryProblem problem;
    if (!ReadPortQuery(text, query, problem)) {
        TellBadQuery(text, problem, report);
        return nullptr;
    }
    OwnedPorts ports = ParsePorts(text, direction);
    if (ports == nullptr) {
        report.TellUsage(Quoted(text) + " is not a valid port list", "");
    } else if (!FitsServiceFile(*ports)) {
        report.TellUsage(Quoted(text) + " is longer than the " +
                             std::to_string(kLongestPortsValue) +
                             " bytes that a service file has for ports",
                         "join ports to ranges, or write a service of its own for some of them");
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

bool CheckSection(const SectionTarget &target, const PortQuery &query, ChangeReport &change,
                  Report &report) {
    if (!LintChange(change.Plan(), report)) {
        change.Refuse("invalid", "the library would not read section [" + target.section + ']');
        return false;
    }
    PortSources sources(kEverySource, report);
    change.Add(target.section, query, sources.Ask(query, {target.section}));
    return true;
}

TAVO_SERVICE_CONF_SET_PARAM ParamOf(const SectionTarget &target, const SectionOptions &options) {
    TAVO_SERVICE_CONF_SET_PARAM param{};
    param.nRestartMode = options.no_restart ? TAVO_RESTART_MODE_NONE : TAVO_RESTART_MODE_RESTART;
    param.nRestartFlags = TAVO_RESTART_FIREWALL;
    param.nWriteMode = TAVO_WRITE_MODE_SET;
    param.nCheckFlags = kEverySource;
    param.nLocation = static_cast<std::uint32_t>(target.file.folder.selector);
    std::memcpy(param.szFileName, target.file.name.data(), target.file.name.size());
    std::memcpy(param.szSectionName, target.section.data(), target.section.size());
    return param;
}

// ---- The text of the file after a change

namespace {

constexpr char kCannotStage[] = "the change cannot be worked out: ";

// A failure that is neither out of memory nor a system error is invalid input.
void Require(int result, const StepFailure &failure) {
    if (result >= 0) {
        return;
    }
    if (failure.error == ENOMEM) {
        throw std::bad_alloc();
    }
    if (failure.error != 0) {
        throw std::runtime_error(kCannotStage + ErrorText(failure.error));
    }
    ThrowIfSystemFailed("the change cannot be worked out");
    throw std::runtime_error(std::string(kCannotStage) +
                             "a text is too long or holds what a service file cannot");
}

// A temporary copy of the file, on which the change is made.
class StagedFile {
  public:
    explicit StagedFile(const FileText &before)
        : path_(folder_.Make("staged.sc", before.value_or(""))) {
        ForgetFailure();
    }

    const char *Path() const { return path_.c_str(); }

    FileText Text() const {
        FileContents contents = ReadRegularFile(path_);
        if (contents.absent) {
            return {};
        }
        if (!contents.problem.empty()) {
            throw std::runtime_error(kCannotStage + contents.problem);
        }
        return std::move(contents.text);
    }

  private:
    PrivateFolder folder_;
    std::string path_;
};

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

PortText RequiredPorts(const TAVO_SERVICE_CONF_PORT *ports) {
    const std::optional<PortText> text = TextOfPorts(ports);
    if (!text) {
        throw std::runtime_error("the ports take more than the " +
                                 std::to_string(kLongestPortsValue) +
                                 " bytes that a service file has for them");
    }
    return *text;
}

}  // namespace

bool FitsServiceFile(const TAVO_SERVICE_CONF_PORT &ports) {
    return TextOfPorts(&ports).has_value();
}

FileText WithSection(const FileText &before, const TAVO_SERVICE_CONF_SECTION &section) {
    const PortText dst_ports = RequiredPorts(section.pDstPorts);
    const PortText src_ports = RequiredPorts(section.pSrcPorts);
    const StagedFile file(before);
    SectionKeys keys;
    if (!keys.IsMade()) {
        throw std::bad_alloc();
    }
    StepFailure failure;
    Require(keys.Read(file.Path(), section.szName, failure), failure);
    Require(keys.Set(section, dst_ports, src_ports, failure), failure);
    Require(keys.Store(file.Path(), section.szName, failure), failure);
    return file.Text();
}

FileText WithPorts(const FileText &before, const std::string &section,
                   const TAVO_SERVICE_CONF_PORT &ports) {
    const PortText text = RequiredPorts(&ports);
    const StagedFile file(before);
    StepFailure failure;
    Require(StorePorts(file.Path(), section.c_str(), PortsKey(ports.nDirection), text, failure),
            failure);
    return file.Text();
}

FileText WithoutSection(const FileText &before, const std::string &section) {
    const StagedFile file(before);
    StepFailure failure;
    Require(RemoveFromFile(file.Path(), section.c_str(), failure), failure);
    // The result is success even if a file without services could not be removed.
    if (failure.HasFailed()) {
        throw std::runtime_error(kCannotStage + ErrorText(failure.error));
    }
    return file.Text();
}

}  // namespace tavo::tool
