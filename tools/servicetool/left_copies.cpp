#include "left_copies.h"

#include <filesystem>
#include <system_error>

#include "text.h"

namespace tavo {
namespace {

std::vector<std::string> NamesIn(const std::string &folder, const std::string &beginning) {
    std::vector<std::string> names;
    std::error_code error;
    for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        const std::string name = entry->path().filename();
        if (name.starts_with(beginning)) {
            names.push_back(name);
        }
    }
    return names;
}

}  // namespace

LeftCopies::LeftCopies(const InstalledFile &file)
    : folder_(std::string(file.folder.path) + "/tmp/"),
      beginning_(file.name + '.'),
      earlier_(NamesIn(folder_, beginning_)) {}

void LeftCopies::Tell(Report &report) const {
    for (const std::string &name : NamesIn(folder_, beginning_)) {
        if (!Holds(earlier_, name)) {
            report.Tell({folder_ + name,
                         0,
                         0,
                         Severity::kWarning,
                         "left-behind",
                         "is what could not be installed, and was left behind",
                         "remove it",
                         {}});
        }
    }
}

}  // namespace tavo
