// Reads the lines twice. The first pass reads the file as the library does: it finds the sections
// and the effective line of each key. The second pass uses that to check each line.
#include "lint/lint.h"

#include <unordered_map>
#include <utility>

#include "input/input_file.h"
#include "lint/lint_rules.h"
#include "model/service_file_keys.h"
#include "output/text.h"
#include "tavoserviceconf.h"

namespace tavo::tool {
namespace {

// All sections with the same name, which the library reads as one. A file may contain millions of
// sections, so the structure is small.
struct Section {
    std::string_view name;
    SectionKind kind = SectionKind::kGlobal;
    bool has_keys = false;
    std::uint32_t line = 0;                         // of its first header
    std::uint32_t service = 0;                      // index in LintResult::services
    std::array<std::uint32_t, kKeyCount> counts{};  // the effective line of each key; 0 for none
};

// A suggested correction for an invalid section name; empty if there is none.
std::string NameFix(std::string_view name) {
    constexpr std::size_t kLongest = 60;
    // IsPlain also rejects backslashes.
    std::string fixed = Replaced(std::string(TrimBlanks(name)), "\\", "-");
    if (fixed.empty() || fixed.size() > kLongest || !IsPlain(fixed)) {
        return {};
    }
    for (char &c : fixed) {
        c = kNameCharacters.find(c) == std::string_view::npos ? '-' : c;
    }
    return "write [" + fixed + "]";
}

class Linter {
  public:
    Linter(std::string_view text, std::string_view file) : text_(text), findings_(file, result_) {}

    LintResult Run() {
        CollectSections();
        CheckFile();
        CheckLines();
        findings_.Close();
        return std::move(result_);
    }

  private:
    void CollectSections() {
        Section *section = nullptr;
        ConfigLine line;
        for (ConfigLineReader reader(text_); reader.Next(line);) {
            if (line.kind == ConfigLineKind::kSection) {
                section = &SectionNamed(line.name, line.number);
            } else if (line.kind == ConfigLineKind::kKeyValue && section != nullptr) {
                section->has_keys = true;
                if (const auto key = FindKey(section->kind, line.name)) {
                    section->counts[*key] = static_cast<std::uint32_t>(line.number);
                }
            }
        }
    }

    Section &SectionNamed(std::string_view name, std::size_t line) {
        const auto [found, added] = sections_.try_emplace(name);
        Section &section = found->second;
        if (added) {
            section.name = name;
            section.line = static_cast<std::uint32_t>(line);
            if (name != kGlobalSection) {
                section.kind = SectionKind::kService;
                section.service = static_cast<std::uint32_t>(result_.services.size());
                result_.services.emplace_back().name = name;
            }
        }
        return section;
    }

    void CheckFile() {
        ConfigLine first;
        first.number = 1;
        first.text = text_.substr(0, 0);
        ConfigLineReader(text_).Next(first);
        findings_.EnterLine(first);
        const std::string_view start = first.text.substr(0, 0);
        if (sections_.empty()) {
            findings_.Add(Rule("no-section"), start, "the file has no section, so no service",
                          "start each service with a line [NAME]");
        } else if (result_.services.empty()) {
            findings_.Add(Rule("only-global"), start,
                          "the only section is [global], so there is no service",
                          "add a section [NAME] for each service");
        }
    }

    void CheckLines() {
        const Section *section = nullptr;
        ConfigLine line;
        for (ConfigLineReader reader(text_); reader.Next(line);) {
            findings_.EnterLine(line);
            switch (line.kind) {
                case ConfigLineKind::kBlank:
                case ConfigLineKind::kComment:
                    break;
                case ConfigLineKind::kSection:
                    section = &sections_.at(line.name);
                    findings_.EnterService(section->kind == SectionKind::kService
                                               ? &result_.services[section->service]
                                               : nullptr);
                    CheckHeader(line, *section);
                    break;
                case ConfigLineKind::kKeyValue:
                    if (section != nullptr) {
                        CheckKey(line, *section);
                    } else {
                        findings_.Add(Rule("key-outside-section"), line.name,
                                      "a key before the first section is not read");
                    }
                    break;
                case ConfigLineKind::kOther:
                    CheckOther(line);
                    break;
            }
        }
    }

