// What somebody should know of an installed file before it is changed: what its name is worth, and
// where it leads.
#ifndef TAVO_SERVICETOOL_LINT_FILE_REMARKS_H
#define TAVO_SERVICETOOL_LINT_FILE_REMARKS_H

#include <string>

#include "output/report.h"

namespace tavo::tool {

// What a change of the file does where it is a symbolic link: the library writes sections through
// it, but replaces and removes the link itself.
enum class OfLink { kTarget, kItself };

// " (FILE, where the link leads)" or " (the link, not FILE)"; empty for a file that is no link.
std::string LinkRemark(const std::string &path, OfLink what);

// Warns of the name of a file that is to be made where people would not know the file by it. `fix`
// tells how to give another, behind which the better name comes.
void WarnOfNewName(const std::string &name, const std::string &fix, Report &report);

}  // namespace tavo::tool

#endif
