// A file that is linted before it is used.
#ifndef TAVO_SERVICETOOL_CHANGE_LINTED_FILE_H
#define TAVO_SERVICETOOL_CHANGE_LINTED_FILE_H

#include <string>

#include "lint/lint.h"
#include "output/report.h"

namespace tavo::tool {

struct LintedFile {
    std::string name;  // for messages
    std::string text;
    LintResult lint;
};

// Reads a file, "-" for standard input, and reports all findings of lint. If it cannot be read,
// reports this with the fix, if any, raises the status and returns false.
bool LintAndTell(const std::string &path, LintedFile &file, Report &report, std::string fix = {});

// "1 error, 2 warnings", or "ok".
std::string LintVerdict(const LintResult &result);

}  // namespace tavo::tool

#endif