    void CheckHeader(const ConfigLine &line, const Section &section) {
        CheckName(line);
        if (line.number != section.line) {
            findings_.Add(Rule("duplicate-section"), line.name,
                          "section [" + Shortened(line.name) + "] already starts in line " +
                              std::to_string(section.line) + "; both are read as one");
            return;
        }
        CheckNameCase(line, section);
        CheckKeysOf(line, section);
    }

    void CheckName(const ConfigLine &line) {
        const std::string_view name = line.name;
        const std::size_t bad = name.find_first_not_of(kNameCharacters);
        if (name.empty()) {
            findings_.Add(Rule("section-name"), name, "the section has no name");
        } else if (bad != std::string_view::npos) {
            findings_.Add(
                Rule("section-name"), name.substr(bad),
                "section name " + Quoted(name) +
                    " contains characters other than letters, digits, \"-\", \".\" and \"_\"",
                NameFix(name));
        } else {
            CheckLength(name, "the section's name", TAVO_SERVICE_CONF_NAME_SIZE, findings_);
        }
    }

    void CheckNameCase(const ConfigLine &line, const Section &section) {
        const auto [found, added] = first_by_lower_name_.emplace(LowerCase(line.name), &section);
        if (!added) {
            const Section &first = *found->second;
            findings_.Add(Rule("name-case"), line.name,
                          "section [" + Shortened(line.name) + "] differs from [" +
                              Shortened(first.name) + "] in line " + std::to_string(first.line) +
                              " only in case");
        } else if (line.name != kGlobalSection && found->first == kGlobalSection) {
            findings_.Add(Rule("name-case"), line.name,
                          "[" + std::string(line.name) +
                              "] differs from [global] in case, so it is read as a service",
                          "write [global]");
        }
    }

    void CheckKeysOf(const ConfigLine &header, const Section &section) {
        if (!section.has_keys) {
            const bool global = section.kind == SectionKind::kGlobal;
            findings_.Add(global ? Rule("empty-global") : Rule("empty-section"), header.name,
                          "section [" + Shortened(header.name) + "] has no key" +
                              (global ? " and is not read" : ""));
            return;
        }
        for (std::size_t i = 0; i < kKeyRules.size(); ++i) {
            const KeyRule &key = kKeyRules[i];
            if (key.missing && key.section == section.kind && section.counts[i] == 0) {
                findings_.Add(
                    *key.missing, header.name,
                    "section [" + Shortened(header.name) + "] lacks " + std::string(key.name),
                    "add a line " + std::string(key.example));
            }
        }
    }

    void CheckKey(const ConfigLine &line, const Section &section) {
        const auto key = FindKey(section.kind, line.name);
        if (!key) {
            CheckUnknownKey(line, section.kind);
        } else if (section.counts[*key] != line.number) {
            findings_.Add(Rule("duplicate-key"), line.name,
                          std::string(line.name) + " is repeated in line " +
                              std::to_string(section.counts[*key]) + ", which takes effect",
                          "remove one of the two");
        } else {
            const std::size_t errors = result_.errors;
            CheckValue(kKeyRules[*key], line, findings_);
            if (line.name == kKeyDstPorts && result_.errors == errors) {
                declared_ports_.Add(section.name, line, findings_);
            }
        }
    }

