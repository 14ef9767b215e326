#include "ports/rule_file.h"

#include <filesystem>
#include <system_error>
#include <utility>

#include "input/input_file.h"
#include "output/text.h"
#include "ports/declared_text.h"

namespace tavo::tool {
namespace {

constexpr const char *kNeededKeys[] = {kRuleProtocol, kRuleAppliancePorts, kRuleRouterPorts};

bool IsNotThere(const std::filesystem::file_status &status) {
    return status.type() == std::filesystem::file_type::not_found;
}

// `spot` is the part of line.text that is meant.
Diagnostic FindingAt(const ConfigLine &line, std::string_view spot, std::string message,
                     std::string fix) {
    const std::size_t column = line.ColumnOf(spot);
    return {kRuleFile,  line.number,        column,         Severity::kError,
            "bad-rule", std::move(message), std::move(fix), AroundSpot(line.text, column - 1)};
}

bool FindBadPorts(const ForwardRule &rule, const char *key, Diagnostic &finding) {
    const ConfigLine &line = rule.keys.at(key);
    PortRanges ranges;
    if (ReadDeclaredPorts(line.value, ranges)) {
        return false;
    }
    finding = FindingAt(line, line.value,
                        "rule [" + Shortened(rule.line.name) +
                            "] is not read: " + Quoted(line.value) + " names no ports",
                        "write PORT or START-END, with commas between");
    return true;
}

bool FindWhatIsWrong(const ForwardRule &rule, Diagnostic &finding) {
    for (const char *key : kNeededKeys) {
        if (!rule.keys.contains(key)) {
            finding = FindingAt(
                rule.line, rule.line.name,
                "rule [" + Shortened(rule.line.name) + "] is not read: it lacks " + Quoted(key),
                "add the key, or take the rule away");
            return true;
        }
    }
    return FindBadPorts(rule, kRuleAppliancePorts, finding) ||
           FindBadPorts(rule, kRuleRouterPorts, finding);
}

}  // namespace

std::string ForwardRule::Value(std::string_view key) const {
    const auto found = keys.find(key);
    return found == keys.end() ? "" : std::string(found->second.value);
}

RuleFile::RuleFile() {
    // False where the file may well be there, but the way to it is barred.
    std::error_code error;
    missing_ = IsNotThere(std::filesystem::status(kRuleFile, error));
    if (IsNotThere(std::filesystem::symlink_status(kRuleFile, error))) {
        return;
    }
    FileContents contents = ReadRegularFile(kRuleFile);
    text_ = std::move(contents.text);
    problem_ = std::move(contents.problem);
    std::map<std::string_view, std::size_t> index;
    ConfigLineReader reader(text_);
    ForwardRule *rule = nullptr;
    for (ConfigLine line; reader.Next(line);) {
        if (line.kind == ConfigLineKind::kSection) {
            const auto [place, is_new] = index.emplace(line.name, rules_.size());
            if (is_new) {
                rules_.push_back({line, {}});
            }
            rule = &rules_[place->second];
        } else if (line.kind == ConfigLineKind::kKeyValue && rule != nullptr) {
            rule->keys[line.name] = line;
        }
    }
}

bool FindBadRule(const RuleFile &file, const SkippedNames &skipped, Diagnostic &finding) {
    for (const ForwardRule &rule : file.Rules()) {
        const bool skips =
            rule.keys.contains(kRuleService) && Skips(skipped, rule.Value(kRuleService));
        if (!skips && FindWhatIsWrong(rule, finding)) {
            return true;
        }
    }
    return false;
}

}  // namespace tavo::tool
