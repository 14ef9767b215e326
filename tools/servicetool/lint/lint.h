// Everything that is wrong or doubtful in a service file, found in one go.
//
// Errors are exactly what the library refuses or leaves out, warnings what it takes although hardly
// anyone means it. The library is the judge: lines come from the reader that it reads with, and
// single ports and protocol words are put to it. Lint knows the rules of keys and sections besides,
// and finds the place.
#ifndef TAVO_SERVICETOOL_LINT_LINT_H
#define TAVO_SERVICETOOL_LINT_LINT_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "output/diagnostic.h"

namespace tavo::tool {

// What the name of a section is made of.
inline constexpr std::string_view kNameCharacters =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-._";

// A service section, counted once however many sections of its name there are.
struct LintedService {
    std::string name;
    bool readable = true;                    // false: the library leaves it out
    std::optional<std::size_t> first_error;  // into LintResult::diagnostics
};

struct LintResult {
    std::vector<Diagnostic> diagnostics;  // in the order of lines; the first 1000 of each severity
    std::size_t errors = 0;               // how many there are, those not listed included
    std::size_t warnings = 0;
    std::vector<LintedService> services;  // in file order
};

// Looks at the contents of a file; `file` is the name that the findings carry.
LintResult LintText(std::string_view text, std::string_view file);

}  // namespace tavo::tool

#endif
