// The rules of lint by name. Names are part of the output and must not change. tavoserviceconf(5)
// describes the rules, servicetool(1) lists them.
#ifndef TAVO_SERVICETOOL_LINT_LINT_RULES_H
#define TAVO_SERVICETOOL_LINT_LINT_RULES_H

#include <string_view>

#include "output/diagnostic.h"

namespace tavo::tool {

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

}  // namespace tavo::tool

#endif
