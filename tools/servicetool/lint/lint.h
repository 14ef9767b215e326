// Finds all errors and doubtful lines of a service file.
//
// An error is something that the library rejects or leaves out; a warning is something that it
// accepts but that is probably a mistake. To agree with the library, lint uses its reader for
// lines, and its functions for ports and protocol words. The rules for keys and sections are
// implemented here.
#ifndef TAVO_SERVICETOOL_LINT_LINT_H
#define TAVO_SERVICETOOL_LINT_LINT_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "output/report.h"

namespace tavo::tool {

// The characters allowed in the name of a section.
inline constexpr std::string_view kNameCharacters =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-._";

// A service; all sections with the same name are one service.
struct LintedService {
    std::string name;
    bool readable = true;                    // false: the library leaves it out
    std::optional<std::size_t> first_error;  // index into LintResult::diagnostics
};

struct LintResult {
    std::vector<Diagnostic> diagnostics;  // by line; the first 1000 of each severity
    std::size_t errors = 0;               // number of errors, including those not listed
    std::size_t warnings = 0;
    std::vector<LintedService> services;  // in file order
};

// Checks the text of a file; `file` is its name in the findings.
LintResult LintText(std::string_view text, std::string_view file);

struct LintedFile {
    std::string name;  // for messages
    std::string text;
    std::string problem;  // why the file cannot be read; else empty
    LintResult lint;
};

// Reads and lints a file, "-" for standard input.
LintedFile ReadAndLint(const std::string &path);

// The same, and reports the findings. If the file cannot be read, reports this with the fix, if
// any, raises the status and returns false.
bool LintAndReport(const std::string &path, LintedFile &file, Report &report, std::string fix = {});

// "1 error, 2 warnings", or "ok".
std::string LintVerdict(const LintResult &result);

}  // namespace tavo::tool

#endif
