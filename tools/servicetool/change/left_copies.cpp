#include "change/left_copies.h"

#include <cerrno>
#include <system_error>

#include "input/folder_names.h"
#include "input/input_file.h"
#include "output/text.h"

namespace tavo::tool {
namespace {

std::vector<std::string> NamesThatBegin(const std::string &folder, const std::string &beginning) {
    auto names = NamesIn(folder);
    if (!names && !IsAbsence(errno)) {
        throw std::system_error(errno, std::generic_category(), folder);
    }
    std::vector<std::string> found = std::move(names).value_or(std::vector<std::string>());
    std::erase_if(found, [&](const std::string &name) { return !name.starts_with(beginning); });
    return found;
}

}  // namespace

LeftCopies::LeftCopies(const InstalledFile &file)
    : folder_(std::string(file.folder.path) + "/tmp/"),
      beginning_(file.name + '.'),
      earlier_(NamesThatBegin(folder_, beginning_)) {}

void LeftCopies::Warn(const std::string &path, const std::string &what, const std::string &fix,
                      Report &report) {
    report.Tell({path, 0, 0, Severity::kWarning, "left-behind", what, fix, {}});
}

// The change is made: nothing that is thrown may come out.
void LeftCopies::Tell(Report &report) const {
    try {
        for (const std::string &name : NamesThatBegin(folder_, beginning_)) {
            if (!Holds(earlier_, name)) {
                Warn(folder_ + name, "is what could not be installed, and was left behind",
                     "remove it", report);
            }
        }
    } catch (const std::system_error &error) {
        Warn(folder_, "may hold what could not be installed: " + ErrorText(error.code().value()),
             "write servicetool clean", report);
    }
}

}  // namespace tavo::tool
