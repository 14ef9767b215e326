// Remarks about a file before it is changed: an unusual name, and the target of a symbolic link.
#ifndef TAVO_SERVICETOOL_LINT_FILE_REMARKS_H
#define TAVO_SERVICETOOL_LINT_FILE_REMARKS_H

#include <string>

#include "output/report.h"

namespace tavo::tool {

// What a change of a symbolic link affects: the library writes sections to its target, but replaces
// and removes the link itself.
enum class OfLink { kTarget, kItself };

// " (FILE, where the link leads)" or " (the link, not FILE)"; empty if the file is not a link.
std::string LinkRemark(const std::string &path, OfLink what);

// Warns if the name of a new file is hidden or lacks the usual suffix. `fix` describes how to set
// a name; the suggested name is appended.
void WarnOfNewName(const std::string &name, const std::string &fix, Report &report);

}  // namespace tavo::tool

#endif
