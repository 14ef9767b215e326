// The keys of a service file and the check that the value of each is put through.
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
    void (*check)(const ConfigLine &line, Findings &findings);
};

inline constexpr std::size_t kKeyCount = 11;
extern const std::array<KeyRule, kKeyCount> kKeyRules;

// Where the key stands in kKeyRules.
std::optional<std::size_t> FindKey(SectionKind section, std::string_view name);

// What a key that FindKey does not know may be meant to be; empty for no idea.
std::string_view SimilarKey(SectionKind section, std::string_view name);

// What is wrong or doubtful in the value of a key line that counts.
void CheckValue(const KeyRule &key, const ConfigLine &line, Findings &findings);

// A finding when `part` is longer than its field of `size` bytes, terminator included, can hold.
// `what` names the part.
void CheckLength(std::string_view part, std::string_view what, std::size_t size,
                 const ConfigLine &line, Findings &findings);

// The check of src.ports and dst.ports, which has a file of its own.
void CheckPorts(const ConfigLine &line, Findings &findings);

}  // namespace tavo::tool

#endif
