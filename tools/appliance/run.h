#ifndef TAVO_TOOLS_APPLIANCE_RUN_H
#define TAVO_TOOLS_APPLIANCE_RUN_H

#include <string>
#include <vector>

namespace tavo {

struct RunOptions {
    std::string root;                      // where the tree is made and kept; empty: thrown away
    std::vector<std::string> extra_files;  // what --with was given
    std::vector<std::string> command;
};

// Runs the command in an appliance of its own and returns its exit status, or 128 + n when signal n
// ended it. Throws Failure where the appliance cannot be started.
int RunAppliance(const RunOptions &options);

}  // namespace tavo

#endif
