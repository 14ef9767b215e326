#include "lint/file_remarks.h"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

#include "output/text.h"

namespace tavo::tool {
namespace {

constexpr char kEnding[] = ".sc";

}  // namespace

std::string LinkRemark(const std::string &path, OfLink what) {
    std::error_code error;
    if (!std::filesystem::is_symlink(path, error)) {
        return "";
    }
    const std::string target = Escaped(std::filesystem::canonical(path, error).string());
    return what == OfLink::kTarget ? " (" + target + ", where the link leads)"
                                   : " (the link, not " + target + ')';
}

// Only a warning, because the library reads all files of a service folder, whatever their names.
void WarnOfNewName(const std::string &name, const std::string &fix, Report &report) {
    const std::string visible = name.substr(std::min(name.find_first_not_of('.'), name.size()));
    const bool ends = visible.ends_with(kEnding);
    if (visible == name && ends) {
        return;
    }
    report.Tell({name,
                 0,
                 0,
                 Severity::kWarning,
                 "file-name",
                 visible == name ? "the name of a service file ends in .sc"
                                 : "the name hides the file from a plain listing",
                 fix + ' ' + (visible.empty() ? "mypackage" : visible) + (ends ? "" : kEnding),
                 {}});
}

}  // namespace tavo::tool
