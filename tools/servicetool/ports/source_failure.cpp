// The engine reports the source, the declarer and the kind of failure. This adds the line of the
// file, for the caret below it, and the system's error text for a file that cannot be read. Each
// failure is reported once.
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <optional>
#include <string>
#include <utility>

#include "config_lines.h"
#include "input/input_file.h"
#include "input/library.h"
#include "input/service_file.h"
#include "lifecycle/side_copy.h"
#include "model/port_text.h"
#include "output/text.h"
#include "ports/port_sources.h"

namespace tavo::tool {
namespace {

// What could not be done, with the system's reason for the code of the failure, if it has one.
Diagnostic Failed(std::string file, const std::string &what, const SourceFailure &failure) {
    const std::string reason = SystemReason(failure.code);
    return Error(std::move(file), "failed", what + (reason.empty() ? "" : ": " + reason));
}

// ---- Places in files ----

// The last line that sets the key. If `key` is empty, the first header of the section. If `section`
// is empty, searches before the first section.
std::optional<ConfigLine> FindLine(std::string_view text, std::string_view section,
                                   std::string_view key) {
    std::optional<ConfigLine> found;
    std::string_view current;
    ConfigLineReader reader(text);
    for (ConfigLine line; reader.Next(line);) {
        if (line.kind == ConfigLineKind::kSection) {
            if (section.empty()) {
                break;
            }
            current = line.name;
            if (key.empty() && current == section) {
                return line;
            }
        } else if (line.kind == ConfigLineKind::kKeyValue && current == section &&
                   line.name == key) {
            found = line;
        }
    }
    return found;
}

// ---- Rules ----

Diagnostic WhyRuleIsBad(const SourceFailure &failure) {
    const bool lacks_key = failure.kind == SourceFailure::Kind::kMissingKey;
    const std::string section = failure.declarer.entry;
    Diagnostic why = Error(failure.declarer.file, "bad-rule",
                           "rule [" + Shortened(section) + "] is not read: " +
                               (lacks_key ? "it lacks " + Quoted(failure.key)
                                          : Quoted(failure.text) + " is not a list of ports"),
                           lacks_key ? "add the key, or remove the rule"
                                     : "write PORT or START-END, with commas between");
    const FileContents contents = ReadRegularFile(why.file);
    const auto line = FindLine(contents.text, section, lacks_key ? "" : failure.key);
    return line ? AtSpot(*line, lacks_key ? line->name : line->value, why) : why;
}

Diagnostic WhyRulesAreUnread(const SourceFailure &failure) {
    const std::string file(OrEmpty(failure.declarer.file));
    std::string problem = failure.error != 0 ? ErrorText(failure.error) : "";
    if (problem.empty() && !file.empty()) {
        problem = ReadRegularFile(file).problem;
    }
    return problem.empty() ? Failed(file, "the rules cannot be compared", failure)
                           : Error(file, "unreadable", problem);
}

// ---- Settings ----

Diagnostic WhySettingIsUnknown(const SourceFailure &failure) {
    const FileContents contents = ReadRegularFile(kSettingsFile);
    if (!contents.problem.empty()) {
        return Error(kSettingsFile, "unreadable",
                     "the settings cannot be read for ports: " + contents.problem);
    }
    const std::optional<ConfigLine> line = FindLine(contents.text, "", failure.declarer.entry);
    uint32_t port = 0;
    if (line && !line->value.empty() && !ReadPortNumber(std::string(line->value).c_str(), port)) {
        return AtSpot(
            *line, line->value,
            Error(kSettingsFile, "bad-setting",
                  Quoted(line->value) + " is not a port number for " + std::string(line->name),
                  "name a port from 1 to 65535, or remove the key"));
    }
    return Failed(kSettingsFile, std::string(failure.declarer.entry) + " is unknown", failure);
}

}  // namespace

// A file that could not be read may be readable by now.
Diagnostic WhyLeftOut(const std::string &service, unsigned int code) {
    // The services with configurable ports, the file with the keys of which one must name a port,
    // and another file that the service needs, if any.
    static const struct {
        std::string service;
        const char *file;
        std::vector<std::string> keys;
        const char *other_file;
    } kPortSettings[] = {
        {"ssh", kSshConfigFile, {"Port"}, kSettingsFile},
        {"nfs", kNfsConfigFile, {kNfsStatdPortKey, kNfsLockManagerPortKey}, nullptr},
        {"ftp", kSettingsFile, {kFtpPortKey, kFtpLowPortKey, kFtpHighPortKey}, nullptr},
    };
    const std::string what = "built-in service " + service + " is left out: ";
    const auto *const settings = std::ranges::find_if(
        kPortSettings, [&service](const auto &one) { return one.service == service; });
    if (settings != std::end(kPortSettings)) {
        for (const char *file : {settings->other_file, settings->file}) {
            const std::string problem = file != nullptr ? ReadRegularFile(file).problem : "";
            if (!problem.empty()) {
                return Error(file, "unreadable", what + problem);
            }
        }
        if (code == 0) {
            return Error(settings->file, "bad-service",
                         what + Enumerated(settings->keys, " or ") + " does not name a port");
        }
    }
    const std::string reason = SystemReason(code);
    return Error("", "failed", what + (reason.empty() ? "it cannot be listed" : reason));
}

Diagnostic WhyUnknown(const SourceFailure &failure) {
    using Kind = SourceFailure::Kind;
    switch (failure.kind) {
        case Kind::kLeftOut:
            return WhyLeftOut(failure.declarer.name, failure.code);
        case Kind::kPortZero:
            return Error("", "port-zero", "sockets cannot be checked for port 0",
                         "name ports from 1 to 65535");
        case Kind::kMissingKey:
            return WhyRuleIsBad(failure);
        case Kind::kBadPorts:
            if (failure.source == TAVO_PORT_CHECK_PORT_FORWARD) {
                return WhyRuleIsBad(failure);
            }
            return Error(std::string(OrEmpty(failure.declarer.file)), "bad-service",
                         "firewall service " + Shortened(failure.declarer.name) + " has " +
                             Quoted(failure.text) + " for a port",
                         "correct its settings");
        case Kind::kUnreadable:
            break;
    }
    switch (failure.source) {
        case TAVO_PORT_CHECK_PORT_FORWARD:
            return WhyRulesAreUnread(failure);
        case TAVO_PORT_CHECK_FW_SERVICE:
            return Failed("", "the firewall services cannot be compared", failure);
        case TAVO_PORT_CHECK_SYS_KEY:
            return WhySettingIsUnknown(failure);
        default:
            return Failed("", "the ports that sockets hold are unknown", failure);
    }
}

// ---- Reports ----

bool ReportBadQuery(const std::string &text, const PortProblem &problem, Report &report) {
    report.AddUsageError(Quoted(text) + ", column " + std::to_string(problem.ColumnIn(text)) +
                             ": " + problem.message,
                         problem.fix);
    return false;
}

// For the rules, only the first failure of each request is reported: a file with the same mistake
// in every rule is one problem.
void PortSources::AddFailures(int source, const PortConflicts &found,
                              std::vector<PortAnswer> &answers) {
    const bool rules = source == TAVO_PORT_CHECK_PORT_FORWARD;
    // A service that is left out of a file declares nothing, so it is only a warning.
    const bool files_known =
        source != TAVO_PORT_CHECK_FW_SERVICE ||
        !ReportOmissions(ExplainOmissions(*found.Services(), {}, Severity::kWarning), report_,
                         Status::kOk);
    for (PortAnswer &answer : answers) {
        answer.failed |= files_known ? 0 : source;
    }
    if (source == TAVO_PORT_CHECK_SYS_KEY) {
        ReportIgnoredLines(source);
    }
    bool any = false;
    for (const SourceFailure &failure : found.Failures()) {
        if (failure.source != source) {
            continue;
        }
        any = true;
        int &failed = answers[failure.question].failed;
        const bool first = (failed & source) == 0;
        failed |= source;
        // A file that was already reported as unreadable is not reported again.
        if ((first || !rules) &&
            (files_known || failure.kind != SourceFailure::Kind::kUnreadable)) {
            ReportOnce(WhyUnknown(failure));
        }
    }
    if (rules && !any) {
        ReportIgnoredLines(source);
    }
}

void PortSources::ReportOnce(const Diagnostic &diagnostic) {
    if (reported_.insert(DiagnosticText(diagnostic, false, 0)).second) {
        report_.Add(diagnostic);
    }
}

// In the rules, keys before the first section are also ignored. An appliance without port
// forwarding has no file of rules.
void PortSources::ReportIgnoredLines(int source) {
    const bool rules = source == TAVO_PORT_CHECK_PORT_FORWARD;
    const char *file = rules ? PathOf(StoreId::kForwardingRules) : kSettingsFile;
    if (file == nullptr) {
        return;
    }
    const FileContents contents = ReadRegularFile(file);
    struct stat status {};
    if (rules && !contents.problem.empty() && !contents.absent && stat(file, &status) != 0 &&
        errno == ENOENT) {
        ReportOnce(
            Warning(Error(file, "unreadable", contents.problem + ", so there are no rules")));
        return;
    }
    ConfigLine first;
    std::size_t count = 0;
    bool in_section = !rules;
    ConfigLineReader reader(contents.text);
    for (ConfigLine line; reader.Next(line);) {
        in_section = in_section || line.kind == ConfigLineKind::kSection;
        if (line.kind == ConfigLineKind::kOther ||
            (line.kind == ConfigLineKind::kKeyValue && !in_section)) {
            first = count++ == 0 ? line : first;
        }
    }
    if (count == 0) {
        return;
    }
    const std::string message =
        (count == 1 ? "the line is not read: it is not a"
                    : Counted(count, "line") + " are not read: none is a") +
        std::string(rules ? " comment, section or key of a section" : " comment, section or key");
    ReportOnce(Warning(AtSpot(first, first.text, Error(file, "stray-line", message))));
}

}  // namespace tavo::tool
