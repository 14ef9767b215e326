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

constexpr char kFtpKey[] = "ftpport";

Diagnostic Error(std::string file, std::string rule, std::string message, std::string fix = {}) {
    Diagnostic diagnostic;
    diagnostic.file = std::move(file);
    diagnostic.rule = std::move(rule);
    diagnostic.message = std::move(message);
    diagnostic.fix = std::move(fix);
    return diagnostic;
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

Diagnostic BadSetting(const ConfigLine &line) {
    const std::size_t column = line.ColumnOf(line.value);
    return {kSettingsFile,
            line.number,
            column,
            Severity::kError,
            "bad-setting",
            Quoted(line.value) + " is no port number",
            "name a port from 0 to 65535, or take the key away",
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
        return Error(kSettingsFile, "unreadable", contents.problem);
    }
    const std::optional<ConfigLine> line = LineOfKey(contents.text, setting.key);
    if (line && !line->value.empty() &&
        TAVOServiceConfPortsCheck(std::string(line->value).c_str()) != 1) {
        return BadSetting(*line);
    }
    return Error(kSettingsFile, "failed",
                 setting.key == kFtpKey ? "the passive ports of FTP cannot be told"
                                        : std::string(setting.key) + " cannot be told");
}

Diagnostic WhySocketsAreUnknown(const PortRanges &set) {
    if (!set.empty() && set.front().first == 0) {
        return Error("", "port-zero", "sockets cannot be asked for port 0",
                     "name ports from 1 to 65535");
    }
    return Error("", "failed", "the ports that sockets hold cannot be told");
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