    void CheckUnknownKey(const ConfigLine &line, SectionKind kind) {
        const bool global = kind == SectionKind::kGlobal;
        const SectionKind other = global ? SectionKind::kService : SectionKind::kGlobal;
        const std::string_view similar = SimilarKey(kind, line.name);
        std::string fix;
        if (FindKey(other, line.name)) {
            fix = global ? "move it to the section of a service" : "move it to section [global]";
        } else if (!similar.empty()) {
            fix = "write " + std::string(similar);
        }
        findings_.Add(Rule("unknown-key"), line.name,
                      "key " + Quoted(line.name) + " is unknown in " +
                          (global ? "[global]" : "the section of a service") + " and is not read",
                      std::move(fix));
    }

    void CheckOther(const ConfigLine &line) {
        const std::string_view trimmed = TrimBlanks(line.text);
        const std::size_t nul = line.text.find('\0');
        if (nul != std::string_view::npos) {
            findings_.Add(Rule("nul-byte"), line.text.substr(nul),
                          "a line that contains a NUL byte is not read");
            return;
        }
        const char *message = "neither a comment, a section nor key=value, so the line is not read";
        if (trimmed.front() == '[') {
            message = "a section header ends with \"]\"; this line does not and is not read";
        } else if (trimmed.front() == '=') {
            message = "there is no key before the \"=\", so the line is not read";
        }
        findings_.Add(Rule("stray-line"), trimmed, message);
    }

    std::string_view text_;
    LintResult result_;
    Findings findings_;
    DeclaredPorts declared_ports_;
    std::unordered_map<std::string_view, Section> sections_;  // by name
    std::unordered_map<std::string, const Section *> first_by_lower_name_;
};

}  // namespace

void Findings::Add(const LintRule &rule, std::string_view spot, std::string message,
                   std::string fix) {
    const bool error = rule.severity == Severity::kError;
    const bool listed = ++(error ? result_.errors : result_.warnings) <= kListed;
    if (error && service_ != nullptr) {
        service_->readable = false;
        if (listed && !service_->first_error) {
            service_->first_error = result_.diagnostics.size();
        }
    }
    if (listed) {
        Diagnostic finding =
            Error(file_, std::string(rule.name), std::move(message), std::move(fix));
        finding.severity = rule.severity;
        result_.diagnostics.push_back(AtSpot(line_, spot, std::move(finding)));
    }
}

void Findings::Close() {
    const std::size_t errors = result_.errors - std::min(result_.errors, kListed);
    const std::size_t warnings = result_.warnings - std::min(result_.warnings, kListed);
    if (errors + warnings != 0) {
        result_.diagnostics.push_back(
            Warning(Error(file_, std::string(Rule("more-problems").name),
                          Counted(errors, "error") + " and " + Counted(warnings, "warning") +
                              " are not listed")));
    }
}

LintResult LintText(std::string_view text, std::string_view file) {
    return Linter(text, file).Run();
}

LintedFile ReadAndLint(const std::string &path) {
    const bool standard_input = path == kStandardInput;
    FileContents contents = standard_input ? ReadAll(STDIN_FILENO) : ReadRegularFile(path);
    LintedFile file = {standard_input ? std::string(kStandardInputName) : path,
                       std::move(contents.text),
                       std::move(contents.problem),
                       {}};
    if (file.problem.empty()) {
        file.lint = LintText(file.text, file.name);
    }
    return file;
}

bool LintAndTell(const std::string &path, LintedFile &file, Report &report, std::string fix) {
    file = ReadAndLint(path);
    if (!file.problem.empty()) {
        report.TellError(file.name, "unreadable", file.problem, std::move(fix));
        return false;
    }
    for (const Diagnostic &diagnostic : file.lint.diagnostics) {
        report.Tell(diagnostic);
    }
    return true;
}

std::string LintVerdict(const LintResult &result) {
    std::string verdict;
    if (result.errors != 0) {
        verdict = Counted(result.errors, "error");
    }
    if (result.warnings != 0) {
        verdict += (verdict.empty() ? "" : ", ") + Counted(result.warnings, "warning");
    }
    return verdict.empty() ? "ok" : verdict;
}

}  // namespace tavo::tool
