// The changed lines of a file in the format of diff -u, which patch accepts.
#ifndef TAVO_SERVICETOOL_CHANGE_UNIFIED_DIFF_H
#define TAVO_SERVICETOOL_CHANGE_UNIFIED_DIFF_H

#include <optional>
#include <string>
#include <string_view>

namespace tavo::tool {

// The contents of a file; nullopt if the file does not exist.
using FileText = std::optional<std::string>;

// "--- a/PATH", "+++ b/PATH" and the hunks; /dev/null is used for a missing file. Empty if both are
// equal.
std::string UnifiedDiff(const FileText &before, const FileText &after, const std::string &path);

// The diff for a terminal: each line escaped, and coloured if `colour` is true.
std::string ShownDiff(std::string_view diff, bool colour);

}  // namespace tavo::tool

#endif
