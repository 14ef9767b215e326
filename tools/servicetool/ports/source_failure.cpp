#include "ports/source_failure.h"

#include <algorithm>
#include <cerrno>
#include <optional>
#include <string>
#include <utility>

#include "config_lines.h"
#include "input/input_file.h"
#include "input/service_file.h"
#include "output/text.h"
#include "ports/declared_text.h"

namespace tavo::tool {
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

std::string Because(const std::string &reason) {
    return reason.empty() ? "" : ": " + reason;
}

Diagnostic UnreadSettings(const std::string &problem) {
    return Error(kSettingsFile, "unreadable", "settings cannot be asked for ports: " + problem);
}

// The line that gives a key outside any section its value.
std::optional<ConfigLine> LineOfKey(std::string_view text, std::string_view key) {
    std::optional<ConfigLine> found;
    ConfigLineReader reader(text);
    for (ConfigLine line; reader.Next(line) && line.kind != ConfigLineKind::kSection;) {
        if (line.kind == ConfigLineKind::kKeyValue && line.name == key) {
            found = line;
        }
    }
    return found;
}

// The same where the value is no port.
std::optional<ConfigLine> BadLineOfKey(std::string_view text, std::string_view key) {
    const std::optional<ConfigLine> found = LineOfKey(text, key);
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

Diagnostic WhyRulesAreUnknown(const RuleFile &file, const SkippedNames &skipped,
                              const std::string &reason) {
    if (!file.Problem().empty()) {
        return Error(kRuleFile, "unreadable", file.Problem());
    }
    Diagnostic finding;
    if (FindBadRule(file, skipped, finding)) {
        return finding;
    }
    return Error(kRuleFile, "failed", "the rules cannot be compared" + Because(reason));
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

Diagnostic WhyServicesAreUnknown(const FirewallServices &services, const SkippedNames &skipped,
                                 const std::string &reason) {
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
    return Error("", "failed", "the firewall services cannot be compared" + Because(reason));
}

Diagnostic WhySettingIsUnknown(const ServiceSetting &setting, const std::string &reason) {
    const FileContents contents = ReadRegularFile(kSettingsFile);
    if (!contents.problem.empty()) {
        return UnreadSettings(contents.problem);
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
                     " cannot be told" + Because(reason));
}

// The library takes a key that it cannot read for one that is absent.
bool FindUnknownSetting(std::string_view key, std::uint32_t port, Diagnostic &finding) {
    const FileContents contents = ReadRegularFile(kSettingsFile);
    if (!contents.problem.empty() && !contents.absent) {
        finding = UnreadSettings(contents.problem);
        return true;
    }
    if (const std::optional<ConfigLine> line = BadLineOfKey(contents.text, key)) {
        finding = BadSetting(*line);
        return true;
    }
    const std::optional<ConfigLine> line = LineOfKey(contents.text, key);
    const bool lost = port == 0 && line && !line->value.empty() &&
                      line->value.find_first_not_of('0') != std::string_view::npos;
    if (lost) {
        finding = Error(kSettingsFile, "failed", std::string(key) + " cannot be told");
    }
    return lost;
}

Diagnostic WhySocketsAreUnknown(const PortRanges &set, const std::string &problem) {
    if (!set.empty() && set.front().first == 0) {
        return Error("", "port-zero", "sockets cannot be asked for port 0",
                     "name ports from 1 to 65535");
    }
    return Error("", "failed", "the ports that sockets hold cannot be told" + Because(problem));
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

}  // namespace tavo::tool
