// The keys of a service file and the checks of their values.
#ifndef TAVO_SERVICETOOL_LINT_LINT_KEYS_H
#define TAVO_SERVICETOOL_LINT_LINT_KEYS_H

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

#include "config_lines.h"
#include "lint/findings.h"

namespace tavo::tool {

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
                 const ConfigLine &line, Findings &findings);

// Checks src.ports or dst.ports; defined in lint_ports.cpp.
void CheckPorts(const ConfigLine &line, Findings &findings);

}  // namespace tavo::tool

#endif
