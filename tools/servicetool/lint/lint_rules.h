// What the parts of lint share: the rules, the findings of a file, the keys and their values, and
// the ports that services declare.
#ifndef TAVO_SERVICETOOL_LINT_LINT_RULES_H
#define TAVO_SERVICETOOL_LINT_LINT_RULES_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "config_lines.h"
#include "lint/lint.h"
#include "ports/port_query.h"

namespace tavo::tool {

// The rules by name. Names are part of the output and must not change. tavoserviceconf(5) describes
// the rules, servicetool(1) lists them.
struct LintRule {
    std::string_view name;
    Severity severity;
};

inline constexpr LintRule kLintRules[] = {
    // The file
    {"no-section", Severity::kError},
    {"only-global", Severity::kError},
    // Sections
    {"section-name", Severity::kError},
    {"empty-section", Severity::kError},
    {"missing-title", Severity::kError},
    {"missing-desc", Severity::kError},
    {"missing-dst-ports", Severity::kError},
    {"duplicate-section", Severity::kWarning},
    {"name-case", Severity::kWarning},
    {"empty-global", Severity::kWarning},
    // Port lists
    {"empty-port-item", Severity::kError},
    {"port-range", Severity::kError},
    {"port-syntax", Severity::kError},
    {"protocol-word", Severity::kError},
    {"duplicate-port", Severity::kWarning},
    {"port-wrap", Severity::kWarning},
    {"port-zero", Severity::kWarning},
    {"reversed-range", Severity::kWarning},
    // Lines and keys
    {"duplicate-key", Severity::kWarning},
    {"key-outside-section", Severity::kWarning},
    {"nul-byte", Severity::kWarning},
    {"stray-line", Severity::kWarning},
    {"unknown-key", Severity::kWarning},
    // Values
    {"broken-utf-8", Severity::kWarning},
    {"control-byte", Severity::kWarning},
    {"empty-text", Severity::kWarning},
    {"port-forward-value", Severity::kWarning},
    {"quotes", Severity::kWarning},
    {"reference", Severity::kWarning},
    {"text-truncated", Severity::kWarning},
    {"trailing-comment", Severity::kWarning},
    {"version-number", Severity::kWarning},
    // Once, after the last listed finding
    {"more-problems", Severity::kWarning},
};

// The rule of that name. A name that is not in the table does not compile.
consteval LintRule Rule(std::string_view name) {
    for (const LintRule &rule : kLintRules) {
        if (rule.name == name) {
            return rule;
        }
    }
    throw "no such rule";
}

// Collects the findings of one file while its lines are checked.
class Findings {
  public:
    // Lint may be given any file, so the number of listed findings is limited; all are counted.
    static constexpr std::size_t kListed = 1000;

    Findings(std::string_view file, LintResult &result) : file_(file), result_(result) {}

    // Sets the service that the following findings are about; null for none.
    void EnterService(LintedService *service) { service_ = service; }

    // Sets the line that the following findings are about.
    void EnterLine(const ConfigLine &line) { line_ = line; }

    // `spot` is the part of the line's text to mark; it may be empty.
    void Add(const LintRule &rule, std::string_view spot, std::string message,
             std::string fix = {});

    // Adds a finding with the number of findings that are not listed, if any.
    void Close();

  private:
    std::string file_;
    LintResult &result_;
    LintedService *service_ = nullptr;
    ConfigLine line_;
};

// ---- Keys, defined in lint_keys.cpp

enum class SectionKind { kGlobal, kService };

struct KeyRule {
    std::string_view name;
    SectionKind section;
    std::optional<LintRule>
        missing;               // the rule that a section without it breaks, if it is required
    std::string_view example;  // a line with a required key
    std::size_t size;  // of the field for the text, with its terminator; 0: not a plain text
    void (*check)(const ConfigLine &line, Findings &findings);  // further checks; null for none
};

inline constexpr std::size_t kKeyCount = 11;
extern const std::array<KeyRule, kKeyCount> kKeyRules;

// The index of the key in kKeyRules.
std::optional<std::size_t> FindKey(SectionKind section, std::string_view name);

// A similar key, for one that FindKey does not find; empty if there is none.
std::string_view SimilarKey(SectionKind section, std::string_view name);

// Checks the value of the effective line of a key.
void CheckValue(const KeyRule &key, const ConfigLine &line, Findings &findings);

// Adds a finding if `part` does not fit into its field of `size` bytes, including the terminator.
// `what` is the name of the part.
void CheckLength(std::string_view part, std::string_view what, std::size_t size,
                 Findings &findings);

// ---- Ports, defined in lint_ports.cpp

// Checks src.ports or dst.ports.
void CheckPorts(const ConfigLine &line, Findings &findings);

// A set of ports that grows. A file may contain millions of ranges, so ranges that are already in
// the set are skipped as a whole.
class PortSet {
  public:
    // The lowest port of the range that is in the set.
    std::optional<std::uint32_t> FirstIn(const PortRange &range) const;

    // Adds the range. Returns the parts of it that were not in the set.
    PortRanges Add(const PortRange &range);

  private:
    std::map<std::uint32_t, std::uint32_t> ranges_;  // disjoint, from end to start
};

// The destination ports that the services of a file declare. Two services that declare the same
// port and protocol conflict when the file is checked for conflicts.
class DeclaredPorts {
  public:
    // Adds the ports of `service` from a line with a valid port list. Adds a finding for each item
    // that contains a declared port.
    void Add(std::string_view service, const ConfigLine &line, Findings &findings);

  private:
    struct Declaration {
        std::string_view service;
        std::size_t line;
    };

    struct ProtocolPorts {
        PortSet declared;
        std::vector<std::uint32_t> firsts;  // by port, the index of its first declaration
    };

    std::vector<Declaration> declarations_;
    std::array<ProtocolPorts, 2> protocols_;  // by row of the library's protocol map
};

}  // namespace tavo::tool

#endif
