// A file that is looked at before anything else is done with it.
#ifndef TAVO_SERVICETOOL_CHANGE_LINTED_FILE_H
#define TAVO_SERVICETOOL_CHANGE_LINTED_FILE_H

#include <string>

#include "lint/lint.h"
#include "output/report.h"

namespace tavo::tool {

struct LintedFile {
    std::string name;  // as it is shown
    std::string text;
    LintResult lint;
};

// Reads a file, "-" for standard input, and tells everything that lint finds. False when it cannot
// be read, which is told with the fix, if any, and raises the status.
bool LintAndTell(const std::string &path, LintedFile &file, Report &report, std::string fix = {});

// "1 error, 2 warnings", or "ok".
std::string LintVerdict(const LintResult &result);

}  // namespace tavo::tool

#endif
