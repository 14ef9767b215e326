#include "source_failure.h"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include "config_lines.h"
#include "declared_text.h"
#include "input_file.h"
#include "service_file.h"
#include "text.h"

namespace tavo {
namespace {

constexpr std::string_view kFtpService = "ftp";

// The library reads it with the port of FTP, and compares neither without it.
constexpr char kFtpHighKey[] = "ftphighport";

Diagnostic Error(std::string file, std::string rule, std::string message, std::string fix = {}) {
    Diagnostic diagnostic;
    diagnostic.file = std::move(file);
    diagnostic.rule = std::move(rule);
    diagnostic.message = std::move(message);
    diagnostic.fix = std::move(fix);
    return diagnostic;
}

// The line that gives a key outside any section a value that is no port.
std::optional<ConfigLine> BadLineOfKey(std::string_view text, std::string_view key) {
    std::optional<ConfigLine> found;
    ConfigLineReader reader(text);
    for (ConfigLine line; reader.Next(line) && line.kind != ConfigLineKind::kSection;) {
        if (line.kind == ConfigLineKind::kKeyValue && line.name == key) {
            found = line;
        }
    }
    const bool bad = found && !found->value.empty() &&
                     TAVOServiceConfPortsCheck(std::string(found->value).c_str()) != 1;
    return bad ? found : std::nullopt;
}

Diagnostic BadSetting(const ConfigLine &line) {
    const std::size_t column = line.ColumnOf(line.value);
    return {kSettingsFile,
            line.number,
            column,
            Severity::kError,
            "bad-setting",
            Quoted(line.value) + " is no port number for " + std::string(line.name),
            "name a port from 1 to 65535, or take the key away",
            AroundSpot(line.text, column - 1)};
}

bool NamesBadPorts(const TAVO_FW_SERVICE &service, std::string &text) {
    for (int i = 0; i < TLIBCSzListCount(service.pDstPortList); ++i) {
        PortRanges ranges;
        text = TLIBCSzListGet(service.pDstPortList, i);
        if (!ReadDeclaredPorts(text, ranges)) {
            return true;
        }
    }
    return false;
}

// A folder that is not there holds nothing.
bool TellUnlistedFolder(const ServiceFolder &folder, Report &report) {
    std::error_code error;
    const std::filesystem::directory_iterator entries(folder.path, error);
    if (!error || error == std::errc::no_such_file_or_directory) {
        return false;
    }
    report.TellError(std::string(folder.path), "unreadable", ErrorText(error.value()));
    return true;
}

// Lines that the library passes over without a word; with `in_sections`, also keys that stand
// before the first section.
bool FindStrayLines(const std::string &file, std::string_view text, bool in_sections,
                    Diagnostic &finding) {
    ConfigLine first;
    std::size_t count = 0;
    bool read = !in_sections;
    ConfigLineReader reader(text);
    for (ConfigLine line; reader.Next(line);) {
        read = read || line.kind == ConfigLineKind::kSection;
        if (line.kind == ConfigLineKind::kOther ||
            (line.kind == ConfigLineKind::kKeyValue && !read)) {
            first = count++ == 0 ? line : first;
        }
    }
    if (count == 0) {
        return false;
    }
    finding = {file,
               first.number,
               1,
               Severity::kWarning,
               "stray-line",
               (count == 1 ? "the line is not read: it is no"
                           : Counted(count, "line") + " are not read: they are no") +
                   std::string(in_sections ? " comment, section or key of a section"
                                           : " comment, section or key"),
               {},
               AroundSpot(first.text, 0)};
    return true;
}

}  // namespace

Diagnostic WhyRulesAreUnknown(const RuleFile &file, const SkippedNames &skipped) {
    if (!file.Problem().empty()) {
        return Error(kRuleFile, "unreadable", file.Problem());
    }
    Diagnostic finding;
    if (FindBadRule(file, skipped, finding)) {
        return finding;
    }
    return Error(kRuleFile, "failed", "the rules cannot be compared");
}

bool FindDisregardedRules(const RuleFile &file, Diagnostic &finding) {
    if (file.Problem().empty()) {
        return FindStrayLines(kRuleFile, file.Text(), true, finding);
    }
    finding = Error(kRuleFile, "unreadable",
                    file.Problem() + (file.IsMissing() ? ", so there are no rules"
                                                       : ", so its rules are not named"));
    finding.severity = Severity::kWarning;
    return true;
}

bool FindDisregardedSettings(Diagnostic &finding) {
    return FindStrayLines(kSettingsFile, ReadRegularFile(kSettingsFile).text, false, finding);
}

Diagnostic WhyServicesAreUnknown(const FirewallServices &services, const SkippedNames &skipped) {
    for (const FirewallService &service : services.services) {
        const std::string name = service.record->szName;
        std::string ports;
        if (!Skips(skipped, name) && NamesBadPorts(*service.record, ports)) {
            return Error(
                service.file == nullptr ? "" : service.file->path, "bad-service",
                "firewall service " + Shortened(name) + " has " + Quoted(ports) + " for a port",
                "correct its settings");
        }
    }
    return Error("", "failed", "the firewall services cannot be compared");
}

Diagnostic WhySettingIsUnknown(const ServiceSetting &setting) {
    const FileContents contents = ReadRegularFile(kSettingsFile);
    if (!contents.problem.empty()) {
        return Error(kSettingsFile, "unreadable",
                     "settings cannot be asked for ports: " + contents.problem);
    }
    const bool ftp = setting.service == kFtpService;
    std::optional<ConfigLine> line = BadLineOfKey(contents.text, setting.key);
    if (!line && ftp) {
        line = BadLineOfKey(contents.text, kFtpHighKey);
    }
    if (line) {
        return BadSetting(*line);
    }
    return Error(kSettingsFile, "failed",
                 std::string(setting.key) + (ftp ? std::string(" or ") + kFtpHighKey : "") +
                     " cannot be told");
}

bool FindBadSetting(std::string_view key, Diagnostic &finding) {
    const FileContents contents = ReadRegularFile(kSettingsFile);
    const std::optional<ConfigLine> line = BadLineOfKey(contents.text, key);
    if (line) {
        finding = BadSetting(*line);
    }
    return line.has_value();
}

Diagnostic WhySocketsAreUnknown(const PortRanges &set, const std::string &problem) {
    if (!set.empty() && set.front().first == 0) {
        return Error("", "port-zero", "sockets cannot be asked for port 0",
                     "name ports from 1 to 65535");
    }
    return Error(
        "", "failed",
        "the ports that sockets hold cannot be told" + (problem.empty() ? "" : ": " + problem));
}

bool TellUnreadServiceFiles(const FirewallServices &services, Report &report) {
    bool complete = true;
    for (const ServiceFolder &folder : ServiceFolders(kEveryServiceFolder)) {
        complete = !TellUnlistedFolder(folder, report) && complete;
    }
    for (const ServiceFile &file : services.files) {
        const bool unread = !file.problem.empty() && file.conf == nullptr;
        if (file.problem.empty() || unread) {
            TellWhatIsMissing(file, report, unread ? Severity::kError : Severity::kWarning);
        }
        complete = complete && !unread;
    }
    return complete;
}

}  // namespace tavo
