// What a change does to the lines of a file, as diff -u shows it and patch takes it.
#ifndef TAVO_SERVICETOOL_CHANGE_UNIFIED_DIFF_H
#define TAVO_SERVICETOOL_CHANGE_UNIFIED_DIFF_H

#include <optional>
#include <string>
#include <string_view>

namespace tavo::tool {

// The contents of a file; none where there is no such file.
using FileText = std::optional<std::string>;

// "--- a/PATH", "+++ b/PATH" and the hunks; /dev/null stands for no file. Empty when the two are
// the same.
std::string UnifiedDiff(const FileText &before, const FileText &after, const std::string &path);

// A diff for people: each line escaped, in colours where `colour` says so.
std::string ShownDiff(std::string_view diff, bool colour);

}  // namespace tavo::tool

#endif
