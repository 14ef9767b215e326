// The commands of servicetool. Each reports what it finds, and its status with it.
#ifndef TAVO_SERVICETOOL_COMMANDS_H
#define TAVO_SERVICETOOL_COMMANDS_H

#include <string>
#include <vector>

#include "report.h"

namespace tavo {

struct ListOptions {
    bool system = false;
    bool package = false;
    bool no_legend = false;
};

// One line per service of the service folders; both where neither is asked for.
void List(const ListOptions &options, Report &report);

// Everything about the services of that name, or about those of a file.
void Show(const std::string &target, Report &report);

struct LintOptions {
    bool strict = false;
    std::vector<std::string> files;
};

// Every problem of each file.
void Lint(const LintOptions &options, Report &report);

}  // namespace tavo

#endif
