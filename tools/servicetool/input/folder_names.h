#ifndef TAVO_SERVICETOOL_INPUT_FOLDER_NAMES_H
#define TAVO_SERVICETOOL_INPUT_FOLDER_NAMES_H

#include <optional>
#include <string>
#include <vector>

namespace tavo::tool {

// The names of all entries of a folder, sorted. None, with errno set, when it cannot be listed.
std::optional<std::vector<std::string>> NamesIn(const std::string &folder);

}  // namespace tavo::tool

#endif
