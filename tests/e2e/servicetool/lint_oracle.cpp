#include "lint_oracle.h"

#include <syslog.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "input/input_file.h"
#include "lint/lint.h"
#include "tavoserviceconf.h"

namespace tavo::test {

using namespace tool;

namespace {

using Names = std::vector<std::string>;

Names ReadByLibrary(const std::string &path) {
    TAVO_SERVICE_CONF *conf = nullptr;
    if (TAVOServiceConfGet(path.c_str(), &conf) != 0) {
        return {};
    }
    Names names;
    for (const auto *section = conf->pSections; section != nullptr; section = section->pNext) {
        names.emplace_back(section->szName);
    }
    TAVOServiceConfFree(conf);
    std::reverse(names.begin(), names.end());
    return names;
}

// The names, truncated to the size of the library's record.
Names ReadableByLint(const LintResult &lint) {
    Names names;
    for (const LintedService &service : lint.services) {
        if (service.readable) {
            names.push_back(service.name.substr(0, TAVO_SERVICE_CONF_NAME_SIZE - 1));
        }
    }
    return names;
}

std::string Listed(const Names &names) {
    std::string list;
    for (const std::string &name : names) {
        list += " [" + name + "]";
    }
    return list.empty() ? " nothing" : list;
}

}  // namespace

std::string Contradiction(std::string_view text) {
    setlogmask(LOG_MASK(LOG_EMERG));
    const LintResult lint = LintText(text, "input");
    const Names expected = ReadableByLint(lint);
    const Names read = ReadByLibrary(MemoryFile(text).Path());
    if (read != expected) {
        return "the library reads" + Listed(read) + ", lint expects" + Listed(expected);
    }
    const bool whole = !read.empty() && read.size() == lint.services.size();
    if (whole != (lint.errors == 0)) {
        return "lint counts " + std::to_string(lint.errors) + " errors and the library reads " +
               std::to_string(read.size()) + " of " + std::to_string(lint.services.size()) +
               " services";
    }
    return {};
}

}  // namespace tavo::test
