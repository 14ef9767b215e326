#ifndef TAVO_TOOLS_APPLIANCE_RUN_H
#define TAVO_TOOLS_APPLIANCE_RUN_H

#include <string>
#include <vector>

namespace tavo {

struct RunOptions {
    std::string root;                      // the tree is created here and kept; empty: temporary
    std::vector<std::string> extra_files;  // the arguments of --with
    std::vector<std::string> command;
};

// Runs the command in its own appliance and returns its exit status, or 128 + n if signal n killed
// it. Throws Failure if the appliance cannot be started.
int RunAppliance(const RunOptions &options);

}  // namespace tavo

#endif
